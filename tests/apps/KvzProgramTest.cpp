// SPDX-License-Identifier: MIT
#include "KvzRun.h"
#include "support/GLTest.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <Chain/ChainLibrary.h>
#include <Chain/PassInfo.h>
#include <Chain/PassRegistry.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QRect>
#include <QtCore/QRegularExpression>
#include <QtCore/QSet>
#include <QtGui/QImage>

#include <algorithm>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

namespace Velmora::Kvz {

namespace {

const QString bunny = QStringLiteral("/usr/share/glmark2/models/bunny.obj");
const QString stillLife = QStringLiteral(KVZ_SOURCE_DIR "/Media/Models/still-life.obj");

/// A folder with a picture that must stay as it is.
class PictureFolder : public TemporaryFolder
{
public:
    PictureFolder() { write("out.png", "the old picture"); }
    ~PictureFolder() { EXPECT_EQ(read("out.png"), "the old picture"); }
    Q_DISABLE_COPY(PictureFolder)

    QString picture() const { return path("out.png"); }
};

/// Expects `kvz render` to refuse a model file of this name and content with this reason, and to leave the picture that is
/// there.
void expectModelRefused(const QString &name, const QByteArray &content, const QString &reason)
{
    PictureFolder folder;
    const QString model = folder.write(name, content);
    expectLine(
        {"render", model, "--capture", folder.path("captures"), "-o", folder.picture()}, 1, model + ": " + reason);
    EXPECT_EQ(folder.entries().size(), 2) << "nothing else is written";
}

/// Expects both `kvz render` and `kvz check` to refuse a chain file, and its name with this reason to be all they say.
void expectChainRefused(const QByteArray &content, const QString &reason)
{
    PictureFolder folder;
    const QString chain = folder.write("chain.json", content);
    const QString model = folder.write("a.obj", cubeObj());
    const QString line = chain + ": " + reason;
    expectLine({"render", model, "--chain", chain, "-o", folder.picture()}, 1, line);

    const Result check = run({"check", chain});
    EXPECT_EQ(check.status, 1);
    // Findings are what was asked for; a file that is no chain is a failure.
    if (reason.startsWith("error: "))
        EXPECT_EQ(linesOf(check.output), QStringList(line));
    else
        EXPECT_EQ(check.errors, QStringList("kvz: " + line));
}

QByteArray chainOf(const QByteArray &passes)
{
    return "{\"passes\": [" + passes + "]}";
}

int distinctColours(const QImage &image)
{
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            colours.insert(image.pixel(x, y));
    }
    return colours.size();
}

/// Pixels that satisfy a condition, as a part of all.
template <typename Condition> double share(const QImage &image, Condition condition)
{
    int count = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            count += condition(image.pixelColor(x, y));
    }
    return double(count) / (image.width() * image.height());
}

} // namespace

// The command line.

TEST(KvzProgramTest, helpIsPrintedForTheProgramAndEachCommand)
{
    const Result program = run({"--help"});
    EXPECT_EQ(program.status, 0);
    EXPECT_EQ(program.errors, QStringList());
    for (const char *command : {"render", "check", "passes", "chains", "info", "formats"}) {
        EXPECT_TRUE(program.output.contains(command));
        const Result help = run({command, "--help"});
        EXPECT_EQ(help.status, 0) << command;
        EXPECT_EQ(help.errors, QStringList()) << command;
        EXPECT_TRUE(help.output.startsWith(QStringLiteral("Usage: kvz %1 ").arg(command))) << help.output.toStdString();
        EXPECT_TRUE(help.output.contains("Exit status:")) << command;
    }
    const QString render = run({"render", "-h"}).output;
    for (const char *option :
        {"--output", "--chain", "--size", "--frames", "--samples", "--camera", "--orbit", "--light", "--floor", "--set",
            "--up", "--animation", "--time", "--format", "--capture", "--timings", "--json", "--quiet", "--watch"})
        EXPECT_TRUE(render.contains(option)) << option;
}

