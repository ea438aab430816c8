// SPDX-License-Identifier: MIT
// The temporal modes of SMAARenderPass follow motion alike, whether it comes in a single-sample or in a multisampled
// image.
#include "SmaaReference.h"
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/PooledTextures.h"

#include <GL/FramebufferObject.h>
#include <RenderPasses/SMAARenderPass.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

using Smaa = SMAARenderPass;

const QSize size(48, 36);

/// The motion of the left and of the right half of the picture: 4 and 2 whole pixels, which filters do not blur.
const QVector2D motion[2] = {{4.0f / 48, 0}, {0, -2.0f / 36}};

/// Writes the motion, or zero, into all samples of a velocity image.
void fill(Texture *velocity, bool moves)
{
    FramebufferObject framebuffer;
    AutoBinder binder(&framebuffer);
    framebuffer.attach(velocity, GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    glEnable(GL_SCISSOR_TEST);
    for (int half : {0, 1}) {
        const QVector2D way = moves ? motion[half] : QVector2D();
        glScissor(half * size.width() / 2, 0, size.width() / 2, size.height());
        glClearColor(way.x(), way.y(), 0, 1);
        glClear(GL_COLOR_BUFFER_BIT);
    }
    glDisable(GL_SCISSOR_TEST);
}

/// Gives a single-sample velocity image the filters that a resolved copy has.
void filterLinearly(Texture *texture)
{
    AutoBinder binder(texture);
    for (GLenum filter : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER})
        glTexParameteri(GL_TEXTURE_2D, filter, GL_LINEAR);
    for (GLenum wrap : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T})
        glTexParameteri(GL_TEXTURE_2D, wrap, GL_CLAMP_TO_EDGE);
}

/// The kind of images that a run uses.
struct Kind
{
    int mode;
    bool sampledFrame;
    bool sampledVelocity;
    size_t copies; ///< Of frame and velocity, which leave one sample.
};

std::string nameOf(const Kind &kind)
{
    return std::string(kind.mode == Smaa::SmaaT2X ? "T2X" : "4X") + ", frame of "
        + (kind.sampledFrame ? "several samples" : "one sample") + ", velocity of "
        + (kind.sampledVelocity ? "several" : "one");
}

class SMAAVelocityTest : public GLTest
{
protected:
    /// The second of two frames of different pictures.
    static Image secondFrame(const Kind &kind, bool moves)
    {
        // A smooth picture, whose colours show where it was read, follows one of edges.
        Image ramp(size.width(), size.height());
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x)
                ramp.setPixel(x, y, QVector4D(float(x) / 64, float(y) / 64, 0.25f, 1));
        }
        const Image pictures[2] = {ramp, edgeChart(size.width(), size.height())};
        PooledTextures textures;
        TextureManager *const manager = TextureManager::Instance();
        Image image;
        {
            Smaa smaa;
            smaa.setup(nullptr);
            smaa.setNumOutputUsers(0, 1);
            smaa.setInput(Smaa::Viewport, QRect(QPoint(), size));
            smaa.setInput(Smaa::SmaaMode, kind.mode);
            for (const Image &picture : pictures) {
                const auto frame = kind.sampledFrame ? makeMultisampleTexture(picture, GL_RGBA16F, 4)
                                                     : makeTexture(picture, GL_RGBA16F);
                Texture *const velocity = textures.take(
                    TextureFormat::ResolvedVelocity, size.width(), size.height(), 2, kind.sampledVelocity ? 4 : 1);
                EXPECT_EQ(velocity->target(), kind.sampledVelocity ? GL_TEXTURE_2D_MULTISAMPLE : GL_TEXTURE_2D);
                if (!kind.sampledVelocity)
                    filterLinearly(velocity);
                fill(velocity, moves);
                const int before = textures.allReferences();
                const bool isFirst = &picture == &pictures[0];

                smaa.setInput(Smaa::Frame, QVariant::fromValue(frame.get()));
                smaa.setInput(Smaa::Velocity, QVariant::fromValue(velocity));
                GLCallRecorder<&epoxy_glBlitFramebuffer> blits;
                smaa.start(nullptr);
                EXPECT_EQ(blits.calls.size(), kind.copies);
                auto *const result = smaa.output(Smaa::FrameOut).value<Texture *>();
                EXPECT_EQ(textures.references(velocity), 1) << "given back once, copied or not";
                EXPECT_EQ(textures.references(result), 1);
                // The velocity loses one reference, the result has one, and the first frame adds the two textures of
                // the history.
                EXPECT_EQ(textures.allReferences(), before - 1 + 1 + (isFirst ? 2 : 0)) << "no copy stays";
                image = readTexture(result);
                manager->releaseTempTextureRef(result, 1);
            }
        }
        EXPECT_EQ(textures.allReferences(), 2) << "the test's own two";
        return image;
    }
};

} // namespace

TEST_F(SMAAVelocityTest, followsAMotionAlikeFromImagesOfOneSampleAndOfSeveral)
{
    struct Case
    {
        Kind plain;
        QVector<Kind> sampled;
    };
    const Case cases[] = {
        {{Smaa::SmaaT2X, false, false, 0}, {{Smaa::SmaaT2X, true, false, 2}, {Smaa::SmaaT2X, true, true, 2}}},
        {{Smaa::Smaa4X, true, false, 0}, {{Smaa::Smaa4X, true, true, 1}}}};
    for (const Case &c : cases) {
        const Image moved = secondFrame(c.plain, true);
        const Image still = secondFrame(c.plain, false);
        saveForViewing(moved, QStringLiteral("smaa-velocity-%1").arg(c.plain.mode));
        // Half of the last picture shows, a ramp of 1/64 per pixel, read 4 or 2 pixels away.
        EXPECT_NEAR(still.pixel(14, 20).x() - moved.pixel(14, 20).x(), 0.5 * 4 / 64, 0.002) << nameOf(c.plain);
        EXPECT_NEAR(moved.pixel(36, 20).y() - still.pixel(36, 20).y(), 0.5 * 2 / 64, 0.002) << nameOf(c.plain);
        for (const Kind &kind : c.sampled) {
            SCOPED_TRACE(nameOf(kind));
            const Image image = secondFrame(kind, true);
            EXPECT_EQ(maximumDifference(image, moved), 0.0);
            EXPECT_GT(maximumDifference(image, still), 0.02) << "the motion is lost";
            EXPECT_EQ(maximumDifference(secondFrame(kind, false), still), 0.0);
        }
    }
}

} // namespace Velmora::Kvz
