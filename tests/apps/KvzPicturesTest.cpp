// SPDX-License-Identifier: MIT
// `kvz render` with several pictures in a call, and with what a model file says of itself.
#include "../Import/GltfDocument.h"
#include "KvzRun.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <Chain/ChainLibrary.h>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace Velmora::Kvz {

namespace {

const QString stillLife = QStringLiteral(KVZ_SOURCE_DIR "/Media/Models/still-life.obj");

/// A red square, 1 by 1, in the middle of the picture of a camera "straight", which is 4 wide and 2 high, and aside in that of "front". An
/// animation, "slide", moves it by 4 along x in 2 seconds.
QByteArray squareWithCameras()
{
    GltfDocument document;
    document.setSquare({{"pbrMetallicRoughness",
        QJsonObject{{"baseColorFactor", QJsonArray{1, 0, 0, 1}}, {"metallicFactor", 0}, {"roughnessFactor", 1}}}});
    document.root["cameras"] = QJsonArray{
        QJsonObject{{"type", "orthographic"}, {"name", "straight"},
            {"orthographic", QJsonObject{{"xmag", 2}, {"ymag", 1}, {"znear", 0.1}, {"zfar", 100}}}},
        QJsonObject{{"type", "perspective"}, {"name", "front"},
            {"perspective", QJsonObject{{"yfov", 2 * std::atan(0.25)}, {"aspectRatio", 2}, {"znear", 0.1}}}},
    };
    document.setNodes(
        {QJsonObject{{"mesh", 0}, {"translation", QJsonArray{-0.5, -0.5, 0}}},
            QJsonObject{{"camera", 0}, {"translation", QJsonArray{0, 0, 5}}},
            QJsonObject{{"camera", 1}, {"translation", QJsonArray{1, 0, 4}}, {"scale", QJsonArray{3, 3, 3}}}},
        {0, 1, 2});
    const int times = document.addAccessor(GltfDocument::bytesOf<float>({0, 2}), GltfDocument::Float, 2, "SCALAR");
    const int places = document.addAccessor(
        GltfDocument::bytesOf<float>({-0.5f, -0.5f, 0, 3.5f, -0.5f, 0}), GltfDocument::Float, 2, "VEC3");
    document.root["animations"] = QJsonArray{QJsonObject{{"name", "slide"},
        {"samplers", QJsonArray{QJsonObject{{"input", times}, {"output", places}}}},
        {"channels",
            QJsonArray{QJsonObject{{"sampler", 0}, {"target", QJsonObject{{"node", 0}, {"path", "translation"}}}}}}}};
    return document.bytes();
}

/// What is not background: the gradient has one colour a row, which the column at the right edge shows.
QRect covered(const QImage &image)
{
    QRect area;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QRgb pixel = image.pixel(x, y);
            const QRgb edge = image.pixel(image.width() - 1, y);
            const int differences[] = {
                qRed(pixel) - qRed(edge), qGreen(pixel) - qGreen(edge), qBlue(pixel) - qBlue(edge)};
            if (std::any_of(std::begin(differences), std::end(differences), [](int d) { return std::abs(d) > 8; }))
                area |= QRect(x, y, 1, 1);
        }
    }
    return area;
}

class KvzPicturesTest : public ::testing::Test
{
protected:
    /// Expects `kvz render` to do without a word.
    void render(const QStringList &arguments)
    {
        const Result result = run(QStringList{"render"} + arguments);
        EXPECT_EQ(result.status, 0) << arguments.join(' ').toStdString();
        EXPECT_EQ(result.output, QString());
        EXPECT_EQ(result.errors, QStringList()) << arguments.join(' ').toStdString();
    }
    QImage picture(const QStringList &arguments, const QSize &size)
    {
        // The plainest one, unless another is asked for.
        const QStringList chain = arguments.contains("--chain") ? QStringList() : QStringList{"--chain", "deferred"};
        render(arguments + chain
            + QStringList{
                "--size", QStringLiteral("%1x%2").arg(size.width()).arg(size.height()), "-o", folder.path("out.png")});
        return expectPicture(folder.path("out.png"), size);
    }