TEST(KvzProgramTest, versionIsPrinted)
{
    const Result result = run({"--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "kvz " KVZ_VERSION "\n");
}

TEST(KvzProgramTest, commandLinesThatMakeNoSenseAreRefused)
{
    expectRefused({}, 2, "a command is missing", "kvz --help");
    expectLine({"rendr"}, 2, "unknown command \"rendr\"; did you mean \"render\"? (see kvz --help)");
    expectLine({"zzzzzz"}, 2,
        "unknown command \"zzzzzz\"; known: \"render\", \"check\", \"passes\", \"chains\", \"info\", \"formats\", "
        "\"manual\", \"completion\" (see kvz --help)");
    expectRefused({"render"}, 2, "an argument is missing", "kvz render --help");
    expectRefused({"render", "a.obj"}, 2, "no picture is named", "-o FILE");
    expectRefused({"render", "a.obj", "--colour", "red", "-o", "c.png"}, 2, "unknown option \"--colour\"", "");
    expectRefused({"render", "a.obj", "-o"}, 2, "missing value after '-o'", "");
    expectRefused({"check"}, 2, "an argument is missing", "kvz check --help");
    expectRefused({"check", "a", "b"}, 2, "unexpected argument \"b\"", "");
    expectRefused({"passes", "a", "b"}, 2, "unexpected argument \"b\"", "");
    expectRefused({"chains", "--all"}, 2, "unknown option \"--all\"", "");
}

TEST(KvzProgramTest, sizesThatCannotBeAreRefused)
{
    PictureFolder folder;
    const auto refused = [&](const QString &size, const QString &part) {
        expectRefused({"render", stillLife, "--size", size, "-o", folder.picture()}, 1, "--size " + size + ": ", part);
    };
    refused("0x0", "must be 1 or more");
    refused("640x0", "must be 1 or more");
    refused("-640x480", "must be 1 or more");
    refused("640", "expected WIDTHxHEIGHT");
    refused("640x480x3", "expected WIDTHxHEIGHT");
    refused("wide", "expected WIDTHxHEIGHT");
    refused("640.5x480", "expected WIDTHxHEIGHT");
    refused("99999999999x5", "too large");
}

TEST(KvzProgramTest, otherValuesThatCannotBeAreRefused)
{
    PictureFolder folder;
    for (const char *frames : {"0", "-3", "many", "1.5"}) {
        expectRefused({"render", stillLife, "--frames", frames, "-o", folder.picture()}, 1,
            QStringLiteral("--frames %1: ").arg(frames), "1 or more");
    }
    expectRefused({"render", stillLife, "--camera", "30,120", "-o", folder.picture()}, 1,
        "--camera \"30,120\": ", "from -90 to 90");
    for (const char *degrees : {"far", "nan", "inf", ""}) {
        expectLine({"render", stillLife, "--frames", "3", "--orbit", degrees, "-o", folder.picture()}, 1,
            QStringLiteral("--orbit %1: expected degrees, such as 2.5").arg(degrees));
    }
    expectLine({"render", stillLife, "--orbit", "5", "-o", folder.picture()}, 1,
        "--orbit 5: the camera turns between frames; put {frame} into -o and add --frames with 2 or more");
    expectLine(
        {"render", stillLife, "--light", "directional:30,60", "--light", "spot:30,60:cone=200", "-o", folder.picture()},
        1, "--light \"cone=200\": cone must be above 0 and below 180 degrees");
    expectLine({"render", stillLife, "--light", "lamp", "-o", folder.picture()}, 1,
        "--light \"lamp\": expected headlight, ambient, none, directional, spot or point");
}

TEST(KvzProgramTest, picturesThatCannotBeWrittenAreRefused)
{
    PictureFolder folder;
    expectRefused(
        {"render", stillLife, "-o", folder.path("none/out.png")}, 1, folder.path("none/out.png: "), "does not exist");
    expectRefused({"render", stillLife, "-o", folder.path("out.xyz")}, 1, folder.path("out.xyz: "), "use .png");
    expectRefused({"render", stillLife, "-o", folder.path(".")}, 1, folder.path(".: "), "is a directory");
    expectLine({"render", stillLife, "--capture", folder.path("out.png/x"), "-o", folder.picture()}, 1,
        folder.path("out.png/x: the directory cannot be made"));
}

// Models.

TEST(KvzProgramTest, badModelsAreRefused)
{
    expectModelRefused("empty.obj", "", "the file is empty");
    expectModelRefused("unknown.xyz", "hello\n",
        "unknown type of model file (OBJ, glTF, GLB, PLY, STL and 3DS are known, among others)");
    expectModelRefused(
        "points.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\n", "no triangles; 3 points are not drawn: triangles alone are");
    expectModelRefused(
        "past.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 9\n", "line 4: a face has vertex 9, past the end of 3");
    expectModelRefused("pastmap.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nf 1/1 2/1 3/9\n",
        "line 5: a face has texture coordinate 9, past the end of 1");
    expectModelRefused("nan.obj", "v 0 0 nan\nv 1 0 0\nv 0 1 0\nf 1 2 3\n",
        "mesh \"defaultobject\": the position of vertex 0 is not a finite number");
    expectModelRefused("cut.obj", cubeObj().left(70), "line 8: a vertex has 1 of its three numbers");
    expectModelRefused("cut.glb", glbBytes(squareGltf({QJsonObject{{"mesh", 0}}}, {}), QImage()).chopped(60),
        "damaged or truncated glTF: Invalid glTF binary.");
    expectModelRefused(
        "cut.ply", "ply\nformat ascii 1.0\nelement vertex 3\n", "damaged or truncated: its header has no end");
}

TEST(KvzProgramTest, missingModelAndDirectoryAreRefused)
{
    PictureFolder folder;
    expectLine({"render", folder.path("none.obj"), "-o", folder.picture()}, 1, folder.path("none.obj: no such file"));
    expectLine(
        {"render", folder.path("."), "-o", folder.picture()}, 1, folder.path(".: is a directory, not a model file"));
}

TEST(KvzProgramTest, warningsDoNotShowPlacesInTheSource)
{
    TemporaryFolder folder;
    const QString model = folder.write("a.obj", "v 0 0 0 nan 0 0\nv 1 0 0 1 0 0\nv 0 1 0 1 0 0\nf 1 2 3\n");
    const Result result = run({"render", model, "--size", "32x32", "-o", folder.path("out.png")});
    ASSERT_FALSE(result.errors.isEmpty());
    for (const QString &line : result.errors)
        EXPECT_FALSE(line.contains(QRegularExpression("\\[\\w+:\\d+\\]"))) << qPrintable(line);
}

TEST(KvzProgramTest, missingTextureIsWarnedOfAndWhite)
{
    TemporaryFolder folder;
    folder.write("a.mtl", "newmtl one\nKd 1 1 1\nmap_Kd gone.png\n");
    const QString model = folder.write("a.obj", "mtllib a.mtl\nusemtl one\n" + cubeObj());
    const Result result = run({"render", model, "--size", "64x64", "--camera", "45,35", "-o", folder.path("out.png")});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors,
        QStringList("kvz: warning: " + model + ": material \"one\": texture \"gone.png\" is not there; white is used"));
    const QImage image = expectPicture(folder.path("out.png"), {64, 64});
    // The top of the cube: grey, and far brighter than the sides in the shade.
    const QColor top = image.pixelColor(32, 20);
    EXPECT_GT(top.red(), 120);
    EXPECT_EQ(top.red(), top.green());
    EXPECT_EQ(top.red(), top.blue());
}

// Chains.

TEST(KvzProgramTest, badChainsAreRefused)
{
    expectChainRefused("{\n  \"passes\": [\n    oops\n  ]\n}", "line 3, column 4: not JSON: illegal number");
    expectChainRefused("[]", "the chain: expected an object, found a list");
    expectChainRefused(chainOf("{\"class\": \"GradientRenderPas\"}"),
        "error: pass \"GradientRenderPas\": expected a known pass class, found \"GradientRenderPas\"; did you mean "
        "\"GradientRenderPass\"?");
    expectChainRefused(chainOf("{\"class\": \"Quux\"}"),
        "error: pass \"Quux\": expected a known pass class, found \"Quux\"; see kvz passes");
    expectChainRefused(chainOf("{\"class\": \"GradientRenderPass\", \"values\": {\"Kvz_QColor_ColourTop\": \"red\"}}"),
        "error: pass \"GradientRenderPass\", Kvz_QColor_ColourTop: expected an input of GradientRenderPass, found no "
        "such port; did you mean \"Kvz_QColor_ColorTop\" or \"Kvz_QColor_ColorBottom\"?");
    expectChainRefused(chainOf("{\"name\": \"screen\", \"class\": \"TextureToScreenRenderPass\", \"connections\": "
                               "{\"Kvz_KvzTexture*_Texture\": \"back.Kvz_KvzTexture*_Frame\"}},"
                               "{\"name\": \"back\", \"class\": \"GradientRenderPass\"}"),
        "error: pass \"screen\", Kvz_KvzTexture*_Texture: expected a pass that runs before it, found "
        "\"back.Kvz_KvzTexture*_Frame\", which runs later; move pass \"back\" before it");
    expectChainRefused(chainOf("{\"name\": \"back\", \"class\": \"GradientRenderPass\"},"
                               "{\"name\": \"screen\", \"class\": \"TextureToScreenRenderPass\", \"connections\": "
                               "{\"Kvz_KvzTexture*_Texture\": \"back.Kvz_KvzTexture*_Fram\"}}"),
        "error: pass \"screen\", Kvz_KvzTexture*_Texture: expected an output of GradientRenderPass, found "
        "\"Kvz_KvzTexture*_Fram\"; did you mean \"Kvz_KvzTexture*_Frame\"?");
    expectChainRefused(chainOf("{\"name\": \"back\", \"class\": \"GradientRenderPass\"},"
                               "{\"name\": \"screen\", \"class\": \"TextureToScreenRenderPass\", \"connections\": "
                               "{\"Kvz_KvzTexture*_Texture\": \"back.Kvz_KvzTexture*_Frame\", "
                               "\"Kvz_Bool_LinearFilter\": \"back.Kvz_KvzTexture*_Frame\"}}"),
        "error: pass \"screen\", Kvz_Bool_LinearFilter: expected bool, found Texture * from "
        "\"back.Kvz_KvzTexture*_Frame\"; connect an output that holds bool");
    expectChainRefused(chainOf("{\"class\": \"GradientRenderPass\", \"values\": {\"Kvz_QRect_Viewport\": \"wide\"}}"),
        "error: pass \"GradientRenderPass\", Kvz_QRect_Viewport: expected QRect: [x, y, width, height] in whole "
        "numbers, found "
        "\"wide\"");
    expectChainRefused(
        chainOf("{\"class\": \"GradientRenderPass\", \"values\": {\"Kvz_QRect_Viewport\": [0, 0, -5, 10]}}"),
        "error: pass \"GradientRenderPass\", Kvz_QRect_Viewport: expected a width and height of 1 or more, found "
        "[0,0,-5,10]; leave it out for the viewport of the frame");
}

TEST(KvzProgramTest, openInputsAreRefused)
{
    PictureFolder folder;
    const QString chain = folder.write("chain.json", chainOf("{\"class\": \"ModelDeferredPass\"}"));
    const QString line = chain
        + ": error: pass \"ModelDeferredPass\", Kvz_KvzTexture*_Diffuse: expected a value, found nothing feeds it; put "
          "one "
          "of these before it, or connect an output: ";
    expectRefused({"render", stillLife, "--chain", chain, "-o", folder.picture()}, 1, line, "ModelRenderPass");
    const Result check = run({"check", chain});
    EXPECT_EQ(check.status, 1);
    EXPECT_TRUE(check.output.startsWith(line)) << check.output.toStdString();
    EXPECT_EQ(linesOf(check.output).size(), 3) << "diffuse, specular and normal";
}

TEST(KvzProgramTest, chainThatPresentsNothingIsWarnedOf)
{
    TemporaryFolder folder;
    const QByteArray gradient = "{\"name\": \"back\", \"class\": \"GradientRenderPass\"}";
    const QByteArray exports = ", \"exports\": {\"x\": \"back.Kvz_KvzTexture*_Frame\"}";
    const QString silent = folder.write("silent.json", chainOf(gradient));
    const QString exporting = folder.write("exporting.json", chainOf(gradient).chopped(1) + exports + "}");

    const Result checked = run({"check", silent});
    EXPECT_EQ(checked.status, 0);
    EXPECT_EQ(checked.output,
        silent
            + ": warning: no enabled pass presents a picture, and nothing is exported; add a TextureToScreenRenderPass "
              "or "
              "\"exports\"\n");
    EXPECT_EQ(run({"check", exporting}).output, exporting + ": nothing wrong with its 1 pass\n");
    for (const QString &chain : {silent, exporting}) {
        const Result result =
            run({"render", stillLife, "--chain", chain, "--size", "8x8", "-o", folder.path("out.png")});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.errors,
            QStringList("kvz: warning: " + chain
                + ": no enabled pass presents, so the picture is empty; add a TextureToScreenRenderPass"));
        const QImage image = expectPicture(folder.path("out.png"), {8, 8});
        EXPECT_EQ(share(image, [](const QColor &c) { return c == QColor(Qt::black); }), 1);
    }
}

