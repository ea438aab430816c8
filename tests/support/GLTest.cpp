// SPDX-License-Identifier: MIT
#include "GLTest.h"

#include <GL/OpenGLDeviceContext.h>
#include <GL/ProgramFailures.h>
#include <GL/TextureManager.h>

#include <QtCore/QCoreApplication>

#include <epoxy/gl.h>

#include <ostream>

namespace Velmora::Kvz {

HeadlessContext &GLTest::context()
{
    static std::unique_ptr<HeadlessContext> context;
    if (!context) {
        QString error;
        context = HeadlessContext::create(&error);
        if (!context) {
            std::fprintf(stderr, "no OpenGL context: %s\n", qPrintable(error));
            std::abort();
        }
        // Deleted with the application, while Qt's thread data still exists.
        qAddPostRoutine([] { context.reset(); });
    }
    return *context;
}

GLTest::~GLTest()
{
    context().makeCurrent();
    for (const TextureManager::PooledTexture &pooled : TextureManager::Instance()->pooledTextures()) {
        if (pooled.references == 0)
            continue;
        ADD_FAILURE() << "the test left " << pooled.references << " reference(s) to a texture of the pool, "
                      << pooled.width << " by " << pooled.height << ", format " << int(pooled.format);
        // So that later tests do not fail because of it.
        TextureManager::Instance()->releaseTempTextureRef(const_cast<Texture *>(pooled.texture), pooled.references);
    }
}

void GLTest::SetUp()
{
    context().makeCurrent();
    takeProgramFailures(); // Those of earlier tests.
    log.clear();
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glUseProgram(0);
    glBindVertexArray(0);
    glActiveTexture(GL_TEXTURE0);
    for (GLenum capability :
        {GL_DEPTH_TEST, GL_STENCIL_TEST, GL_BLEND, GL_CULL_FACE, GL_SCISSOR_TEST, GL_DEPTH_CLAMP, GL_FRAMEBUFFER_SRGB})
        glDisable(capability);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glDepthMask(GL_TRUE);
    glStencilMask(0xff);
    glStencilFunc(GL_ALWAYS, 0, 0xff);
    glStencilOp(GL_KEEP, GL_KEEP, GL_KEEP);
    glDepthFunc(GL_LESS);
    glBlendEquation(GL_FUNC_ADD);
    glBlendFunc(GL_ONE, GL_ZERO);
    glCullFace(GL_BACK);
    glFrontFace(GL_CCW);
    glClearColor(0, 0, 0, 0);
    glClearDepth(1);
    glClearStencil(0);
}

void GLTest::TearDown()
{
    context().makeCurrent();
    const GLenum error = glGetError();
    EXPECT_EQ(error, GLenum(GL_NO_ERROR)) << "the test left a GL error";
    for (const LogCapture::Message &message : log.messages()) {
        if (message.type == QtWarningMsg || message.type == QtCriticalMsg)
            ADD_FAILURE() << "a log line that the test did not expect: " << qPrintable(message.text);
    }
}

QVector<unsigned int> GLTest::takeGLErrors()
{
    QVector<unsigned int> errors;
    for (GLenum error = glGetError(); error != GL_NO_ERROR && errors.size() < 64; error = glGetError())
        errors.append(error);
    log.takeCategory(QStringLiteral("kvz.gl"));
    return errors;
}

int glInteger(unsigned int name)
{
    GLint value[4] = {};
    glGetIntegerv(name, value);
    return value[0];
}

bool glFlag(unsigned int name)
{
    return glIsEnabled(name) == GL_TRUE;
}

} // namespace Velmora::Kvz

void PrintTo(const QString &text, std::ostream *stream)
{
    *stream << '"' << qPrintable(text) << '"';
}
