// SPDX-License-Identifier: MIT
// Qt's contexts need a window system: ctest runs this program under a virtual X server.
#include "FakePasses.h"
#include "support/LogCapture.h"

#include <Chain/RenderChain.h>
#include <GL/GLStatistics.h>
#include <Host/DriverMessages.h>

#include <QtGui/QOffscreenSurface>
#include <QtGui/QOpenGLContext>

#include <epoxy/gl.h>
#include <gtest/gtest.h>

namespace Velmora::Kvz {

TEST(RenderChainQtContextTest, theChainFollowsTheContextsOfAWidget)
{
    QSurfaceFormat format;
    format.setVersion(3, 2);
    format.setProfile(QSurfaceFormat::CoreProfile);
    QOffscreenSurface surface;
    surface.setFormat(format);
    surface.create();
    const auto makeContext = [&] {
        auto context = std::make_unique<QOpenGLContext>();
        context->setFormat(format);
        const bool isCurrent = context->create() && context->makeCurrent(&surface);
        return isCurrent ? std::move(context) : nullptr;
    };
    auto context = makeContext();
    if (!context)
        GTEST_SKIP() << "Qt's platform gives no OpenGL context here";

    const GLObjectCounts before = glObjectCounts();
    QStringList calls;
    PassRegistry registry;
    registry.add(fakeClass("Fake", {}, {}, {}, [&](const QString &call, FakePass &) { calls.append(call); }));
    registry.add(*PassRegistry::standard().find(QStringLiteral("GradientRenderPass")));
    ChainDescription description;
    for (const char *name : {"GradientRenderPass", "Fake"}) {
        ChainPass pass;
        pass.name = pass.className = QString::fromUtf8(name);
        description.passes.append(pass);
    }
    RenderChain chain(registry);
    ASSERT_TRUE(chain.setDescription(description)) << qPrintable(chain.errorString());
    chain.setViewport(QRect(0, 0, 8, 8));

    for (int i = 0; i < 3; ++i) {
        calls.clear();
        ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
        EXPECT_EQ(calls.value(0), QStringLiteral("construct"));
        EXPECT_GT(glObjectCounts().programs, before.programs);
        calls.clear();
        context.reset();
        EXPECT_EQ(calls,
            (QStringList{
                QStringLiteral("teardown"), QStringLiteral("teardownContextData"), QStringLiteral("destroy")}));
        EXPECT_TRUE(glObjectCounts() == before);
        context = makeContext();
        ASSERT_TRUE(context);
    }
}

TEST(RenderChainQtContextTest, theLogTakesTheMessagesOfItsDriver)
{
    EXPECT_FALSE(logDriverMessages()) << "without a context";
    QSurfaceFormat format;
    format.setVersion(3, 2);
    format.setProfile(QSurfaceFormat::CoreProfile);
    format.setOption(QSurfaceFormat::DebugContext);
    QOffscreenSurface surface;
    surface.setFormat(format);
    surface.create();
    QOpenGLContext context;
    context.setFormat(format);
    if (!context.create() || !context.makeCurrent(&surface))
        GTEST_SKIP() << "Qt's platform gives no OpenGL context here";

    LogCapture log;
    glEnable(GL_RGBA8); // No capability.
    EXPECT_EQ(glGetError(), GLenum(GL_INVALID_ENUM));
    EXPECT_EQ(log.takeCategory(QStringLiteral("kvz.gl")), QStringList()) << "nobody asked for them";
    ASSERT_TRUE(logDriverMessages());
    glEnable(GL_RGBA8);
    EXPECT_EQ(glGetError(), GLenum(GL_INVALID_ENUM));
    const QStringList lines = log.takeCategory(QStringLiteral("kvz.gl"));
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines[0].contains(QStringLiteral("GL_INVALID_ENUM"))) << qPrintable(lines[0]);
}

} // namespace Velmora::Kvz