TEST(KvzProgramTest, viewportBeyondTheDriversLimitIsRefused)
{
    PictureFolder folder;
    const QString chain = folder.write("chain.json",
        chainOf("{\"name\": \"back\", \"class\": \"GradientRenderPass\", \"values\": "
                "{\"Kvz_QRect_Viewport\": [0, 0, 1000000, 8]}}, {\"class\": \"TextureToScreenRenderPass\", "
                "\"connections\": {\"Kvz_KvzTexture*_Texture\": \"back.Kvz_KvzTexture*_Frame\"}}"));
    const QString start = ": error: pass \"back\", Kvz_QRect_Viewport: expected sides up to ";
    const QString end = ", the limit of this driver, found [0,0,1000000,8]; make it smaller";
    expectRefused({"render", stillLife, "--chain", chain, "-o", folder.picture()}, 1, chain + start, end);
    const Result check = run({"check", "--driver", chain});
    EXPECT_EQ(check.status, 1);
    EXPECT_TRUE(check.output.startsWith(chain + start)) << check.output.toStdString();
    EXPECT_EQ(run({"check", chain}).output, chain + ": nothing wrong with its 2 passes\n");
}

TEST(KvzProgramTest, checkTellsOfShadersThatDoNotCompileInALine)
{
    TemporaryFolder folder;
    const QString chain = folder.write("chain.json",
        chainOf("{\"name\": \"back\", \"class\": \"GradientRenderPass\"}, {\"name\": \"wash\", \"class\": "
                "\"ShaderRenderPass\", \"options\": {\"fragment\": \"wash.frag\", \"inputs\": [{\"name\": "
                "\"Kvz_KvzTexture*_Frame\"}], \"outputs\": [{\"name\": \"Kvz_KvzTexture*_Frame\"}]}}, {\"class\": "
                "\"TextureToScreenRenderPass\", \"connections\": {\"Kvz_KvzTexture*_Texture\": "
                "\"wash.Kvz_KvzTexture*_Frame\"}}"));
    const QByteArray good = "#version 150\nuniform sampler2D u_Frame;\nin vec2 vo_TexCoord;\nout vec4 o_Frame;\n"
                            "void main()\n{\n    o_Frame = texture(u_Frame, vo_TexCoord);\n}\n";
    folder.write("wash.frag", good);
    EXPECT_EQ(run({"check", "--driver", chain}).output, chain + ": nothing wrong with its 3 passes\n");
    folder.write("wash.frag", QByteArray(good).replace("u_Frame, ", "u_Fram, "));
    EXPECT_EQ(run({"check", chain}).output, chain + ": nothing wrong with its 3 passes\n") << "only the driver knows";
    const Result check = run({"check", "--driver", chain});
    EXPECT_EQ(check.status, 1);
    EXPECT_EQ(check.errors, QStringList());
    const QStringList lines = linesOf(check.output);
    ASSERT_EQ(lines.size(), 1) << check.output.toStdString();
    EXPECT_TRUE(lines[0].startsWith(chain
        + ": error: pass \"wash\": expected what the driver takes, found its shaders do not compile: "
        + folder.path("wash.frag") + ":7: "))
        << lines[0].toStdString();
    EXPECT_TRUE(lines[0].contains("u_Fram")) << lines[0].toStdString();
}

