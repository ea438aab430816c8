// SPDX-License-Identifier: MIT
// The program in scripts and services: what goes to which stream, with and without a terminal.
#include "KvzRun.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QRegularExpression>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

namespace Velmora::Kvz {

namespace {

const QString stillLife = QStringLiteral(KVZ_SOURCE_DIR "/Media/Models/still-life.obj");

/// A pseudo-terminal, which keeps what is written to it until it is read.
class PseudoTerminal
{
public:
    PseudoTerminal()
        : m_master(posix_openpt(O_RDWR | O_NOCTTY))
    {
        if (m_master < 0 || grantpt(m_master) != 0 || unlockpt(m_master) != 0)
            qFatal("no pseudo-terminal");
        m_slave = open(ptsname(m_master), O_RDWR | O_NOCTTY); // Keeps what was written until it is read.
    }
    ~PseudoTerminal()
    {
        close(m_slave);
        close(m_master);
    }
    Q_DISABLE_COPY(PseudoTerminal)

    QString name() const { return ptsname(m_master); }
    /// What was written since the last call.
    QByteArray take()
    {
        QByteArray shown(100000, '\0');
        fcntl(m_master, F_SETFL, O_NONBLOCK);
        shown.resize(int(std::max<ssize_t>(0, read(m_master, shown.data(), size_t(shown.size())))));
        return shown;
    }

private:
    int m_master;
    int m_slave;
};

QVector<QJsonObject> jsonLines(const QString &output)
{
    QVector<QJsonObject> objects;
    for (const QString &line : linesOf(output)) {
        QJsonParseError error;
        objects.append(QJsonDocument::fromJson(line.toUtf8(), &error).object());
        EXPECT_EQ(error.error, QJsonParseError::NoError) << line.toStdString();
    }
    return objects;
}

class KvzScriptsTest : public ::testing::Test
{
protected:
    /// A model that causes a warning.
    QString warningModel()
    {
        folder.write("a.mtl", "newmtl one\nKd 1 1 1\nmap_Kd gone.png\n");
        return folder.write("a.obj", "mtllib a.mtl\nusemtl one\n" + cubeObj());
    }

    TemporaryFolder folder;
};

} // namespace

TEST_F(KvzScriptsTest, quietPrintsErrorsAlone)
{
    const QString model = warningModel();
    const QStringList render{"render", model, "--size", "16x12", "-o", folder.path("out.png")};
    EXPECT_EQ(run(render).errors.size(), 1);
    const Result quiet = run(render + QStringList{"--quiet"});
    EXPECT_EQ(quiet.status, 0);
    EXPECT_EQ(quiet.errors, QStringList());
    EXPECT_EQ(quiet.output, QString());
    expectPicture(folder.path("out.png"), {16, 12});
    expectLine({"render", folder.path("none.obj"), "--quiet", "-o", folder.path("out.png")}, 1,
        folder.path("none.obj: no such file"));
    // On a terminal too.
    PseudoTerminal terminal;
    Kvz program;
    program.terminal = terminal.name();
    EXPECT_EQ(program.run(render + QStringList{"--quiet", "--samples", "5"}).status, 0);
    EXPECT_EQ(terminal.take(), QByteArray());
}

TEST_F(KvzScriptsTest, jsonIsALineForEachPicture)
{
    const QString model = warningModel();
    const QString name = folder.path("{model}-{view}-{frame}.png");
    const Result result = run({"render", stillLife, model, "--chain", "deferred", "--camera", "front", "--camera",
        "top:fov=20", "--frames", "2", "--orbit", "30", "--samples", "3", "--size", "24x16", "--json", "-o", name});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors.size(), 1) << "the warning, for people";
    const QVector<QJsonObject> lines = jsonLines(result.output);
    ASSERT_EQ(lines.size(), 8);
    for (int i = 0; i < 8; ++i) {
        const QJsonObject &line = lines[i];
        EXPECT_EQ(line["model"].toString(), i < 4 ? stillLife : model);
        EXPECT_EQ(line["view"].toString(), QString(i % 4 < 2 ? "front" : "top:fov=20"));
        EXPECT_EQ(line["frame"].toInt(-1), i % 2);
        EXPECT_EQ(line["width"].toInt(), 24);
        EXPECT_EQ(line["height"].toInt(), 16);
        EXPECT_EQ(line["samples"].toInt(), 3);
        EXPECT_EQ(line["chain"].toString(), "deferred");
        EXPECT_FALSE(line["renderer"].toString().isEmpty());
        EXPECT_FALSE(line.contains("passes"));
        expectPicture(line["file"].toString(), {24, 16});
        const QJsonObject times = line["milliseconds"].toObject();
        EXPECT_EQ(times.keys(), (QStringList{"draw", "load", "upload", "write"}));
        EXPECT_GT(times["draw"].toDouble(), 0);
        EXPECT_GT(times["write"].toDouble(), 0);
        EXPECT_EQ(times["load"].toDouble() > 0, i % 4 == 0) << "once for each model";
        const QStringList warnings = line["warnings"].toVariant().toStringList();
        EXPECT_EQ(warnings.size(), i < 4 ? 0 : 1) << "those of its own model";
        if (i >= 4) {
            EXPECT_TRUE(warnings[0].startsWith(model + ": material \"one\": texture \"gone.png\""))
                << warnings[0].toStdString();
        }
    }
}

