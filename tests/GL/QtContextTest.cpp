// SPDX-License-Identifier: MIT
#include <GL/GLStatistics.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/TextureManager.h>

#include <QtGui/QOffscreenSurface>
#include <QtGui/QOpenGLContext>
#include <QtGui/QOpenGLFunctions>

#include <gtest/gtest.h>

namespace Velmora::Kvz {

namespace {

/// Contexts of Qt need a window system: ctest runs this program under a virtual X server.
class QtContextTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_surface.setFormat(format());
        m_surface.create();
        if (!makeCurrent(first))
            GTEST_SKIP() << "Qt's platform gives no OpenGL context here";
    }

    bool makeCurrent(QOpenGLContext &context, QOpenGLContext *shareWith = nullptr)
    {
        if (!context.isValid()) {
            context.setFormat(format());
            context.setShareContext(shareWith);
            if (!context.create())
                return false;
        }
        return context.makeCurrent(&m_surface);
    }

    QOpenGLContext first;

private:
    static QSurfaceFormat format()
    {
        QSurfaceFormat format;
        format.setVersion(3, 2);
        format.setProfile(QSurfaceFormat::CoreProfile);
        return format;
    }

    QOffscreenSurface m_surface;
};

} // namespace

TEST_F(QtContextTest, isKnownByItsObject)
{
    EXPECT_EQ(OpenGLDeviceContext::currentHandle(), &first);
    ASSERT_NE(OpenGLDeviceContext::current(), nullptr);
    EXPECT_EQ(OpenGLDeviceContext::current(), OpenGLDeviceContext::current());
    first.doneCurrent();
    EXPECT_EQ(OpenGLDeviceContext::currentHandle(), nullptr);
    EXPECT_EQ(OpenGLDeviceContext::current(), nullptr);
}

TEST_F(QtContextTest, sharesOneManagerInItsShareGroup)
{
    TextureManager *const manager = TextureManager::Instance();
    const auto device = OpenGLDeviceContext::current();
    QOpenGLContext sharer;
    ASSERT_TRUE(makeCurrent(sharer, &first));
    EXPECT_EQ(TextureManager::Instance(), manager);
    EXPECT_NE(OpenGLDeviceContext::current(), device);
    QOpenGLContext stranger;
    ASSERT_TRUE(makeCurrent(stranger));
    EXPECT_NE(TextureManager::Instance(), manager);
}

TEST_F(QtContextTest, takesItsObjectsAlong)
{
    const GLObjectCounts before = glObjectCounts();
    auto texture = std::make_unique<Texture>(GL_TEXTURE_2D, GL_RGBA8, 2, 2, 0, nullptr);
    {
        QOpenGLContext other;
        ASSERT_TRUE(makeCurrent(other));
        TextureManager::Instance()->tempTexture(TextureFormat::LowDynamicRange, 4, 4, 1, 1);
        OpenGLDeviceContext::current()->createScreenQuad();
        EXPECT_NE(texture->textureID(), 0u);
        // Ends while it is current.
    }
    texture.reset();
    EXPECT_TRUE(glObjectCounts() == before);
    {
        QOpenGLContext other;
        ASSERT_TRUE(makeCurrent(other));
        TextureManager::Instance()->tempTexture(TextureFormat::LowDynamicRange, 4, 4, 1, 1);
        OpenGLDeviceContext::current()->createScreenQuad();
        ASSERT_TRUE(makeCurrent(first));
        // Ends while another context is current.
    }
    EXPECT_EQ(QOpenGLContext::currentContext(), &first);
    EXPECT_TRUE(glObjectCounts() == before);
    EXPECT_EQ(first.functions()->glGetError(), GLenum(GL_NO_ERROR));
}

TEST_F(QtContextTest, leavesAReusedHandleClean)
{
    for (int i = 0; i < 5; ++i) {
        QOpenGLContext other;
        ASSERT_TRUE(makeCurrent(other));
        ASSERT_TRUE(TextureManager::Instance()->pooledTextures().isEmpty());
        TextureManager::Instance()->tempTexture(TextureFormat::LowDynamicRange, 4, 4, 1, 1);
    }
}

} // namespace Velmora::Kvz