TEST(KvzProgramTest, imagesStayWithinTheirBudget)
{
    TemporaryFolder folder;
    QImage image(1024, 512, QImage::Format_RGB32);
    image.fill(QColor(200, 30, 30));
    folder.write("a.png", pngBytes(image));
    folder.write("a.mtl", "newmtl one\nKd 1 1 1\nmap_Kd a.png\n");
    const QString model = folder.write("a.obj", "mtllib a.mtl\nusemtl one\n" + cubeObj());
    const QStringList render{"render", model, "--size", "32x24", "-o", folder.path("out.png")};
    EXPECT_EQ(run(render).errors, QStringList());
    const QImage whole = expectPicture(folder.path("out.png"), {32, 24});
    EXPECT_EQ(run(render + QStringList{"--image-budget", "3"}).errors, QStringList());
    const Result small = run(render + QStringList{"--image-budget", "1"});
    EXPECT_EQ(small.status, 0);
    ASSERT_EQ(small.errors.size(), 1);
    EXPECT_TRUE(small.errors[0].startsWith("kvz: warning: ") && small.errors[0].contains("1 MiB"))
        << small.errors[0].toStdString();
    EXPECT_TRUE(small.errors[0].contains("from 1024x512 to 512x256") || small.errors[0].contains("1024 by 512"))
        << small.errors[0].toStdString();
    EXPECT_EQ(expectPicture(folder.path("out.png"), {32, 24}), whole) << "it has one colour";
    for (const char *bad : {"0", "-1", "x", "1.5", "9999999999999999"}) {
        expectLine(render + QStringList{"--image-budget", bad}, 1,
            QStringLiteral("--image-budget %1: expected a number of MiB, 1 or more").arg(bad));
    }
}

/// Images of 4 GiB, which software GL refuses: at the end of a chain, and before passes that draw on.
TEST(KvzProgramTest, graphicsMemoryThatRunsOutIsSaidInOneLine)
{
    PictureFolder folder;
    ChainDescription deferred;
    QString error;
    ASSERT_TRUE(loadChain("deferred-basic", &deferred, &error));
    deferred.passes[0].values.insert("Kvz_QRect_Viewport", QRect(0, 0, 16384, 16384));
    const QString chain = folder.path("chain.json");
    for (const bool drawsOn : {true, false}) {
        if (!drawsOn) {
            deferred.passes = {deferred.passes.first(), deferred.passes.last()};
            deferred.passes[1].connections = {
                {"Kvz_KvzTexture*_Texture", ChainSource::output("background", "Kvz_KvzTexture*_Frame")}};
        }
        ASSERT_TRUE(saveChain(deferred, chain, &error)) << error.toStdString();
        expectLine({"render", stillLife, "--chain", chain, "--size", "64x64", "--capture", folder.path("captures"),
                       "-o", folder.picture()},
            1, chain + ": out of graphics memory at --size 64x64; try a smaller one");
    }
    EXPECT_EQ(folder.entries().size(), 2) << "nothing else is written";
}

TEST(KvzProgramTest, missingChainsAreRefused)
{
    PictureFolder folder;
    expectLine({"render", stillLife, "--chain", folder.path("none.json"), "-o", folder.picture()}, 1,
        folder.path("none.json: No such file or directory"));
    expectLine({"check", folder.path("none.json")}, 1, folder.path("none.json: No such file or directory"));
    expectLine({"render", stillLife, "--chain", "defered", "-o", folder.picture()}, 1,
        "no chain named \"defered\"; did you mean \"deferred\"?");
}

