// SPDX-License-Identifier: MIT
// The GL state that the passes of a chain find, and the state that their host gets back.
#include "RenderChainFixture.h"
#include "support/GLCallRecorder.h"

namespace Velmora::Kvz {

using RenderChainStateTest = RenderChainFixture;

TEST_F(RenderChainStateTest, everyPassFindsTheBaseline)
{
    GLuint unpackBuffer = 0;
    glGenBuffers(1, &unpackBuffer);
    QVector<QStringList> found;
    const auto check = [&](FakePass &) {
        QStringList wrong;
        const auto expect = [&](bool good, const char *what) {
            if (!good)
                wrong.append(text(what));
        };
        GLint viewport[4];
        glGetIntegerv(GL_VIEWPORT, viewport);
        expect(viewport[0] == 0 && viewport[1] == 0 && viewport[2] == 8 && viewport[3] == 4, "viewport");
        for (GLenum capability : {GL_DEPTH_TEST, GL_STENCIL_TEST, GL_BLEND, GL_CULL_FACE, GL_SCISSOR_TEST,
                 GL_DEPTH_CLAMP, GL_FRAMEBUFFER_SRGB})
            expect(!glIsEnabled(capability), "capability");
        GLboolean mask[4];
        glGetBooleanv(GL_COLOR_WRITEMASK, mask);
        expect(mask[0] && mask[1] && mask[2] && mask[3], "color mask");
        expect(glInteger(GL_DEPTH_WRITEMASK) == 1, "depth mask");
        expect((glInteger(GL_STENCIL_WRITEMASK) & 0xff) == 0xff, "stencil mask");
        expect((glInteger(GL_STENCIL_BACK_WRITEMASK) & 0xff) == 0xff, "back stencil mask");
        expect(glInteger(GL_DEPTH_FUNC) == GL_LESS, "depth function");
        expect(glInteger(GL_BLEND_EQUATION_RGB) == GL_FUNC_ADD, "blend equation");
        expect(glInteger(GL_BLEND_EQUATION_ALPHA) == GL_FUNC_ADD, "alpha blend equation");
        expect(glInteger(GL_BLEND_SRC_RGB) == GL_ONE && glInteger(GL_BLEND_DST_ALPHA) == GL_ZERO, "blend function");
        expect(glInteger(GL_CULL_FACE_MODE) == GL_BACK && glInteger(GL_FRONT_FACE) == GL_CCW, "faces");
        expect(glInteger(GL_POLYGON_MODE) == GL_FILL, "polygon mode");
        GLfloat clear[4];
        glGetFloatv(GL_COLOR_CLEAR_VALUE, clear);
        expect(clear[0] == 0 && clear[3] == 0, "clear color");
        GLfloat clearDepth = 0;
        glGetFloatv(GL_DEPTH_CLEAR_VALUE, &clearDepth);
        expect(clearDepth == 1, "clear depth");
        expect(glInteger(GL_STENCIL_CLEAR_VALUE) == 0, "clear stencil");
        expect(glInteger(GL_UNPACK_ALIGNMENT) == 4 && glInteger(GL_PIXEL_UNPACK_BUFFER_BINDING) == 0, "unpack");
        found.append(wrong);

        for (GLenum capability : {GL_DEPTH_TEST, GL_STENCIL_TEST, GL_BLEND, GL_CULL_FACE, GL_SCISSOR_TEST,
                 GL_DEPTH_CLAMP, GL_FRAMEBUFFER_SRGB})
            glEnable(capability);
        glViewport(3, 3, 1, 1);
        glColorMask(0, 0, 0, 0);
        glDepthMask(0);
        glStencilMask(0);
        glDepthFunc(GL_ALWAYS);
        glBlendEquationSeparate(GL_MAX, GL_MIN);
        glBlendFunc(GL_DST_COLOR, GL_SRC_COLOR);
        glCullFace(GL_FRONT);
        glFrontFace(GL_CW);
        glPolygonMode(GL_FRONT_AND_BACK, GL_LINE);
        glClearColor(1, 1, 1, 1);
        glClearDepth(0.25);
        glClearStencil(7);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
        glBindBuffer(GL_PIXEL_UNPACK_BUFFER, unpackBuffer);
    };
    registry.add(fakeClass("A", {}, {}, check));
    setChain({described("a", "A"), described("b", "A")});
    chain->setRestoresState(true);
    render(2);
    ASSERT_EQ(found.size(), 4);
    for (const QStringList &wrong : found)
        EXPECT_EQ(wrong, QStringList());
    // The host does not find the state of the last pass.
    EXPECT_FALSE(glIsEnabled(GL_BLEND));
    EXPECT_EQ(glInteger(GL_POLYGON_MODE), GL_FILL);
    EXPECT_EQ(glInteger(GL_BLEND_EQUATION_ALPHA), GL_FUNC_ADD);
    EXPECT_EQ(glInteger(GL_PIXEL_UNPACK_BUFFER_BINDING), 0);
    glDeleteBuffers(1, &unpackBuffer);
}

TEST_F(RenderChainStateTest, aDebugGroupOfThePassesNameStandsAroundEachStart)
{
    if (epoxy_gl_version() < 43 && !epoxy_has_gl_extension("GL_KHR_debug"))
        GTEST_SKIP() << "this driver has no debug groups";
    QStringList order;
    GLCallRecorder<&epoxy_glPushDebugGroup> push;
    push.onCall = [&](GLenum source, GLuint, GLsizei length, const GLchar *label) {
        EXPECT_EQ(source, GLenum(GL_DEBUG_SOURCE_APPLICATION));
        order.append(text("push ") + QString::fromUtf8(label, length));
    };
    GLCallRecorder<&epoxy_glPopDebugGroup> pop;
    pop.onCall = [&] { order.append(text("pop")); };
    registry.add(fakeClass("A", {}, {}, {}, [&](const QString &call, FakePass &) {
        if (call == text("start") || call == text("skip"))
            order.append(call);
    }));
    setChain({described("first", "A"), described("zweite Stufe \u00fc", "A")});
    render();
    EXPECT_TRUE(chain->setEnabled(text("first"), false));
    render();
    const QString second = text("push zweite Stufe \u00fc");
    EXPECT_EQ(order,
        (QStringList{text("push first"), text("start"), text("pop"), second, text("start"), text("pop"),
            text("push first"), text("skip"), text("pop"), second, text("start"), text("pop")}));
}

TEST_F(RenderChainStateTest, aPassStartsWithTheSizeOfItsOwnViewportAndTheClearColorOfTheHost)
{
    GLint viewport[4];
    GLfloat clear[4];
    registry.add(fakeClass("A", {fakeInput("Kvz_QRect_Viewport", ValueType::Rect)}, {}, [&](FakePass &) {
        glGetIntegerv(GL_VIEWPORT, viewport);
        glGetFloatv(GL_COLOR_CLEAR_VALUE, clear);
    }));
    setChain({described("a", "A")});
    chain->setClearColor(QColor(255, 0, 255));
    chain->setValue(text("a"), text("Kvz_QRect_Viewport"), QRect(5, 6, 70, 80));
    render();
    EXPECT_EQ(viewport[0], 0);
    EXPECT_EQ(viewport[2], 70);
    EXPECT_EQ(viewport[3], 80);
    EXPECT_EQ(clear[0], 1);
    EXPECT_EQ(clear[1], 0);
    EXPECT_EQ(clear[3], 1);
}

TEST_F(RenderChainStateTest, theStateFoundComesBackWhenAsked)
{
    registry.add(fakeClass("A", {}, {}, [](FakePass &) {
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        glActiveTexture(GL_TEXTURE5);
        glStencilFunc(GL_NEVER, 3, 5);
    }));
    setChain({described("a", "A")});
    chain->setRestoresState(true);
    GLuint framebuffer = 0;
    glGenFramebuffers(1, &framebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_SCISSOR_TEST);
    glScissor(1, 2, 3, 4);
    glViewport(5, 6, 7, 8);
    glDepthFunc(GL_GEQUAL);
    glColorMask(0, 1, 0, 1);
    glBlendFuncSeparate(GL_ONE, GL_DST_ALPHA, GL_ZERO, GL_SRC_ALPHA);
    glClearColor(0.25f, 0.5f, 0.75f, 1);
    glStencilFuncSeparate(GL_BACK, GL_EQUAL, 1, 0xff);
    glActiveTexture(GL_TEXTURE2);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 2);
    render();
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), int(framebuffer));
    EXPECT_EQ(glInteger(GL_READ_FRAMEBUFFER_BINDING), int(framebuffer));
    EXPECT_TRUE(glIsEnabled(GL_DEPTH_TEST));
    EXPECT_TRUE(glIsEnabled(GL_SCISSOR_TEST));
    GLint box[4];
    glGetIntegerv(GL_VIEWPORT, box);
    EXPECT_EQ(box[3], 8);
    glGetIntegerv(GL_SCISSOR_BOX, box);
    EXPECT_EQ(box[3], 4);
    EXPECT_EQ(glInteger(GL_DEPTH_FUNC), GL_GEQUAL);
    GLboolean mask[4];
    glGetBooleanv(GL_COLOR_WRITEMASK, mask);
    EXPECT_FALSE(mask[0]);
    EXPECT_TRUE(mask[1]);
    EXPECT_EQ(glInteger(GL_BLEND_DST_RGB), GL_DST_ALPHA);
    EXPECT_EQ(glInteger(GL_BLEND_DST_ALPHA), GL_SRC_ALPHA);
    GLfloat clear[4];
    glGetFloatv(GL_COLOR_CLEAR_VALUE, clear);
    EXPECT_EQ(clear[2], 0.75f);
    EXPECT_EQ(glInteger(GL_STENCIL_FUNC), GL_ALWAYS);
    EXPECT_EQ(glInteger(GL_STENCIL_BACK_FUNC), GL_EQUAL);
    EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE2);
    EXPECT_EQ(glInteger(GL_UNPACK_ALIGNMENT), 2);

    glStencilFunc(GL_ALWAYS, 0, ~0u);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glDeleteFramebuffers(1, &framebuffer);
}

} // namespace Velmora::Kvz