TEST_F(KvzScriptsTest, jsonHasThePassesWhereTheyAreTimed)
{
    const Result result = run({"render", stillLife, "--chain", "deferred", "--size", "16x12", "--samples", "3",
        "--json", "--timings", "-o", folder.path("out.png")});
    EXPECT_EQ(result.status, 0);
    const QVector<QJsonObject> lines = jsonLines(result.output);
    ASSERT_EQ(lines.size(), 1);
    const QJsonArray passes = lines[0]["passes"].toArray();
    ASSERT_EQ(passes.size(), 6);
    EXPECT_EQ(passes[0].toObject()["pass"].toString(), "background");
    for (const QJsonValue &pass : passes) {
        EXPECT_EQ(pass.toObject()["cpu"].toDouble() > 0, !pass.toObject()["rests"].toBool());
        EXPECT_TRUE(pass.toObject()["gpu"].isDouble() || pass.toObject()["gpu"].isNull());
    }
}

TEST_F(KvzScriptsTest, errorsStayOnStandardErrorWithJson)
{
    const Result result = run(
        {"render", folder.path("none.obj"), stillLife, "--size", "16x12", "--json", "-o", folder.path("{model}.png")});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, QStringList("kvz: " + folder.path("none.obj: no such file")));
    EXPECT_EQ(jsonLines(result.output).size(), 1);
}

TEST_F(KvzScriptsTest, timingsOfSeveralPicturesAreOneTable)
{
    const Result result = run({"render", stillLife, "--chain", "deferred", "--size", "16x12", "--frames", "3",
        "--orbit", "9", "--timings", "-o", folder.path("{frame}.png")});
    EXPECT_EQ(result.status, 0);
    const QStringList lines = linesOf(result.output);
    ASSERT_EQ(lines.size(), 3 + 6 + 1) << result.output.toStdString();
    EXPECT_EQ(lines[1], "median of 2 frames, after one in which programs were built");
}

// Standard input and output.

TEST_F(KvzScriptsTest, modelsComeFromStandardInput)
{
    Kvz program;
    program.input = folder.write("cube.bin", cubeObj());
    for (const char *format : {"obj", ".obj", "OBJ"}) {
        const Result result =
            program.run({"render", "-", "--format", format, "--size", "32x24", "-o", folder.path("{model}.png")});
        EXPECT_EQ(result.status, 0) << result.errors.join('\n').toStdString();
        EXPECT_EQ(result.errors, QStringList());
    }
    const QImage image = expectPicture(folder.path("stdin.png"), {32, 24});
    run({"render", folder.write("cube.obj", cubeObj()), "--size", "32x24", "-o", folder.path("file.png")});
    EXPECT_EQ(image, expectPicture(folder.path("file.png"), {32, 24}));
}