TEST(KvzProgramTest, errorsOfAChainComeAsOneLineWithTheirNumber)
{
    PictureFolder folder;
    const QString chain = folder.write("chain.json",
        chainOf("{\"class\": \"NoPass\"}, {\"class\": \"NorThis\"}, {\"class\": \"GradientRenderPass\"}"));
    expectRefused({"render", stillLife, "--chain", chain, "-o", folder.picture()}, 1,
        chain + ": error: ", "(and 1 more, see kvz check " + chain + ")");
    const Result check = run({"check", chain});
    EXPECT_EQ(check.status, 1);
    EXPECT_EQ(linesOf(check.output).filter("error: ").size(), 2);
}

TEST(KvzProgramTest, readyChainsHaveNothingWrongWithThem)
{
    const QStringList names = readyChainNames();
    ASSERT_TRUE(names.contains("deferred"));
    const QString list = run({"chains"}).output;
    for (const QString &name : names) {
        const Result check = run({"check", name});
        EXPECT_EQ(check.status, 0) << name.toStdString() << "\n" << check.output.toStdString();
        EXPECT_EQ(check.errors, QStringList());
        EXPECT_TRUE(check.output.contains("nothing wrong")) << check.output.toStdString();
        EXPECT_EQ(run({"check", "--driver", name}).status, 0);
        EXPECT_TRUE(list.contains(QRegularExpression("^" + name + "  +\\S", QRegularExpression::MultilineOption)))
            << list.toStdString();
    }
}

TEST(KvzProgramTest, printedChainIsAChainFile)
{
    TemporaryFolder folder;
    const Result printed = run({"chains", "deferred"});
    EXPECT_EQ(printed.status, 0);
    EXPECT_EQ(run({"check", folder.write("copy.json", printed.output.toUtf8())}).status, 0);
}

// Passes.

TEST(KvzProgramTest, passesAreListedAndDescribed)
{
    const PassRegistry &registry = PassRegistry::standard();
    const QString list = run({"passes"}).output;
    ASSERT_FALSE(registry.classNames().isEmpty());
    for (const QString &name : registry.classNames()) {
        const PassInfo &pass = *registry.find(name);
        EXPECT_TRUE(list.contains(pass.summary)) << name.toStdString();
        const Result description = run({"passes", name});
        EXPECT_EQ(description.status, 0);
        EXPECT_EQ(description.errors, QStringList());
        EXPECT_TRUE(description.output.startsWith(name + ": ")) << description.output.toStdString();
        for (const QString &word : pass.inputNames() + pass.outputNames() + pass.optionNames())
            EXPECT_TRUE(description.output.contains("  " + word + "  ")) << name.toStdString() << word.toStdString();
        for (const InputInfo &input : pass.inputs)
            EXPECT_TRUE(description.output.contains(input.description)) << input.name.toStdString();
    }
}

TEST(KvzProgramTest, columnsOfPortsAreAligned)
{
    const QStringList lines = run({"passes", "ModelRenderPass"}).output.split('\n');
    const int header = lines.indexOf(QRegularExpression(" +# +input .*"));
    ASSERT_GE(header, 0);
    const int column = lines[header].indexOf("type");
    for (int i = header + 1; i < lines.size() && !lines[i].isEmpty(); ++i) {
        EXPECT_EQ(lines[i][column - 1], QChar(' ')) << lines[i].toStdString();
        EXPECT_NE(lines[i][column], QChar(' ')) << lines[i].toStdString();
    }
}

/// The tables of ports and options in a text of Markdown: their headings and rows, all cells but the last one, which a page
/// may word for itself.
QStringList tablesOf(const QString &markdown)
{
    static const QRegularExpression wanted(QStringLiteral("^### (Inputs|Outputs|Options)$"));
    QStringList lines;
    bool isWanted = false;
    for (const QString &line : markdown.split('\n')) {
        if (line.startsWith('#')) {
            isWanted = wanted.match(line).hasMatch();
            if (isWanted)
                lines.append(line);
        } else if (isWanted && line.startsWith("| ")) {
            lines.append(line.left(line.lastIndexOf(" | ")));
        }
    }
    return lines;
}

TEST(KvzProgramTest, pagesOfPassesHaveTheTablesThatItPrints)
{
    for (const QString &name : PassRegistry::standard().classNames()) {
        SCOPED_TRACE(name.toStdString());
        QFile page(QStringLiteral(KVZ_SOURCE_DIR "/docs/passes/%1.md").arg(name));
        ASSERT_TRUE(page.open(QIODevice::ReadOnly));
        const QString text = QString::fromUtf8(page.readAll());
        EXPECT_TRUE(text.startsWith("# " + name + "\n"));
        const QStringList tables = tablesOf(run({"passes", name, "--markdown"}).output);
        EXPECT_FALSE(tables.isEmpty());
        EXPECT_EQ(tablesOf(text), tables);
    }
    expectLine({"passes", "--markdown"}, 2, "--markdown wants a CLASS (see kvz passes --help)");
}

TEST(KvzProgramTest, unknownPassIsRefused)
{
    expectLine({"passes", "GradientPas"}, 1, "no pass of class \"GradientPas\"; did you mean \"GradientRenderPass\"?");
    expectLine({"passes", "Quux"}, 1, "no pass of class \"Quux\"; see kvz passes");
}

// Pictures.

TEST(KvzProgramTest, scannedModelIsRenderedOverTheBackground)
{
    TemporaryFolder folder;
    folder.write("out.png", "the old picture");
    const Result result =
        run({"render", bunny, "--chain", "deferred", "--size", "320x180", "-o", folder.path("out.png")});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, QString());
    EXPECT_EQ(result.errors, QStringList());
    EXPECT_EQ(folder.entries(), QStringList("out.png"));
    const QImage image = expectPicture(folder.path("out.png"), {320, 180});
    // The gradient: one colour a row, brighter downwards. The model is in the middle and its colours are many.
    EXPECT_EQ(image.pixel(0, 90), image.pixel(319, 90));
    EXPECT_LT(image.pixelColor(0, 5).red(), image.pixelColor(0, 175).red());
    EXPECT_NE(image.pixel(0, 90), image.pixel(160, 90));
    EXPECT_GT(distinctColours(image.copy(110, 40, 100, 100)), 100);
    const double covered = share(image, [&](const QColor &c) { return c.red() > 170 || c.red() < 40; });
    EXPECT_GT(covered, 0.05) << "light and shade";
}