    TemporaryFolder folder;
};

} // namespace

// What the file says of itself.

TEST_F(KvzPicturesTest, camerasOfTheFileFrameWhatTheyFrame)
{
    const QString model = folder.write("square.gltf", squareWithCameras());
    // Orthographic, 4 by 2 units: the square takes a quarter of the width and half of the height.
    for (const char *name : {"straight", "0", "file=straight", "file=0"})
        EXPECT_EQ(covered(picture({model, "--camera", name}, {80, 40})), QRect(30, 10, 20, 20)) << name;
    QByteArray scaled = squareWithCameras();
    scaled.replace("\"camera\":0,", "\"camera\":0,\"scale\":[2,2,2],").replace("\"ymag\":1,", "\"ymag\":0.5,");
    scaled.replace("\"xmag\":2,", "\"xmag\":1,").replace("\"zfar\":100,", "\"zfar\":3,");
    const QString withUnit = folder.write("scaled.gltf", scaled);
    EXPECT_EQ(covered(picture({withUnit, "--camera", "straight"}, {80, 40})), QRect(30, 10, 20, 20));
    // A wider picture shows more at the sides, a taller one more above and below.
    EXPECT_EQ(covered(picture({model, "--camera", "straight"}, {120, 40})), QRect(50, 10, 20, 20));
    EXPECT_EQ(covered(picture({model, "--camera", "straight"}, {80, 80})), QRect(30, 30, 20, 20));
    // 4 before the square and 1 to the right, 2 units high there and 4 wide; the name means a view, unless told otherwise. The
    // scale of its node does not count.
    EXPECT_EQ(covered(picture({model, "--camera", "file=front"}, {80, 40})), QRect(10, 10, 20, 20));
    EXPECT_EQ(covered(picture({model, "--camera", "1"}, {80, 40})), QRect(10, 10, 20, 20));
    EXPECT_EQ(covered(picture({model, "--camera", "1"}, {80, 80})), QRect(10, 30, 20, 20));
    EXPECT_GT(covered(picture({model, "--camera", "front"}, {80, 40})).height(), 36);
}

TEST_F(KvzPicturesTest, aCameraOfTheFileOrbitsToo)
{
    const QString model = folder.write("square.gltf", squareWithCameras());
    render({model, "--size", "80x40", "--camera", "straight", "--frames", "3", "--orbit", "60", "-o",
        folder.path("{frame}.png")});
    EXPECT_EQ(covered(expectPicture(folder.path("0.png"), {80, 40})), QRect(30, 10, 20, 20));
    EXPECT_EQ(covered(expectPicture(folder.path("1.png"), {80, 40})), QRect(35, 10, 10, 20)) << "cos 60 degrees";
    EXPECT_EQ(covered(expectPicture(folder.path("2.png"), {80, 40})), QRect(35, 10, 10, 20));
}

TEST_F(KvzPicturesTest, camerasThatAreNotThereAreToldWithThoseThatAre)
{
    const QString model = folder.write("square.gltf", squareWithCameras());
    const auto refused = [&](const QString &file, const QString &camera, const QString &reason) {
        expectLine(
            {"render", file, "--camera", camera, "-o", folder.path("out.png")}, 1, file + ": --camera " + reason);
    };
    refused(model, "main", "\"main\": no such view, and the file has \"straight\", \"front\" (numbers from 0)");
    refused(model, "2",
        "\"2\": no such view (AZIMUTH,ELEVATION are two numbers, such as 2,20), and the file has \"straight\", "
        "\"front\" "
        "(numbers from 0)");
    refused(model, "frnt",
        "\"frnt\": no such view (did you mean \"front\"?), and the file has \"straight\", \"front\" (numbers from 0)");
    refused(stillLife, "file=0", "\"0\": no such view, and the file has no cameras");
    EXPECT_FALSE(QFile::exists(folder.path("out.png")));
}

TEST_F(KvzPicturesTest, aCameraThatLooksAwayIsWarnedOf)
{
    const Result result = run(
        {"render", stillLife, "--camera", "eye=0,0,50:target=0,0,90", "--size", "32x24", "-o", folder.path("out.png")});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(
        result.errors, QStringList("kvz: warning: " + stillLife + ": --camera eye=0,0,50:target=0,0,90 looks past it"));
    EXPECT_EQ(covered(expectPicture(folder.path("out.png"), {32, 24})), QRect());
}

