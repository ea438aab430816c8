// SPDX-License-Identifier: MIT
// What a warm frame of each ready chain asks the driver and sets in vain, and whether what it takes for known is so.
#include "FakePasses.h"
#include "support/DriverClaims.h"
#include "support/GLTest.h"
#include "support/GLTrace.h"
#include "support/Meshes.h"
#include "support/ModelChain.h"

#include <Chain/ChainLibrary.h>
#include <GL/CurrentContext.h>
#include <GL/FrameBounds.h>
#include <GL/TextureManager.h>
#include <Scene/GPUModelBuilder.h>

#include <epoxy/gl.h>

#include <cmath>
#include <iostream>

namespace Velmora::Kvz {

namespace {

const QSize size(64, 48);

QString inLines(const QMap<QString, int> &counts)
{
    QStringList lines;
    for (auto it = counts.begin(); it != counts.end(); ++it)
        lines.append(QStringLiteral("  %1, %2 times").arg(it.key()).arg(it.value()));
    return lines.join(QLatin1Char('\n'));
}

QString query(const char *function, GLenum name)
{
    return QStringLiteral("%1 0x%2").arg(QLatin1String(function)).arg(name, 0, 16);
}

/// The questions that a warm frame of a chain may ask, as docs/decisions.md lists them.
QMap<QString, int> allowedQueries(const QString &chain)
{
    QMap<QString, int> allowed{
        {query("glGetIntegerv", GL_DRAW_FRAMEBUFFER_BINDING), 1},
        {query("glGetIntegerv", GL_READ_FRAMEBUFFER_BINDING), 1},
        {QStringLiteral("glGetError"), 1},
    };
    // Filters that passes of these borrow and give back.
    if (chain == QLatin1String("fxaa") || chain == QLatin1String("depth-of-field") || chain == QLatin1String("studio"))
        allowed.insert(query("glGetTexParameteriv", GL_TEXTURE_2D), 2);
    // The sky looks the same over the seams of its cube map whatever the host has set.
    if (chain.startsWith(QLatin1String("skybox-cubemap")))
        allowed.insert(query("glIsEnabled", GL_TEXTURE_CUBE_MAP_SEAMLESS), 1);
    // The average luminance is read.
    if (chain == QLatin1String("exposure"))
        allowed.insert(QStringLiteral("glReadPixels"), 1);
    // Recording in the basic pass keeps the host's mask, and its fragments are counted unless the host counts.
    if (chain == QLatin1String("full-basic") || chain == QLatin1String("transparency-lists-basic")) {
        allowed.insert(query("glGetBooleani_v", GL_COLOR_WRITEMASK), 1);
        allowed.insert(query("glGetQueryiv", GL_SAMPLES_PASSED), 1);
        allowed.insert(query("glGetQueryiv", GL_ANY_SAMPLES_PASSED), 1);
        allowed.insert(QStringLiteral("glGetQueryObjectiv"), 4);
        allowed.insert(QStringLiteral("glGetQueryObjectuiv"), 4);
    }
    return allowed;
}

/// Boxes, opaque and transparent, mirrored and not.
QSharedPointer<GPUModel> buildBoxes(int count)
{
    GPUModelBuilder builder;
    MaterialData opaque;
    opaque.kd = {0.8f, 0.2f, 0.1f};
    MaterialData glass = opaque;
    glass.d = 0.4f;
    const int mesh = builder.addMesh(boxMesh());
    const int materials[] = {builder.addMaterial(opaque), builder.addMaterial(glass)};
    const int columns = int(std::sqrt(double(count))) + 1;
    for (int i = 0; i < count; ++i) {
        QMatrix4x4 place;
        place.translate(float(i % columns) * 3.0f, float(i / columns) * 3.0f, 0);
        place.scale(i < count / 2 ? 1.0f : -1.0f, 1, 1);
        builder.addItem(mesh, materials[i % 2], place);
    }
    return builder.build();
}

CameraView viewFrom(float azimuth)
{
    CameraView view;
    view.azimuth = azimuth;
    return view;
}

} // namespace

class FrameCallsTest : public GLTest
{
protected:
    /// Renders frames until nothing is new, each from the next of these views.
    void warmUp(ModelChain *chain, const QVector<float> &azimuths)
    {
        for (int i = 0; i < 8; ++i)
            render(chain, azimuths[i % azimuths.size()]);
    }