TEST_F(KvzScriptsTest, whatComesFromStandardInputIsNamedSo)
{
    Kvz program;
    program.input = folder.write("a.bin", "mtllib a.mtl\nusemtl one\n" + cubeObj());
    const QString out = folder.path("out.png");
    const QStringList render{"render", "-", "--size", "16x12", "-o", out};
    const Result result = program.run(render + QStringList{"--format", "obj"});
    EXPECT_EQ(result.status, 0);
    ASSERT_EQ(result.errors.size(), 1);
    EXPECT_TRUE(result.errors[0].startsWith("kvz: warning: standard input: ")) << result.errors[0].toStdString();
    EXPECT_FALSE(result.errors[0].contains("/tmp")) << result.errors[0].toStdString();

    program.input = folder.write("b.bin", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 9\n");
    expectLine(render + QStringList{"--format", "obj"}, 1,
        "standard input: line 4: a face has vertex 9, past the end of 3", program);
    program.input = QString();
    expectLine(render + QStringList{"--format", "obj"}, 1, "standard input: it is empty", program);
    expectLine(
        render, 2, "standard input has no name that tells its type; add --format SUFFIX (see kvz render --help)");
    expectLine({"render", stillLife, "--format", "obj", "-o", out}, 2,
        "--format is for a model from standard input, - (see kvz render --help)");
    expectLine({"render", "-", "-", "--format", "obj", "-o", out}, 2,
        "standard input holds one model, not 2 (see kvz render --help)");
}

TEST_F(KvzScriptsTest, picturesGoToStandardOutput)
{
    Kvz program;
    program.outputFile = folder.path("piped.png");
    const Result result = program.run({"render", warningModel(), "--size", "32x24", "-o", "-"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors.size(), 1) << "the warning, on its own stream";
    run({"render", folder.path("a.obj"), "--size", "32x24", "-o", folder.path("file.png")});
    EXPECT_EQ(folder.read("piped.png"), folder.read("file.png"));

    for (const char *other : {"--json", "--timings", "--watch"}) {
        expectLine({"render", stillLife, "-o", "-", other}, 2,
            QStringLiteral("-o - and %1 both want standard output (see kvz render --help)").arg(other));
    }
    expectLine({"render", stillLife, "--camera", "top", "--camera", "front", "-o", "-"}, 1,
        "-o -: 2 pictures need names of their own; put {view} into it");
    PseudoTerminal terminal;
    program.outputFile = terminal.name();
    expectLine({"render", stillLife, "-o", "-"}, 2,
        "-o -: standard output is a terminal; send it into a file or a program (see kvz render --help)", program);
    EXPECT_EQ(terminal.take(), QByteArray());
}

TEST_F(KvzScriptsTest, aTerminalIsNoModel)
{
    PseudoTerminal terminal;
    Kvz program;
    program.input = terminal.name();
    expectRefused({"render", "-", "--format", "obj", "-o", folder.path("out.png")}, 1, "standard input is a terminal; ",
        "kvz render -", program);
}

// Progress.

TEST_F(KvzScriptsTest, progressOfReadingAndDrawingIsShownOnATerminal)
{
    PseudoTerminal terminal;
    Kvz program;
    program.terminal = terminal.name();
    const QString model = warningModel();
    const Result result = program.run({"render", model, "--chain", "deferred", "--size", "16x12", "--frames", "4",
        "--orbit", "9", "--samples", "2", "--json", "-o", folder.path("{frame}.png")});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(jsonLines(result.output).size(), 4) << "on the other stream, untouched";
    const QByteArray shown = terminal.take();
    EXPECT_TRUE(shown.startsWith("reading " + model.toUtf8())) << shown.constData();
    // A warning replaces the progress text and has a line of its own.
    EXPECT_TRUE(shown.contains("\r\033[Kkvz: warning: " + model.toUtf8())) << shown.constData();
    EXPECT_TRUE(shown.contains("] picture 1 of 4")) << shown.constData();
    EXPECT_TRUE(shown.contains("[########################################] picture 4 of 4\r\033[K"))
        << shown.constData();
    EXPECT_TRUE(shown.endsWith("\r\033[K")) << "all of it is wiped";
    EXPECT_EQ(shown.count('\n'), 1);

    program.environment.insert("TERM", "dumb");
    EXPECT_EQ(program
                  .run({"render", stillLife, "--chain", "deferred", "--size", "16x12", "--samples", "9", "-o",
                      folder.path("out.png")})
                  .status,
        0);
    EXPECT_EQ(terminal.take(), QByteArray()) << "a terminal that cannot wipe a line";
}

TEST_F(KvzScriptsTest, readingSaysHowFarItIs)
{
    PseudoTerminal terminal;
    Kvz program;
    program.terminal = terminal.name();
    folder.write("a.png", pngBytes(plainImage(8, 4, Qt::white)));
    folder.write("a.mtl", "newmtl one\nKd 1 1 1\nmap_Kd a.png\n");
    const QString model =
        folder.write("a.obj", "mtllib a.mtl\nusemtl one\no first\n" + cubeObj() + "o second\nf 1 2 3\n");
    for (const QStringList &command :
        {QStringList{"render", model, "--size", "16x12", "-o", folder.path("out.png")}, QStringList{"info", model}}) {
        const Result result = program.run(command);
        EXPECT_EQ(result.status, 0);
        const QByteArray shown = terminal.take();
        const QByteArray reading = "\r\033[Kreading " + model.toUtf8() + ", ";
        EXPECT_TRUE(shown.contains(reading.mid(4))) << shown.constData();
        EXPECT_TRUE(QString::fromUtf8(shown).contains(QRegularExpression("bytes: \\d+ %\r"))) << shown.constData();
        EXPECT_TRUE(shown.contains("bytes: mesh 1 of 2\r")) << shown.constData();
        EXPECT_TRUE(shown.contains("bytes: image 1\r")) << shown.constData();
        EXPECT_TRUE(shown.endsWith("\r\033[K")) << "all of it is wiped";
        EXPECT_EQ(shown.count('\n'), 0);
    }
}

} // namespace Velmora::Kvz