TEST_F(KvzPicturesTest, aModelThatCoversNoPixelIsWarnedOf)
{
    const QString model = folder.write("floor.obj", "v -1 0 -1\nv 1 0 -1\nv 1 0 1\nv -1 0 1\nf 4 3 2 1\n");
    const QString picture = folder.path("out.png");
    for (const char *const view : {"front", "top"}) {
        const Result result = run({"render", model, "--camera", view, "--size", "32x24", "-o", picture});
        EXPECT_EQ(result.status, 0);
        const bool isEdgeOn = qstrcmp(view, "front") == 0;
        EXPECT_EQ(covered(expectPicture(picture, {32, 24})).isNull(), isEdgeOn) << view;
        EXPECT_EQ(result.errors,
            isEdgeOn
                ? QStringList("kvz: warning: " + model + ": nothing of it stands out from the background of " + picture)
                : QStringList())
            << view;
    }
}

TEST_F(KvzPicturesTest, animationsPoseTheModel)
{
    const QString model = folder.write("square.gltf", squareWithCameras());
    const auto at = [&](const QStringList &options) {
        return covered(picture(QStringList{model, "--camera", "straight"} + options, {160, 40}));
    };
    const QRect rest(70, 10, 20, 20);
    EXPECT_EQ(at({}), rest);
    EXPECT_EQ(at({"--animation", "slide"}), rest);
    EXPECT_EQ(at({"--animation", "slide", "--time", "0.5"}), rest.translated(20, 0));
    EXPECT_EQ(at({"--animation", "0", "--time", "1.25"}), rest.translated(50, 0));
    EXPECT_EQ(at({"--time", "0.75"}), rest.translated(30, 0));
    expectLine({"render", model, "--animation", "fly", "-o", folder.path("out.png")}, 1,
        model + ": has no animation \"fly\"; it has \"slide\" (numbers from 0)");
    for (const char *time : {"-1", "soon", "inf"}) {
        expectLine({"render", model, "--time", time, "-o", folder.path("out.png")}, 1,
            QStringLiteral("--time %1: expected seconds, 0 or more").arg(time));
    }
}

TEST_F(KvzPicturesTest, theUpAxisTurnsTheModel)
{
    // A post along z, 4 high and 1 thick.
    QByteArray post = cubeObj();
    post.replace("v -1", "v -0.5")
        .replace("v 1", "v 0.5")
        .replace(" -1 -1\n", " -0.5 -2\n")
        .replace(" 1 -1\n", " 0.5 -2\n");
    post.replace(" -1 1\n", " -0.5 2\n").replace(" 1 1\n", " 0.5 2\n");
    const QString model = folder.write("post.obj", post);
    const auto size = [&](const QStringList &options) {
        return covered(picture(QStringList{model, "--camera", "front:ortho"} + options, {80, 80})).size();
    };
    EXPECT_EQ(size({}).width(), size({}).height()) << "seen from its end";
    for (const char *up : {"z", "-z", "Z"}) {
        const QSize standing = size({"--up", up});
        EXPECT_NEAR(standing.height(), 4 * standing.width(), 4) << up;
        EXPECT_GE(standing.height(), 74) << up;
    }
    for (const char *up : {"w", "--y", ""}) {
        expectLine({"render", model, "--up=" + QString(up), "-o", folder.path("out.png")}, 1,
            QStringLiteral("--up %1: expected x, y, z, -x, -y or -z").arg(up));
    }
}

// Several pictures.

TEST_F(KvzPicturesTest, namesAreFilled)
{
    const QString first = folder.write("car.v2.obj", cubeObj());
    const QString second = folder.write("bus.obj", cubeObj());
    render({first, second, "--size", "16x8", "--camera", "front", "--camera", "30,20:fov=50", "--frames", "2",
        "--orbit", "5", "-o", folder.path("{{{model}}}-{view}-{frame}{frame:03}.png")});
    QStringList expected;
    for (const char *model : {"bus", "car.v2"}) {
        for (const char *view : {"30,20_fov=50", "front"}) {
            for (const char *frame : {"0000", "1001"})
                expected.append(QStringLiteral("{%1}-%2-%3.png").arg(model, view, frame));
        }
    }
    QStringList found = folder.entries();
    EXPECT_TRUE(found.removeOne("car.v2.obj") && found.removeOne("bus.obj"));
    EXPECT_EQ(found, expected);
}

