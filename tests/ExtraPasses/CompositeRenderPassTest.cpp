// SPDX-License-Identifier: MIT
#include "LitFixture.h"
#include "support/PooledTextures.h"

#include <ExtraPasses/CompositeRenderPass.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

const QSize size(16, 12);

class CompositeRenderPassTest : public PassTest<CompositeRenderPass>
{
protected:
    void SetUp() override
    {
        PassTest::SetUp();
        setViewport(size);
    }
    Image compose()
    {
        pass->setNumOutputUsers(Port::Frame, 1);
        pass->start(nullptr);
        if (!texture(Port::Frame)) {
            ADD_FAILURE() << "there is no picture";
            return {};
        }
        const Image picture = image(Port::Frame);
        TextureManager::Instance()->releaseTempTextureRef(texture(Port::Frame), 1);
        return picture;
    }

    PooledTextures textures;
};

/// Random colours premultiplied by random alphas.
Image speckledFrame(unsigned int seed)
{
    const QImage texels = speckledImage(size.width(), size.height(), seed);
    Image frame(size.width(), size.height());
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            const QColor texel = texels.pixelColor(x, y);
            const auto alpha = float(texel.alphaF());
            frame.setPixel(x, y,
                QVector4D(
                    float(texel.redF()) * alpha, float(texel.greenF()) * alpha, float(texel.blueF()) * alpha, alpha));
        }
    }
    return frame;
}

QVector4D over(const QVector4D &front, const QVector4D &behind)
{
    return front + (1 - front.w()) * behind;
}

/// The expected pixel.
QVector4D composed(
    const QVector4D &layers, const QVector4D &frame, const QVector4D &background, const QVector4D &colour)
{
    const QVector4D behind = over(frame, over(background, colour));
    return {(layers.toVector3D() + layers.w() * behind.toVector3D()), 1 - layers.w() * (1 - behind.w())};
}

} // namespace

TEST_F(CompositeRenderPassTest, laysEachOverTheOthers)
{
    const Image frame = speckledFrame(1);
    Image layers = speckledFrame(2);
    for (int i = 3; i < layers.data.size(); i += 4)
        layers.data[i] = 1 - layers.data[i]; // Layers store the share that comes through.
    const Image background = speckledFrame(3);
    const QVariant colours[] = {QVariant(), QColor(255, 128, 0, 153), QColor(0, 51, 102), QColor(255, 255, 255, 0)};
    for (int present = 0; present < 8; ++present) {
        setTexture(Port::FrameIn, present & 1 ? textures.take(TextureFormat::HighDynamicRange, frame, 8) : nullptr);
        setTexture(Port::Layers, present & 2 ? textures.take(TextureFormat::HighDynamicRange, layers, 8) : nullptr);
        setTexture(
            Port::Background, present & 4 ? textures.take(TextureFormat::HighDynamicRange, background, 8) : nullptr);
        for (const QVariant &value : colours) {
            pass->setInput(Port::BackgroundColor, value);
            const auto color = value.isValid() ? value.value<QColor>() : QColor(Qt::transparent);
            const auto alpha = float(color.alphaF());
            const QVector4D behindAll(
                float(color.redF()) * alpha, float(color.greenF()) * alpha, float(color.blueF()) * alpha, alpha);
            const Image picture = compose();
            double error = 0;
            for (int y = 0; y < size.height(); ++y) {
                for (int x = 0; x < size.width(); ++x) {
                    const QVector4D expected = composed(present & 2 ? layers.pixel(x, y) : QVector4D(0, 0, 0, 1),
                        present & 1 ? frame.pixel(x, y) : QVector4D(),
                        present & 4 ? background.pixel(x, y) : QVector4D(), behindAll);
                    for (int k = 0; k < 4; ++k)
                        error = std::max(error, double(std::abs(picture.at(x, y)[k] - expected[k])));
                }
            }
            EXPECT_LT(error, 1.0 / 255) << "present: " << present << ", colour " << qPrintable(color.name());
        }
    }
}