TEST(KvzProgramTest, ownSceneShowsItsMaterials)
{
    TemporaryFolder folder;
    const Result result = run({"render", stillLife, "--size", "400x300", "-o", folder.path("out.png")});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, QStringList());
    const QImage image = expectPicture(folder.path("out.png"), {400, 300});
    const auto dominated = [](int a, int b, int c) { return a > 60 && a > 2 * b && a > 2 * c; };
    EXPECT_GT(share(image, [&](const QColor &c) { return dominated(c.red(), c.green(), c.blue()); }), 0.001) << "ball";
    EXPECT_GT(share(image, [&](const QColor &c) { return dominated(c.blue(), c.red(), c.green()); }), 0.005) << "vase";
    EXPECT_GT(share(image, [&](const QColor &c) { return dominated(c.green(), c.red(), c.blue()); }), 0.002) << "cube";
    EXPECT_GT(
        share(image, [](const QColor &c) { return c.red() > 120 && c.green() * 3 < c.red() * 2 && c.blue() > 80; }),
        0.002)
        << "sheet";
}

TEST(KvzProgramTest, cameraTurnsThePicture)
{
    TemporaryFolder folder;
    const auto picture = [&](const QStringList &camera) {
        EXPECT_EQ(
            run(QStringList{"render", stillLife, "--size", "160x120", "-o", folder.path("out.png")} + camera).status,
            0);
        return expectPicture(folder.path("out.png"), {160, 120});
    };
    const QImage usual = picture({});
    EXPECT_EQ(picture({"--camera", "30,20"}), usual);
    EXPECT_EQ(picture({"--camera", "30,20,1:fov=35"}), usual);
    EXPECT_NE(picture({"--camera", "200,20"}), usual);
    // From four times as far the background takes most of the picture.
    const QImage far = picture({"--camera", "30,20,4"});
    EXPECT_EQ(far.pixel(10, 60), far.pixel(150, 60));
    EXPECT_NE(picture({"--camera", "eye=0,6,0.1"}), usual);
}

TEST(KvzProgramTest, orbitGetsToTheViewAndMovesUntilThen)
{
    TemporaryFolder folder;
    const auto rendered = [&](const QString &chain, const QStringList &motion) {
        const QStringList still{"render", stillLife, "--chain", chain, "--size", "160x120", "--capture",
            folder.path("images"), "-o", folder.path("out.png")};
        const Result result = run(still + motion);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.errors, QStringList());
        return expectPicture(folder.path("out.png"), {160, 120});
    };
    // A chain without memory shows the last frame alone. From an eye nothing is framed, so that it is the still picture.
    const QStringList eye{"--camera", "eye=6,4,8"};
    const QImage still = rendered("deferred", eye);
    EXPECT_EQ(rendered("deferred", eye + QStringList{"--frames", "3", "--orbit", "7"}), still);
    EXPECT_EQ(rendered("deferred", eye + QStringList{"--frames", "3", "--orbit", "0"}), still);
    // Else the frames of an orbit share a distance, which is not that of the still picture.
    EXPECT_NE(rendered("deferred", {"--frames", "3", "--orbit", "50"}), rendered("deferred", {}));

    // What is nearest to the camera goes to the left when it turns to the right, and back.
    const auto redInFront = [&](const QString &degrees) {
        rendered("smaa-t2x", {"--frames", "2", "--orbit", degrees});
        const QImage motion = QImage(folder.path("images/05-velocity-Velocity.png"));
        EXPECT_EQ(motion.size(), QSize(160, 120));
        return motion.pixelColor(110, 85).red();
    };
    EXPECT_LT(redInFront("4"), 90);
    EXPECT_GT(redInFront("-4"), 165);
    EXPECT_NEAR(redInFront("0"), 128, 8) << "no more than the jitter, half a pixel";
}

TEST(KvzProgramTest, lightsCastShadowsAndTakeThePlaceOfTheChains)
{
    TemporaryFolder folder;
    const auto picture = [&](const QStringList &arguments, const QString &chain = QStringLiteral("shadows")) {
        const Result result =
            run(QStringList{"render", stillLife, "--chain", chain, "--size", "160x120", "-o", folder.path("out.png")}
                + arguments);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.errors, QStringList());
        return expectPicture(folder.path("out.png"), {160, 120});
    };
    const QImage usual = picture({});
    const QImage left = picture({"--light", "directional:-70,40"});
    const QImage right = picture({"--light", "directional:70,40"});
    EXPECT_NE(left, usual);
    EXPECT_NE(left, right);
    EXPECT_NE(picture({"--light", "directional:-70,40", "--light", "directional:70,40"}), left);
    // A spot that looks elsewhere leaves only the ambient light.
    const QImage dark = picture({"--light", "spot:position=0,50,0:target=0,90,0"});
    const QImage unshadowed = picture({}, QStringLiteral("deferred"));
    const auto sum = [](const QImage &image) {
        double total = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x)
                total += qGray(image.pixel(x, y));
        }
        return total / (image.width() * image.height());
    };
    EXPECT_LT(sum(dark), 0.9 * sum(unshadowed));
    EXPECT_LT(sum(usual), sum(unshadowed));
    EXPECT_GT(sum(usual), sum(dark));
}

TEST(KvzProgramTest, lightsThatNobodyTakesAndMissingLightsAreTold)
{
    TemporaryFolder folder;
    const Result unused = run({"render", stillLife, "--chain", "deferred", "--size", "64x48", "--light", "directional",
        "-o", folder.path("out.png")});
    EXPECT_EQ(unused.status, 0);
    EXPECT_EQ(unused.errors,
        QStringList("kvz: warning: deferred: the chain: expected a pass that takes the lights, found none; add a "
                    "ShadowMapRenderPass, or take the lights out"));
    QFile chain(folder.path("unlit.json"));
    ASSERT_TRUE(chain.open(QIODevice::WriteOnly));
    chain.write(R"({"passes": [{"class": "ShadowMapRenderPass"}, {"class": "ModelRenderPass"},
        {"class": "ShadowMaskRenderPass"}, {"class": "TextureToScreenRenderPass", "connections":
            {"Kvz_KvzTexture*_Texture": "ShadowMaskRenderPass.Kvz_KvzTexture*_ShadowMask"}}]})");
    chain.close();
    const Result unlit =
        run({"render", stillLife, "--size", "64x48", "--chain", chain.fileName(), "-o", folder.path("out.png")});
    EXPECT_EQ(unlit.status, 0);
    EXPECT_EQ(unlit.errors,
        QStringList(
            "kvz: warning: " + chain.fileName() + ": it has no lights, so nothing casts a shadow; add --light"));
}