TEST_F(KvzPicturesTest, picturesThatWouldMeetAreRefusedBeforeAnyIsDrawn)
{
    const QString model = folder.write("a.obj", cubeObj());
    const auto refused = [&](const QStringList &arguments, const QString &line) {
        expectLine(QStringList{"render", model} + arguments, 1, line);
    };
    const QString plain = folder.path("out.png");
    refused({"--camera", "front", "--camera", "top", "-o", plain},
        "-o " + plain + ": 2 pictures need names of their own; put {view} into it");
    refused({stillLife, "-o", plain}, "-o " + plain + ": 2 pictures need names of their own; put {model} into it");
    const QString frames = folder.path("{frame}.png");
    refused({stillLife, "--camera", "front", "--camera", "top", "--frames", "3", "--orbit", "1", "-o", frames},
        "-o " + frames + ": 12 pictures need names of their own; put {model} and {view} into it");
    const QString models = folder.path("{model}.png");
    QDir(folder.path(".")).mkdir("other");
    const QString other = folder.write("other/a.ply", "ply\n");
    refused({other, "-o", models},
        "-o " + models + ": " + folder.path("a.png") + " would hold both " + model + " from 30,20 and " + other
            + " from 30,20; render them in calls of their own");
    const QString views = folder.path("{view}.png");
    refused({"--camera", "front", "--camera", "top", "--capture", folder.path("c"), "-o", views},
        "--capture " + folder.path("c") + ": 2 pictures need names of their own; put {view} into it");
    refused({"-o", folder.path("{fram}.png")}, "-o \"{fram}\": did you mean \"{frame}\"?; {{ and }} are plain braces");
    for (const char *bad : {"{frame:4}", "{view:04}", "{}", "{", "}", "{colour}"}) {
        expectRefused({"render", model, "-o", folder.path(QStringLiteral("x%1.png").arg(bad))}, 1,
            QStringLiteral("-o \"%1\": ").arg(bad), "; {{ and }} are plain braces");
    }
    EXPECT_EQ(folder.entries(), (QStringList{"a.obj", "other"}));
}

TEST_F(KvzPicturesTest, framesCountPicturesOrSamples)
{
    const QString out = folder.path("out.png");
    expectLine({"render", stillLife, "--frames", "3", "--samples", "2", "-o", out}, 2,
        "--frames and --samples mean the same where -o has no {frame}; give one of them (see kvz render --help)");
    expectLine(
        {"render", stillLife, "--samples", "0", "-o", out}, 1, "--samples 0: expected a number of frames, 1 or more");
    expectLine({"render", stillLife, "--orbit", "5", "-o", folder.path("{frame}.png")}, 1,
        "--orbit 5: the camera turns from picture to picture; add --frames with 2 or more");
    expectLine({"render", stillLife, "--frames", "2000000000", "--orbit", "1", "--camera", "top", "--camera", "iso",
                   "-o", folder.path("{view}{frame}.png")},
        1, "--frames 2000000000: one call draws at most 1000000 pictures");
    // The older name.
    const QStringList temporal{stillLife, "--chain", "temporal"};
    const QImage one = picture(temporal, {64, 48});
    const QImage many = picture(temporal + QStringList{"--samples", "5"}, {64, 48});
    EXPECT_NE(one, many);
    EXPECT_EQ(picture(temporal + QStringList{"--frames", "5"}, {64, 48}), many);
    // With {frame} they are pictures, of the samples that are asked for.
    const Result still = run(QStringList{"render"} + temporal
        + QStringList{"--frames", "2", "--samples", "5", "--size", "64x48", "-o", folder.path("{frame}.png")});
    EXPECT_EQ(still.status, 0);
    EXPECT_EQ(
        still.errors, QStringList("kvz: warning: --frames 2: nothing moves from picture to picture; add --orbit"));
    EXPECT_EQ(expectPicture(folder.path("0.png"), {64, 48}), many);
    EXPECT_EQ(expectPicture(folder.path("1.png"), {64, 48}), many);
}

