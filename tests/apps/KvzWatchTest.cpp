// SPDX-License-Identifier: MIT
// `kvz render` with shaders of the user's own, and with --watch while they are edited.
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QProcess>
#include <QtGui/QImage>

#include <gtest/gtest.h>

#include <csignal>

namespace Velmora::Kvz {

namespace {

constexpr int patience = 60000; // milliseconds, for a busy machine

/// A fragment stage that writes one colour, on line 6.
QByteArray shaderOf(const QByteArray &colour)
{
    return "#version 150\nout vec4 o_Frame;\n\nvoid main()\n{\n    o_Frame = " + colour + ";\n}\n";
}

const QByteArray red = "vec4(1.0, 0.0, 0.0, 1.0)";
const QByteArray green = "vec4(0.0, 1.0, 0.0, 1.0)";
const QByteArray blue = "vec4(0.0, 0.0, 1.0, 1.0)";

} // namespace

class KvzWatchTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        model = folder.write("model.obj", cubeObj());
        shader = folder.write("colour.frag", shaderOf(red));
        chain = folder.write("chain.json", R"({"passes": [
            {"name": "fill", "class": "ShaderRenderPass", "options": {
                "fragment": "colour.frag", "outputs": [{"name": "Kvz_KvzTexture*_Frame"}]}},
            {"name": "screen", "class": "TextureToScreenRenderPass",
                "connections": {"Kvz_KvzTexture*_Texture": "fill.Kvz_KvzTexture*_Frame"}}]})");
        picture = folder.path("out.png");
        kvz.setProcessChannelMode(QProcess::SeparateChannels);
    }

    void TearDown() override
    {
        if (kvz.state() != QProcess::NotRunning) {
            kvz.kill();
            kvz.waitForFinished();
        }
    }

    void start(const QStringList &more = {})
    {
        kvz.start(QStringLiteral(KVZ_PROGRAM),
            QStringList{"render", model, "--chain", chain, "--size", "16x8", "-o", picture} + more);
        ASSERT_TRUE(kvz.waitForStarted());
    }

    /// Waits for a line of the output; false when the program ended or it took too long.
    bool waitForOutput(const QString &part) { return waitFor(QProcess::StandardOutput, part, &output); }
    bool waitForError(const QString &part) { return waitFor(QProcess::StandardError, part, &errors); }

    bool waitFor(QProcess::ProcessChannel channel, const QString &part, QString *seen)
    {
        QElapsedTimer timer;
        timer.start();
        seen->clear();
        while (timer.elapsed() < patience) {
            kvz.waitForReadyRead(50);
            kvz.setReadChannel(channel);
            *seen += QString::fromUtf8(
                channel == QProcess::StandardOutput ? kvz.readAllStandardOutput() : kvz.readAllStandardError());
            if (seen->contains(part))
                return true;
            if (kvz.state() == QProcess::NotRunning)
                return false;
        }
        return false;
    }

    /// The one colour of the picture; invalid when it has several.
    QColor colour() const
    {
        const QImage image(picture);
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                if (image.pixel(x, y) != image.pixel(0, 0))
                    return {};
            }
        }
        return image.size() == QSize(16, 8) ? image.pixelColor(0, 0) : QColor();
    }

    /// Replaces the file by a new one, as editors do.
    void replaceShader(const QByteArray &content)
    {
        const QString fresh = folder.write("colour.frag.new", content);
        ASSERT_EQ(std::rename(fresh.toLocal8Bit().constData(), shader.toLocal8Bit().constData()), 0);
    }

    void finish(int signal)
    {
        ASSERT_EQ(kvz.state(), QProcess::Running);
        ::kill(pid_t(kvz.processId()), signal);
        ASSERT_TRUE(kvz.waitForFinished(patience));
        EXPECT_EQ(kvz.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(kvz.exitCode(), 0);
    }

    TemporaryFolder folder;
    QString model;
    QString shader;
    QString chain;
    QString picture;
    QProcess kvz;
    QString output;
    QString errors;
};

TEST_F(KvzWatchTest, aShaderOfTheUsersOwnIsRendered)
{
    start();
    ASSERT_TRUE(kvz.waitForFinished(patience));
    EXPECT_EQ(kvz.exitCode(), 0) << kvz.readAllStandardError().constData();
    EXPECT_EQ(colour(), QColor(Qt::red));
}