TEST(KvzProgramTest, aFloorCatchesTheShadow)
{
    TemporaryFolder folder;
    const auto picture = [&](const QStringList &arguments) {
        EXPECT_EQ(
            run(QStringList{"render", bunny, "--size", "160x120", "--camera", "25,30", "-o", folder.path("out.png")}
                + (arguments.contains("--chain") ? arguments : arguments + QStringList{"--chain", "deferred"}))
                .status,
            0);
        return expectPicture(folder.path("out.png"), {160, 120});
    };
    const QImage floor = picture({"--floor"});
    EXPECT_NE(floor, picture({}));
    // The floor is there in both; where the shadow falls on it, it is darker.
    const QImage shadows = picture({"--floor", "--chain", "shadows", "--light", "directional:-60,40"});
    int darker = 0;
    for (int y = 0; y < 120; ++y) {
        for (int x = 0; x < 160; ++x) {
            darker += qGray(shadows.pixel(x, y)) < 0.5 * qGray(floor.pixel(x, y)) ? 1 : 0;
            EXPECT_LE(qGray(shadows.pixel(x, y)), qGray(floor.pixel(x, y)) + 1);
        }
    }
    EXPECT_GT(darker, 300);
    EXPECT_LT(darker, 6000);
}

TEST(KvzProgramTest, theAddedFloorIsTheBackdrops)
{
    TemporaryFolder folder;
    const auto pictures = [&](const QStringList &arguments) {
        const Result result = run(QStringList{"render", "--size", "160x120", "--camera", "25,30", "--floor", "--chain",
                                      "backdrop", "-o", folder.path("{model}.png")}
            + arguments);
        EXPECT_EQ(result.status, 0) << result.errors.join('\n').toStdString();
        return QVector<QImage>{QImage(folder.path("bunny.png")), QImage(folder.path("still-life.png"))};
    };
    // The scan has one material, so the floor is number 1; the still life has a floor of its own, number 0, and many more.
    const QImage usual = pictures({bunny})[0];
    EXPECT_EQ(usual, pictures({bunny, "--set", "backdrop.Kvz_int_FloorMaterialId=1"})[0]);
    const QImage unfaded = pictures({bunny, "--set", "backdrop.Kvz_int_FloorMaterialId=-1"})[0];
    int faded = 0;
    for (int y = 0; y < 120; ++y) {
        for (int x = 0; x < 160; ++x)
            faded += usual.pixel(x, y) != unfaded.pixel(x, y) ? 1 : 0;
    }
    EXPECT_GT(faded, 2000);
    EXPECT_LT(faded, 12000) << "the model stays";
    // Each model of a call has its own.
    const QImage second = pictures({stillLife})[1];
    EXPECT_NE(second, pictures({stillLife, "--set", "backdrop.Kvz_int_FloorMaterialId=1"})[1]);
    const QVector<QImage> both = pictures({bunny, stillLife});
    EXPECT_EQ(both[0], usual);
    EXPECT_EQ(both[1], second);
}

TEST(KvzProgramTest, lastFrameIsThePicture)
{
    TemporaryFolder folder;
    const QStringList still{"render", stillLife, "--chain", "deferred", "--size", "96x64", "-o"};
    run(still + QStringList{folder.path("one.png")});
    const Result result = run(still + QStringList{folder.path("many.png"), "--frames", "7"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, QStringList()) << "no progress bar where no terminal is";
    EXPECT_EQ(expectPicture(folder.path("many.png"), {96, 64}), expectPicture(folder.path("one.png"), {96, 64}));
}

TEST(KvzProgramTest, chainFileIsRendered)
{
    TemporaryFolder folder;
    const QString chain = folder.write("plain.json",
        chainOf("{\"name\": \"back\", \"class\": \"GradientRenderPass\", \"values\": {"
                "\"Kvz_QColor_ColorTop\": \"#ff0000\", \"Kvz_QColor_ColorBottom\": \"#ff0000\"}},"
                "{\"name\": \"screen\", \"class\": \"TextureToScreenRenderPass\", \"connections\": "
                "{\"Kvz_KvzTexture*_Texture\": \"back.Kvz_KvzTexture*_Frame\"}}"));
    const Result result = run({"render", stillLife, "--chain", chain, "--size", "20x10", "-o", folder.path("out.png")});
    EXPECT_EQ(result.status, 0) << result.errors.join('\n').toStdString();
    const QImage image = expectPicture(folder.path("out.png"), {20, 10});
    EXPECT_EQ(share(image, [](const QColor &c) { return c == QColor(Qt::red); }), 1);
}

TEST(KvzProgramTest, outputsOfPassesAreCaptured)
{
    TemporaryFolder folder;
    const Result result = run({"render", bunny, "--chain", "deferred", "--size", "160x120", "--frames", "2",
        "--capture", folder.path("new/captures"), "-o", folder.path("out.png")});
    EXPECT_EQ(result.status, 0) << result.errors.join('\n').toStdString();
    const QDir captures(folder.path("new/captures"));
    const QStringList files = captures.entryList(QDir::Files, QDir::Name);
    for (const char *name : {"01-background-Frame.png", "02-geometry-Depth.png", "02-geometry-Diffuse.png",
             "02-geometry-Normal.png", "02-geometry-Specular.png", "03-shading-Frame.png"})
        EXPECT_TRUE(files.contains(name)) << name << " of " << files.join(' ').toStdString();
    for (const QString &file : files) {
        const QImage image(captures.filePath(file));
        EXPECT_EQ(image.size(), QSize(160, 120)) << file.toStdString();
        EXPECT_GT(distinctColours(image.convertToFormat(QImage::Format_RGB32)), 1) << file.toStdString();
    }
    const QImage diffuse = QImage(captures.filePath("02-geometry-Diffuse.png")).convertToFormat(QImage::Format_RGB32);
    EXPECT_EQ(diffuse.pixelColor(80, 60), QColor(204, 204, 204)) << "light grey, since the file has no material";
}

TEST(KvzProgramTest, timingsAreATable)
{
    TemporaryFolder folder;
    const Result result = run({"render", stillLife, "--chain", "deferred", "--size", "64x64", "--frames", "4",
        "--timings", "-o", folder.path("out.png")});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, QStringList());
    const QStringList lines = linesOf(result.output);
    ChainDescription chain;
    QString error;
    ASSERT_TRUE(loadChain("deferred", &chain, &error));
    ASSERT_EQ(lines.size(), 3 + chain.passes.size() + 1) << result.output.toStdString();
    EXPECT_TRUE(lines[0].startsWith("deferred, 64x64, ")) << lines[0].toStdString();
    EXPECT_TRUE(lines[1].startsWith("median of 3 frames")) << lines[1].toStdString();
    EXPECT_TRUE(QRegularExpression("^pass +GPU ms +CPU ms$").match(lines[2]).hasMatch()) << lines[2].toStdString();
    double sum = 0;
    const QRegularExpression row("^(\\S+) +(\\d+\\.\\d{3}|-|rests) +(\\d+\\.\\d{3}|rests)$");
    for (int i = 0; i <= chain.passes.size(); ++i) {
        const QString &line = lines[3 + i];
        const QRegularExpressionMatch match = row.match(line);
        ASSERT_TRUE(match.hasMatch()) << line.toStdString();
        EXPECT_EQ(line.size(), lines[2].size()) << "numbers are flush right";
        const double milliseconds = match.captured(3).toDouble();
        if (i < chain.passes.size()) {
            EXPECT_EQ(match.captured(1), chain.passes[i].name);
            EXPECT_EQ(milliseconds > 0, match.captured(3) != "rests");
            sum += milliseconds;
        } else {
            EXPECT_EQ(match.captured(1), "sum");
            EXPECT_NEAR(milliseconds, sum, 0.001 * chain.passes.size());
        }
    }
}