TEST_F(KvzPicturesTest, aTurntableTurns)
{
    render({stillLife, "--size", "96x64", "--frames", "4", "--orbit", "90", "-o", folder.path("{frame}.png")});
    QVector<QImage> pictures;
    for (int i = 0; i < 4; ++i) {
        pictures.append(expectPicture(folder.path(QString::number(i) + ".png"), {96, 64}));
        for (int j = 0; j < i; ++j)
            EXPECT_NE(pictures[i], pictures[j]) << i << " and " << j;
        EXPECT_GT(covered(pictures[i]).height(), 20) << i;
    }
    // The first has the view, and they share one distance: that of a whole turn begun elsewhere.
    render({stillLife, "--size", "96x64", "--frames", "4", "--orbit", "-90", "-o", folder.path("b{frame}.png")});
    EXPECT_EQ(expectPicture(folder.path("b0.png"), {96, 64}), pictures[0]);
}

/// In chains with a past, and in all the others, a picture is that of a call of its own.
class KvzChainPicturesTest : public KvzPicturesTest, public ::testing::WithParamInterface<QString>
{ };

TEST_P(KvzChainPicturesTest, noPictureDependsOnTheOneBefore)
{
    const QString chain = GetParam();
    const QString cube = folder.write("cube.obj", cubeObj());
    const QString glass = QStringLiteral(KVZ_SOURCE_DIR "/Media/Models/glass.obj");
    // Random jitter begins with the fifth frame of a still view.
    const QStringList common{"--samples", "6", "--size", "48x36", "--chain", chain};
    render(
        QStringList{cube, glass, "--camera", "30,20", "--camera", "200,50,0.6", "-o", folder.path("{model} {view}.png")}
        + common);
    render(QStringList{glass, "--camera", "200,50,0.6", "-o", folder.path("alone.png")} + common);
    const QImage last = expectPicture(folder.path("glass 200,50,0.6.png"), {48, 36});
    EXPECT_EQ(last, expectPicture(folder.path("alone.png"), {48, 36}));
    // A sheet that is larger than this, and a model of its own.
    if (chain != "blend-gallery" && chain != "primitives") {
        EXPECT_NE(last, expectPicture(folder.path("cube 200,50,0.6.png"), {48, 36}));
        EXPECT_NE(last, expectPicture(folder.path("glass 30,20.png"), {48, 36}));
    }
}

INSTANTIATE_TEST_SUITE_P(Chain, KvzChainPicturesTest, ::testing::ValuesIn(readyChainNames()),
    [](const auto &chain) { return QString(chain.param).remove('-').toStdString(); });

/// From an eye nothing is framed, so that a picture of one turntable is that of another with fewer pictures before it.
TEST_F(KvzPicturesTest, aTurntableWithAPastHasNoneFromPictureToPicture)
{
    for (const char *chain : {"full", "temporal", "smaa-t2x", "exposure"}) {
        const QStringList common{
            stillLife, "--chain", chain, "--size", "64x48", "--samples", "6", "--camera", "eye=6,4,8"};
        render(common + QStringList{"--frames", "4", "--orbit", "40", "-o", folder.path("a{frame}.png")});
        render(common + QStringList{"--frames", "2", "--orbit", "120", "-o", folder.path("b{frame}.png")});
        EXPECT_EQ(expectPicture(folder.path("a3.png"), {64, 48}), expectPicture(folder.path("b1.png"), {64, 48}))
            << chain;
        EXPECT_NE(expectPicture(folder.path("a3.png"), {64, 48}), expectPicture(folder.path("a2.png"), {64, 48}))
            << chain;
    }
}