    void render(ModelChain *chain, float azimuth)
    {
        chain->look(viewFrom(azimuth));
        ASSERT_TRUE(chain->chain.renderFrame()) << qPrintable(chain->chain.errorString());
    }

    const QSharedPointer<GPUModel> boxes = (context(), buildBoxes(12));
};

TEST_F(FrameCallsTest, warmFramesAskNothingButWhatIsStated)
{
    for (const QString &name : readyChainNames()) {
        ModelChain chain(name, boxes, size);
        for (const QVector<float> &azimuths : {QVector<float>{20}, QVector<float>{20, 24}}) {
            warmUp(&chain, azimuths);
            const quint64 lookups = nativeContextLookups();
            GLTrace trace;
            for (const float azimuth : azimuths) {
                trace.clear();
                render(&chain, azimuth);
                const QMap<QString, int> queries = trace.queries();
                const QMap<QString, int> allowed = allowedQueries(name);
                for (auto it = queries.begin(); it != queries.end(); ++it)
                    EXPECT_LE(it.value(), allowed.value(it.key())) << qPrintable(name + ": " + it.key());
                EXPECT_TRUE(trace.repeats().isEmpty()) << qPrintable(name) << " sets what is set already:\n"
                                                       << qPrintable(inLines(trace.repeats()));
            }
            EXPECT_EQ(nativeContextLookups() - lookups, quint64(azimuths.size())) << qPrintable(name);
            std::cout << qPrintable(name) << (azimuths.size() > 1 ? ", camera in motion: " : ": ") << trace.calls()
                      << " calls, " << trace.setters() << " set state, " << trace.queryCount() << " ask\n";
        }
    }
}

TEST_F(FrameCallsTest, whatAFrameTakesForKnownIsSo)
{
    if (epoxy_gl_version() < 43 && !epoxy_has_gl_extension("GL_KHR_debug"))
        GTEST_SKIP() << "the end of a pass shows by its debug group, which this driver lacks";
    int checks = 0;
    QString name;
    const auto compare = [&](GLenum what, const std::array<quint32, 4> &known, int numbers) {
        GLint real[4] = {};
        epoxy_glGetIntegerv(what, real);
        for (size_t i = 0; i < size_t(numbers); ++i)
            EXPECT_EQ(quint32(real[i]), known[i]) << qPrintable(name) << ' ' << std::hex << what;
        ++checks;
    };
    const auto check = [&] {
        FrameState *const state = FrameState::active();
        ASSERT_TRUE(state) << qPrintable(name);
        for (const GLenum what : {GL_DEPTH_TEST, GL_STENCIL_TEST, GL_BLEND, GL_CULL_FACE, GL_SCISSOR_TEST,
                 GL_DEPTH_CLAMP, GL_FRAMEBUFFER_SRGB, GL_DEPTH_WRITEMASK, GL_DEPTH_FUNC, GL_BLEND_EQUATION_RGB,
                 GL_BLEND_EQUATION_ALPHA, GL_BLEND_SRC_RGB, GL_BLEND_DST_RGB, GL_BLEND_SRC_ALPHA, GL_BLEND_DST_ALPHA,
                 GL_CULL_FACE_MODE, GL_FRONT_FACE, GL_POLYGON_MODE, GL_STENCIL_CLEAR_VALUE, GL_UNPACK_ALIGNMENT,
                 GL_CURRENT_PROGRAM, GL_VERTEX_ARRAY_BINDING, GL_DRAW_FRAMEBUFFER_BINDING, GL_READ_FRAMEBUFFER_BINDING,
                 GL_ACTIVE_TEXTURE, GL_ARRAY_BUFFER_BINDING, GL_PIXEL_UNPACK_BUFFER_BINDING}) {
            if (const auto *known = state->find(what))
                compare(what, *known, 1);
        }
        for (const GLenum what : {GL_VIEWPORT, GL_COLOR_WRITEMASK}) {
            if (const auto *known = state->find(what))
                compare(what, *known, 4);
        }
        GLint active = 0;
        epoxy_glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
        const auto &units = state->units();
        for (size_t unit = 0; unit < units.size(); ++unit) {
            epoxy_glActiveTexture(GL_TEXTURE0 + GLenum(unit));
            for (const FrameState::UnitBinding &binding : units[unit]) {
                const GLenum what = binding.target == GL_TEXTURE_2D ? GL_TEXTURE_BINDING_2D
                    : binding.target == GL_TEXTURE_2D_ARRAY         ? GL_TEXTURE_BINDING_2D_ARRAY
                    : binding.target == GL_TEXTURE_BUFFER           ? GL_TEXTURE_BINDING_BUFFER
                    : binding.target == GL_TEXTURE_CUBE_MAP         ? GL_TEXTURE_BINDING_CUBE_MAP
                                                                    : 0;
                if (what)
                    compare(what, {binding.texture, 0, 0, 0}, 1);
            }
        }
        epoxy_glActiveTexture(GLenum(active));
    };
    for (const QString &chainName : readyChainNames()) {
        name = chainName;
        checks = 0;
        ModelChain chain(name, boxes, size);
        render(&chain, 20);
        {
            GLCallRecorder<&epoxy_glPopDebugGroup> ends;
            ends.onCall = check;
            render(&chain, 20);
            render(&chain, 24);
        }
        EXPECT_GT(checks, 40) << qPrintable(name);
    }
}

TEST_F(FrameCallsTest, picturesAreThoseOfACallForEachItem)
{
    const QSharedPointer<GPUModel> many = buildBoxes(8200);
    for (const QString &name : {QStringLiteral("forward"), QStringLiteral("deferred"), QStringLiteral("picking"),
             QStringLiteral("transparency-weighted"), QStringLiteral("transparency-lists"), QStringLiteral("full")}) {
        const auto pictures = [&] {
            ModelChain chain(name, many, size);
            QVector<Image> all;
            for (const float azimuth : {20.0f, 20.0f, 26.0f}) {
                render(&chain, azimuth);
                all.append(chain.picture());
            }
            return all;
        };
        const QVector<Image> expected = [&] {
            const DriverClaims claims({}, 0, "GL_ARB_multi_draw_indirect");
            GLCallRecorder<&epoxy_glMultiDrawElementsIndirect> calls;
            const QVector<Image> all = pictures();
            EXPECT_TRUE(calls.calls.empty()) << qPrintable(name);
            return all;
        }();
        GLCallRecorder<&epoxy_glMultiDrawElementsIndirect> calls;
        const QVector<Image> found = pictures();
        EXPECT_FALSE(calls.calls.empty()) << qPrintable(name);
        for (int i = 0; i < expected.size(); ++i)
            EXPECT_EQ(maximumDifference(found[i], expected[i]), 0) << qPrintable(name) << ", frame " << i;
    }
}

TEST_F(FrameCallsTest, passesOfOthersMayCallGLAsTheyLike)
{
    ModelChain plain(QStringLiteral("forward"), boxes, size);
    render(&plain, 20);
    const Image expected = plain.picture();

    // It leaves all that a binder could take for its own.
    GLuint names[5] = {};
    glGenTextures(1, &names[0]);
    glGenBuffers(1, &names[1]);
    glGenVertexArrays(1, &names[2]);
    glGenFramebuffers(1, &names[3]);
    const auto disturb = [&](FakePass &) {
        for (int unit = 0; unit < 8; ++unit) {
            glActiveTexture(GL_TEXTURE0 + GLenum(unit));
            glBindTexture(GL_TEXTURE_2D, names[0]);
        }
        glBindBuffer(GL_ARRAY_BUFFER, names[1]);
        glBindVertexArray(names[2]);
        glBindFramebuffer(GL_FRAMEBUFFER, names[3]);
        glUseProgram(0);
        glEnable(GL_BLEND);
        glEnable(GL_STENCIL_TEST);
        glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
        glDepthMask(GL_FALSE);
        glFrontFace(GL_CW);
        glViewport(1, 2, 3, 4);
        glClearColor(1, 0, 1, 1);
    };
    PassRegistry registry = PassRegistry::standard();
    registry.add(fakeClass("Disturber", {}, {}, disturb));
    ChainDescription description;
    QString error;
    ASSERT_TRUE(loadChain(QStringLiteral("forward"), &description, &error)) << qPrintable(error);
    for (int i = description.passes.size(); i >= 0; --i) {
        ChainPass pass;
        pass.name = QStringLiteral("disturb%1").arg(i);
        pass.className = QStringLiteral("Disturber");
        description.passes.insert(i, pass);
    }
    const std::unique_ptr<Texture> target = makeTexture(Image(size.width(), size.height()), GL_RGBA8);
    FramebufferObject framebuffer;
    framebuffer.bind();
    framebuffer.attach(target.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    framebuffer.unbind();
    RenderChain chain(registry);
    ASSERT_TRUE(chain.setDescription(description)) << qPrintable(chain.errorString());
    chain.setViewport(QRect(QPoint(), size));
    chain.setFramebuffer(&framebuffer);
    chain.setModel(boxes.data());
    chain.setCamera(plain.camera.cameraMatrix, plain.camera.projectionMatrix);
    chain.setRestoresState(true);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
        EXPECT_EQ(maximumDifference(readTexture(target.get()), expected), 0) << "frame " << i;
        // What it has bound is there for its next frame.
        glActiveTexture(GL_TEXTURE3);
        EXPECT_EQ(glInteger(GL_TEXTURE_BINDING_2D), int(names[0]));
        glActiveTexture(GL_TEXTURE0);
    }
    for (int unit = 0; unit < 8; ++unit) {
        glActiveTexture(GL_TEXTURE0 + GLenum(unit));
        glBindTexture(GL_TEXTURE_2D, 0);
    }
    glActiveTexture(GL_TEXTURE0);
    glDeleteTextures(1, &names[0]);
    glDeleteBuffers(1, &names[1]);
    glDeleteVertexArrays(1, &names[2]);
    glDeleteFramebuffers(1, &names[3]);
}

TEST_F(FrameCallsTest, framesThatRestoreStateGiveTheHostItsTexturesBack)
{
    ModelChain chain(QStringLiteral("full"), boxes, size);
    chain.chain.setRestoresState(true);
    GLuint texture = 0;
    glGenTextures(1, &texture);
    for (int unit = 0; unit < 16; ++unit) {
        glActiveTexture(GL_TEXTURE0 + GLenum(unit));
        glBindTexture(GL_TEXTURE_2D, texture);
    }
    for (int i = 0; i < 2; ++i)
        render(&chain, 20);
    EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE15);
    for (int unit = 0; unit < 16; ++unit) {
        glActiveTexture(GL_TEXTURE0 + GLenum(unit));
        EXPECT_EQ(glInteger(GL_TEXTURE_BINDING_2D), int(texture)) << unit;
        glBindTexture(GL_TEXTURE_2D, 0);
    }
    glActiveTexture(GL_TEXTURE0);
    glDeleteTextures(1, &texture);
}

TEST_F(FrameCallsTest, imagesThatAHostRespecifiesBetweenFramesHaveTheirNewSize)
{
    const std::unique_ptr<Texture> image = makeTexture(Image(8, 4), GL_RGBA8);
    QVector<int> widths;
    FrameState state;
    for (const int width : {8, 8, 16, 16}) {
        image->bind();
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, width, 4, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
        image->unbind();
        enterFrame(&state, FrameState::Bindings::Empty);
        widths.append(image->width(0));
        widths.append(image->width(0));
        leaveFrame(&state);
    }
    EXPECT_EQ(widths, (QVector<int>{8, 8, 8, 8, 16, 16, 16, 16}));
}

} // namespace Velmora::Kvz