TEST_F(KvzWatchTest, aShaderThatDoesNotCompileIsToldWithFileAndLine)
{
    folder.write("colour.frag", shaderOf("nowhere"));
    folder.write("out.png", "the old picture");
    start();
    ASSERT_TRUE(kvz.waitForFinished(patience));
    EXPECT_EQ(kvz.exitCode(), 1);
    const QStringList lines = QString::fromUtf8(kvz.readAllStandardError()).split('\n');
    ASSERT_GE(lines.size(), 2);
    EXPECT_EQ(lines[0].toStdString(),
        QStringLiteral("kvz: %1: pass \"fill\": its shaders do not compile:").arg(chain).toStdString());
    EXPECT_TRUE(lines[1].startsWith(shader + ":6: ")) << lines[1].toStdString();
    EXPECT_TRUE(lines[1].contains("nowhere")) << lines[1].toStdString();
    EXPECT_EQ(folder.read("out.png"), "the old picture");
    EXPECT_EQ(kvz.readAllStandardOutput(), QByteArray());
}

TEST_F(KvzWatchTest, aMissingShaderFileIsToldInOneLine)
{
    QFile::remove(shader);
    start();
    ASSERT_TRUE(kvz.waitForFinished(patience));
    EXPECT_EQ(kvz.exitCode(), 1);
    const QString line = QString::fromUtf8(kvz.readAllStandardError());
    EXPECT_EQ(line.count('\n'), 1) << line.toStdString();
    EXPECT_TRUE(line.contains("fragment: expected a shader file, found \"" + shader + "\", which is not there"))
        << line.toStdString();

    kvz.start(QStringLiteral(KVZ_PROGRAM), {"check", chain});
    ASSERT_TRUE(kvz.waitForFinished(patience));
    EXPECT_EQ(kvz.exitCode(), 1);
    EXPECT_TRUE(kvz.readAllStandardOutput().contains(shader.toUtf8()));
}

TEST_F(KvzWatchTest, editsAreRenderedAndBrokenOnesKeepThePicture)
{
    start({"--watch"});
    ASSERT_TRUE(waitForOutput("out.png: rendered; watching " + shader)) << errors.toStdString();
    EXPECT_EQ(colour(), QColor(Qt::red));

    replaceShader(shaderOf(green));
    ASSERT_TRUE(waitForOutput("out.png: rendered"));
    EXPECT_EQ(colour(), QColor(Qt::green));

    replaceShader(shaderOf("nowhere"));
    ASSERT_TRUE(waitForError("nowhere")) << errors.toStdString();
    EXPECT_TRUE(errors.contains("pass \"fill\": its shaders do not compile:\n" + shader + ":6: "))
        << errors.toStdString();
    EXPECT_EQ(colour(), QColor(Qt::green));

    // The same mistake is reported again.
    replaceShader(shaderOf("nowhere "));
    ASSERT_TRUE(waitForError("nowhere"));
    EXPECT_EQ(colour(), QColor(Qt::green));

    QFile::remove(shader);
    ASSERT_TRUE(waitForError("No such file")) << errors.toStdString();
    EXPECT_EQ(colour(), QColor(Qt::green));

    // Corrected in place, not by replacing the file.
    folder.write("colour.frag", shaderOf(blue));
    ASSERT_TRUE(waitForOutput("out.png: rendered"));
    EXPECT_EQ(colour(), QColor(Qt::blue));
    finish(SIGINT);
}

TEST_F(KvzWatchTest, includedFilesAreWatchedToo)
{
    folder.write("colour.frag", "#version 150\n#include \"colours.glslh\"\n" + shaderOf("chosen").mid(13));
    folder.write("colours.glslh", "const vec4 chosen = " + red + ";\n");
    start({"--watch"});
    ASSERT_TRUE(waitForOutput("rendered"));
    EXPECT_EQ(colour(), QColor(Qt::red));
    folder.write("colours.glslh", "const vec4 chosen = " + green + ";\n");
    ASSERT_TRUE(waitForOutput("rendered"));
    EXPECT_EQ(colour(), QColor(Qt::green));

    // A file that an edit includes is watched from then on.
    folder.write("more.glslh", "const vec4 other = " + blue + ";\n");
    folder.write("colour.frag", "#version 150\n#include \"more.glslh\"\n" + shaderOf("other").mid(13));
    ASSERT_TRUE(waitForOutput("rendered"));
    EXPECT_EQ(colour(), QColor(Qt::blue));
    folder.write("more.glslh", "const vec4 other = " + red + "; // again\n");
    ASSERT_TRUE(waitForOutput("rendered"));
    EXPECT_EQ(colour(), QColor(Qt::red));
    finish(SIGTERM);
}

TEST_F(KvzWatchTest, thereIsNothingToWatchWithoutShaderFiles)
{
    chain = QStringLiteral("deferred");
    start({"--watch"});
    ASSERT_TRUE(kvz.waitForFinished(patience));
    EXPECT_EQ(kvz.exitCode(), 1);
    EXPECT_EQ(kvz.readAllStandardError(), QByteArray("kvz: --watch: the chain deferred has no shader files\n"));
    EXPECT_FALSE(QFile::exists(picture));
}

} // namespace Velmora::Kvz
