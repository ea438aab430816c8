// SPDX-License-Identifier: MIT
#include "support/GLTest.h"

#include <GL/GLStatistics.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/Texture.h>
#include <GL/TextureManager.h>

#include <QtCore/QDateTime>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

using HeadlessContextTest = GLTest;

} // namespace

TEST_F(HeadlessContextTest, givesACoreContextOfAtLeastThreeTwo)
{
    EXPECT_TRUE(context().isCurrent());
    EXPECT_GE(epoxy_gl_version(), 32);
    GLint profile = 0;
    glGetIntegerv(GL_CONTEXT_PROFILE_MASK, &profile);
    EXPECT_EQ(profile, GL_CONTEXT_CORE_PROFILE_BIT);
    EXPECT_FALSE(context().renderer().isEmpty());
    EXPECT_FALSE(context().version().isEmpty());
    EXPECT_TRUE(QStringList({"surfaceless", "display", "device"}).contains(context().platform()));
}

TEST_F(HeadlessContextTest, givesTheVersionThatIsAskedFor)
{
    HeadlessContext::Options options;
    options.majorVersion = 3;
    options.minorVersion = 2;
    QString error;
    const auto older = HeadlessContext::create(options, &error);
    ASSERT_NE(older, nullptr) << qPrintable(error);
    EXPECT_TRUE(older->isCurrent());
    EXPECT_GE(epoxy_gl_version(), 32);
}

TEST_F(HeadlessContextTest, saysWhyThereIsNoSuchContext)
{
    HeadlessContext::Options options;
    options.majorVersion = 9;
    options.minorVersion = 7;
    QString error;
    EXPECT_EQ(HeadlessContext::create(options, &error), nullptr);
    EXPECT_TRUE(error.contains("9.7")) << qPrintable(error);
    EXPECT_FALSE(error.contains('\n'));
    EXPECT_EQ(HeadlessContext::create(options), nullptr); // The error string is optional.
    EXPECT_TRUE(context().isCurrent());
}

TEST_F(HeadlessContextTest, bringsBackTheContextThatWasCurrent)
{
    auto other = HeadlessContext::create();
    ASSERT_NE(other, nullptr);
    EXPECT_TRUE(other->isCurrent());
    EXPECT_FALSE(context().isCurrent());
    ASSERT_TRUE(context().makeCurrent());
    other.reset();
    EXPECT_TRUE(context().isCurrent());

    other = HeadlessContext::create();
    other.reset();
    EXPECT_EQ(OpenGLDeviceContext::currentHandle(), nullptr);
}

TEST_F(HeadlessContextTest, announcesItsEnd)
{
    const GLObjectCounts before = glObjectCounts();
    auto other = HeadlessContext::create();
    TextureManager::Instance()->tempTexture(TextureFormat::LowDynamicRange, 4, 4, 1, 1);
    TextureManager::Instance()->colorTexture(Qt::red);
    OpenGLDeviceContext::current()->createScreenQuad();
    EXPECT_FALSE(glObjectCounts() == before);
    other.reset();
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(HeadlessContextTest, sharesObjects)
{
    Texture texture(GL_TEXTURE_2D, GL_RGBA8, 2, 2, 0, nullptr);
    const GLuint name = texture.textureID();
    HeadlessContext::Options options;
    options.shareWith = &context();
    const auto sharer = HeadlessContext::create(options);
    ASSERT_NE(sharer, nullptr);
    EXPECT_TRUE(sharer->isCurrent());
    EXPECT_TRUE(glIsTexture(name));
    const auto stranger = HeadlessContext::create();
    EXPECT_FALSE(glIsTexture(name));
}

TEST_F(HeadlessContextTest, logsWhatTheDriverSays)
{
    if (epoxy_gl_version() < 43 && !epoxy_has_gl_extension("GL_KHR_debug"))
        GTEST_SKIP() << "this driver reports no messages";
    glEnable(0xffff);
    EXPECT_EQ(glGetError(), GLenum(GL_INVALID_ENUM));
    const QVector<LogCapture::Message> messages = log.messages();
    ASSERT_EQ(messages.size(), 1);
    EXPECT_EQ(messages[0].category, "kvz.gl");
    EXPECT_EQ(messages[0].type, QtCriticalMsg);
    log.clear();

    glDebugMessageInsert(GL_DEBUG_SOURCE_APPLICATION, GL_DEBUG_TYPE_OTHER, 1, GL_DEBUG_SEVERITY_MEDIUM, -1, "middling");
    glDebugMessageInsert(
        GL_DEBUG_SOURCE_APPLICATION, GL_DEBUG_TYPE_OTHER, 2, GL_DEBUG_SEVERITY_NOTIFICATION, -1, "aside");
    const QStringList warnings = log.takeWarnings();
    ASSERT_EQ(warnings.size(), 1);
    EXPECT_TRUE(warnings[0].contains("middling"));
    EXPECT_TRUE(log.takeDebug().join('\n').contains("aside"));

    glPushDebugGroup(GL_DEBUG_SOURCE_APPLICATION, 3, -1, "a group");
    glPopDebugGroup();
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(HeadlessContextTest, theShaderCompilersWarningsAreNotWarnings)
{
    if (epoxy_gl_version() < 43 && !epoxy_has_gl_extension("GL_KHR_debug"))
        GTEST_SKIP() << "this driver reports no messages";
    // The text must be new to every shader cache: a compiler that does not run gives no warnings.
    const QByteArray unique = QByteArray::number(QDateTime::currentMSecsSinceEpoch());
    const auto compile = [&unique](const QByteArray &line) {
        const QByteArray source = "#version 150\n" + line + "\n// " + unique + "\nvoid main() {}\n";
        const char *const text = source.constData();
        const GLuint shader = glCreateShader(GL_VERTEX_SHADER);
        glShaderSource(shader, 1, &text, nullptr);
        glCompileShader(shader);
        char words[500] = "";
        glGetShaderInfoLog(shader, sizeof(words), nullptr, words);
        glDeleteShader(shader);
        return QByteArray(words);
    };
    // Counts the messages with this word, all of which must be of that type.
    const auto takeMessages = [this](const QString &word, QtMsgType type) {
        int count = 0;
        for (const LogCapture::Message &message : log.messages()) {
            EXPECT_EQ(message.type, type) << qPrintable(message.text);
            count += message.category == "kvz.gl" && message.text.contains(word) ? 1 : 0;
        }
        log.clear();
        return count;
    };
    EXPECT_TRUE(compile("#extension GL_KVZ_nothing : enable").contains("GL_KVZ_nothing"));
    const int warnings = takeMessages("GL_KVZ_nothing", QtDebugMsg);
    EXPECT_TRUE(compile("float nonsense() { return undeclared; }").contains("undeclared"));
    const int errors = takeMessages("undeclared", QtCriticalMsg);
    // Drivers need not report messages of their compilers; Mesa does.
    if (!context().version().contains("Mesa") && (warnings == 0 || errors == 0))
        GTEST_SKIP() << "this driver reports no messages of its compiler";
    EXPECT_GT(warnings, 0);
    EXPECT_GT(errors, 0);
}

} // namespace Velmora::Kvz