TEST(KvzProgramTest, progressIsShownOnATerminal)
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(master, 0);
    ASSERT_EQ(grantpt(master), 0);
    ASSERT_EQ(unlockpt(master), 0);
    TemporaryFolder folder;
    Kvz program;
    program.terminal = ptsname(master);
    const int slave = open(ptsname(master), O_RDWR | O_NOCTTY); // keeps what was written until it is read
    EXPECT_EQ(
        program.run({"render", bunny, "--size", "16x16", "--frames", "20", "-o", folder.path("out.png")}).status, 0);
    QByteArray shown(100000, '\0');
    shown.resize(int(std::max<ssize_t>(0, read(master, shown.data(), size_t(shown.size())))));
    close(slave);
    close(master);
    EXPECT_TRUE(shown.contains("frame 1 of 20")) << shown.constData();
    EXPECT_TRUE(shown.contains("] frame 20 of 20")) << shown.constData();
    EXPECT_TRUE(shown.endsWith("\r\033[K")) << "the bar is wiped";
    EXPECT_FALSE(shown.contains('\n'));
}

// Drivers.

TEST(KvzProgramTest, missingDriverIsSaidInOneLine)
{
    PictureFolder folder;
    const QPair<QString, QString> settings[] = {
        {"__EGL_VENDOR_LIBRARY_FILENAMES", "/nonexistent"}, // no EGL behind the loader
        {"LIBGL_DRIVERS_PATH", "/nonexistent"}, // EGL without a driver
        {"MESA_GL_VERSION_OVERRIDE", "3.1"}, // a driver that is too old
    };
    for (const auto &[name, value] : settings) {
        Kvz program;
        program.environment.insert(name, value);
        expectRefused({"render", stillLife, "-o", folder.picture()}, 1, "no usable OpenGL driver: ", "", program);
        expectRefused({"check", "--driver", "deferred"}, 1, "no usable OpenGL driver: ", "", program);
        EXPECT_EQ(program.run({"check", "deferred"}).status, 0) << "checking needs none";
    }
}

TEST(KvzProgramTest, aShaderThatTheDriverRefusesIsToldWithItsPass)
{
    PictureFolder folder; // The old picture stays.
    Kvz program;
    program.environment.insert("force_glsl_version", "110"); // The driver takes no later words.
    program.environment.insert("MESA_SHADER_CACHE_DISABLE", "true");
    const Result result = program.run({"render", stillLife, "--chain", "deferred", "-o", folder.picture()});
    EXPECT_EQ(result.status, 1);
    const QStringList lines = result.errors.filter("kvz: ");
    ASSERT_EQ(lines.size(), 1) << result.errors.join('\n').toStdString();
    EXPECT_TRUE(lines[0].startsWith("kvz: deferred: pass \"background\": the driver refuses a program: "))
        << lines[0].toStdString();
    EXPECT_TRUE(lines[0].contains("only valid for function parameters in GLSL 1.10")) << lines[0].toStdString();
}

TEST(KvzProgramTest, aChainIsResolvedTwiceBeforeItsFirstFrame)
{
    for (const char *chain : {"deferred", "shadows", "full"}) {
        TemporaryFolder folder;
        Kvz program;
        program.environment.insert("QT_LOGGING_RULES", "kvz.chain.debug=true");
        const Result result = program.run(
            {"render", stillLife, "--chain", chain, "--size", "64x48", "--frames", "2", "-o", folder.path("out.png")});
        EXPECT_EQ(result.status, 0) << chain;
        const int resolutions = result.errors.filter("kvz: debug: resolved \"").size();
        EXPECT_GE(resolutions, 1) << result.errors.join('\n').toStdString();
        EXPECT_LE(resolutions, 2) << result.errors.join('\n').toStdString();
    }
}

} // namespace Velmora::Kvz