TEST_F(KvzPicturesTest, aModelThatCannotBeReadLeavesTheOthers)
{
    const QString bad = folder.write("bad.obj", "v 0 0 0\n");
    const QString good = folder.write("good.obj", cubeObj());
    const Result result =
        run({"render", folder.path("none.obj"), bad, good, "--size", "16x12", "-o", folder.path("{model}.png")});
    EXPECT_EQ(result.status, 1);
    ASSERT_EQ(result.errors.size(), 2);
    EXPECT_EQ(result.errors[0], "kvz: " + folder.path("none.obj: no such file"));
    EXPECT_TRUE(result.errors[1].startsWith("kvz: " + bad + ": "));
    expectPicture(folder.path("good.png"), {16, 12});
    EXPECT_FALSE(QFile::exists(folder.path("bad.png")));
}

TEST_F(KvzPicturesTest, capturesTakeThePlacesToo)
{
    render({stillLife, "--chain", "deferred", "--size", "32x24", "--camera", "front", "--camera", "top", "--capture",
        folder.path("c/{view}"), "-o", folder.path("{view}.png")});
    for (const char *view : {"front", "top"}) {
        EXPECT_EQ(QImage(folder.path(QStringLiteral("c/%1/02-geometry-Normal.png").arg(view))).size(), QSize(32, 24));
    }
    EXPECT_NE(
        QImage(folder.path("c/front/02-geometry-Normal.png")), QImage(folder.path("c/top/02-geometry-Normal.png")));
}

// Values of the chain.

TEST_F(KvzPicturesTest, valuesOfTheChainAreSet)
{
    const auto corner = [&](const QStringList &settings) {
        return picture(QStringList{stillLife} + settings, {32, 24}).pixelColor(0, 0);
    };
    const QColor usual = corner({});
    for (const char *red : {"red", "#ff0000", "\"#ff0000\"", "[1, 0, 0]"}) {
        const QColor set = corner({"--set", QStringLiteral("background.ColorTop=%1").arg(red), "--set",
            "background.Kvz_QColor_ColorBottom=red"});
        EXPECT_EQ(set, QColor(Qt::red)) << red;
    }
    EXPECT_NE(usual, QColor(Qt::red));
}

TEST_F(KvzPicturesTest, valuesThatDoNotFitAreRefusedWithARemedy)
{
    const auto refused = [&](const QString &setting, const QString &reason) {
        expectLine({"render", stillLife, "--set", setting, "-o", folder.path("out.png")}, 1,
            "--set " + setting + ": " + reason);
    };
    for (const char *form : {"red", "background=red", ".ColorTop=red", "ColorTop"})
        refused(form, "expected PASS.PORT=VALUE, such as background.ColorTop=red");
    refused("backgruond.ColorTop=red", "no pass \"backgruond\"; did you mean \"background\"?");
    refused("background.ColourTop=red", "no input \"ColourTop\" of GradientRenderPass; did you mean \"ColorTop\"?");
    refused("background.Viewport=[0,0,-5,10]",
        "expected a width and height of 1 or more, found [0,0,-5,10]; leave it out for the viewport of the frame");
    refused("background.Viewport=wide", "expected QRect: [x, y, width, height] in whole numbers, found \"wide\"");
    expectRefused({"render", stillLife, "--set", "background.ColorTop=rad", "-o", folder.path("out.png")}, 1,
        "--set background.ColorTop=rad: expected QColor", "found \"rad\"");
    EXPECT_EQ(folder.entries(), QStringList());
}

TEST_F(KvzPicturesTest, filesInValuesCountFromTheWorkingDirectory)
{
    QImage blue(8, 8, QImage::Format_RGB32);
    blue.fill(Qt::blue);
    ASSERT_TRUE(blue.save(folder.path("blue.png")));
    Kvz program;
    program.folder = folder.path(".");
    const Result result = program.run({"render", stillLife, "--chain", "skybox-panorama", "--size", "32x24", "--set",
        "panorama.TexturePath=blue.png", "-o", "out.png"});
    EXPECT_EQ(result.status, 0) << result.errors.join('\n').toStdString();
    EXPECT_EQ(result.errors, QStringList());
    EXPECT_EQ(expectPicture(folder.path("out.png"), {32, 24}).pixelColor(0, 0), QColor(Qt::blue));
}

} // namespace Velmora::Kvz