TEST_F(CompositeRenderPassTest, nothingIsTransparentBlack)
{
    EXPECT_EQ(maximumDifference(compose(), Image(size.width(), size.height())), 0);
    pass->setInput(Port::BackgroundColor, QStringLiteral("no colour at all"));
    EXPECT_EQ(maximumDifference(compose(), Image(size.width(), size.height())), 0);
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(CompositeRenderPassTest, aColourAloneIsMultipliedByItsAlpha)
{
    const double lastHalfBit = std::ldexp(1.0, -13); // For half floats from 0.125 to 0.25.
    pass->setInput(Port::BackgroundColor, QColor(255, 0, 51, 51));
    EXPECT_LE(maximumDifference(compose(), filled(size.width(), size.height(), QVector4D(0.2f, 0, 0.04f, 0.2f))),
        lastHalfBit);
    pass->setInput(Port::BackgroundColor, QColor(255, 0, 51));
    EXPECT_LE(maximumDifference(compose(), filled(size.width(), size.height(), QVector4D(1, 0, 0.2f, 1))), lastHalfBit);
}

TEST_F(CompositeRenderPassTest, stretchesImagesOfOtherSizes)
{
    Image small(2, 1);
    small.setPixel(0, 0, QVector4D(1, 0, 0, 1));
    small.setPixel(1, 0, QVector4D(0, 1, 0, 1));
    setTexture(Port::Background, textures.take(TextureFormat::LowDynamicRange, small, 2));
    const Image picture = compose();
    EXPECT_EQ(picture.pixel(7, 11), QVector4D(1, 0, 0, 1));
    EXPECT_EQ(picture.pixel(8, 0), QVector4D(0, 1, 0, 1));
}

TEST_F(CompositeRenderPassTest, givesEachInputBackOnceAndHandsItsPictureOn)
{
    const Image frame = speckledFrame(1);
    QVector<Texture *> taken;
    for (const int input : {Port::FrameIn, Port::Layers, Port::Background}) {
        taken.append(textures.take(TextureFormat::HighDynamicRange, frame, 3));
        setTexture(input, taken.last());
    }
    pass->setNumOutputUsers(Port::Frame, 2);
    glEnable(GL_BLEND);
    glBlendFunc(GL_ZERO, GL_ZERO);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_NEVER);
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, 1, 1);
    pass->start(nullptr);
    for (const Texture *texture : qAsConst(taken))
        EXPECT_EQ(PooledTextures::references(texture), 2);
    ASSERT_TRUE(texture(Port::Frame));
    EXPECT_EQ(PooledTextures::references(texture(Port::Frame)), 2);
    EXPECT_EQ(texture(Port::Frame)->internalFormat(0), GL_RGBA16F);
    const QVector4D texel = frame.pixel(9, 9);
    EXPECT_LE((image(Port::Frame).pixel(9, 9) - composed(texel, texel, texel, QVector4D())).length(), 2.0f / 255);
    for (const GLenum capability : {GL_DEPTH_TEST, GL_BLEND, GL_SCISSOR_TEST})
        EXPECT_FALSE(glFlag(capability));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    TextureManager::Instance()->releaseTempTextureRef(texture(Port::Frame), 2);

    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
    for (Texture *texture : qAsConst(taken)) {
        EXPECT_EQ(PooledTextures::references(texture), 1);
        TextureManager::Instance()->addTempTextureRef(texture, 1);
    }
    for (const QVariant &nothing : {QVariant(), QVariant(QRect(0, 0, 0, 4))}) {
        pass->setInput(Port::Viewport, nothing);
        pass->start(nullptr);
        EXPECT_FALSE(pass->output(Port::Frame).isValid());
        for (Texture *texture : qAsConst(taken)) {
            EXPECT_EQ(PooledTextures::references(texture), 1);
            TextureManager::Instance()->addTempTextureRef(texture, 1);
        }
    }
}

TEST_F(CompositeRenderPassTest, handsAFrameOnThatIsThePictureAlready)
{
    const Image frame = speckledFrame(1);
    Texture *const taken = textures.take(TextureFormat::HighDynamicRange, frame, 3);
    setTexture(Port::FrameIn, taken);
    pass->setNumOutputUsers(Port::Frame, 2);
    pass->start(nullptr);
    EXPECT_EQ(texture(Port::Frame), taken);
    EXPECT_EQ(PooledTextures::references(taken), 4) << "its own use has ended, two have begun";
    // What changes the picture, or its size, makes a new one.
    pass->setNumOutputUsers(Port::Frame, 0);
    pass->setInput(Port::BackgroundColor, QColor(0, 0, 0, 1));
    pass->start(nullptr);
    EXPECT_NE(texture(Port::Frame), taken);
    pass->setInput(Port::BackgroundColor, QColor());
    pass->start(nullptr);
    EXPECT_EQ(texture(Port::Frame), taken) << "what is no colour is transparent";
    setViewport(QSize(size.width() - 1, size.height()));
    pass->start(nullptr);
    EXPECT_NE(texture(Port::Frame), taken);
}

TEST_F(CompositeRenderPassTest, oneImageMayStandInSeveralPlaces)
{
    Texture *const image = textures.take(TextureFormat::HighDynamicRange, speckledFrame(5), 3);
    setTexture(Port::FrameIn, image);
    setTexture(Port::Background, image);
    compose();
    EXPECT_EQ(PooledTextures::references(image), 1);
}

TEST_F(CompositeRenderPassTest, takesItsObjectsAlong)
{
    CompositeRenderPass other; // Creates what the texture manager keeps.
    other.setInput(Port::Viewport, QRect(QPoint(), size));
    other.start(nullptr);
    const GLObjectCounts before = glObjectCounts();
    compose();
    EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
    pass->teardown(nullptr);
    pass->teardownContextData(nullptr);
    pass.reset();
    EXPECT_EQ(glObjectCounts().programs, before.programs);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
}

} // namespace Velmora::Kvz
