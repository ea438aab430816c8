// SPDX-License-Identifier: MIT
// The ready chains of blurs, blends and the average luminance, on the still life.
#include "support/BlendReference.h"
#include "support/GLTest.h"
#include "support/ModelChain.h"

#include <Chain/PassInfo.h>
#include <GL/TextureManager.h>
#include <RenderPasses/BlendRenderPass.h>

#include <QtCore/QSet>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

const QSize usualSize(320, 240);
const QSize gallerySize(640, 672);
const char frame[] = "Kvz_KvzTexture*_Frame";
const char blurred[] = "Kvz_KvzTexture*_Output";

QSize sizeFor(const QString &chain)
{
    return chain == QLatin1String("blend-gallery") ? gallerySize : usualSize;
}

double luminance(const QVector4D &color)
{
    return 0.2126 * double(color.x()) + 0.7152 * double(color.y()) + 0.0722 * double(color.z());
}

struct Statistics
{
    double mean = 0;
    double deviation = 0;
};

Statistics luminanceOf(const Image &image)
{
    double sum = 0, squares = 0;
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            const double value = luminance(image.pixel(x, y));
            sum += value;
            squares += value * value;
        }
    }
    const double count = double(image.width) * image.height;
    const double mean = sum / count;
    return {mean, std::sqrt(std::max(0.0, squares / count - mean * mean))};
}

} // namespace

class FilterChainsTest : public GLTest
{
protected:
    void load(const QString &name)
    {
        chain.reset();
        chain = std::make_unique<ModelChain>(
            name, importScene(QStringLiteral(KVZ_SOURCE_DIR "/Media/Models/still-life.obj")).build(), sizeFor(name));
    }

    static ChainOutput output(const char *pass, const char *port = frame)
    {
        return {QString::fromUtf8(pass), QString::fromUtf8(port)};
    }

    std::unique_ptr<ModelChain> chain;
};

TEST_F(FilterChainsTest, eachDrawsAPictureAndReusesItsTextures)
{
    for (const char *name : {"glow", "soft-focus", "exposure", "blend-gallery", "smaa-1x"}) {
        SCOPED_TRACE(name);
        load(QString::fromUtf8(name));
        chain->expectSteadyFrames();

        const Image picture = chain->picture();
        saveForViewing(picture, QStringLiteral("chain-%1").arg(QString::fromUtf8(name)));
        QSet<int> colours;
        for (int y = 0; y < picture.height; ++y) {
            for (int x = 0; x < picture.width; ++x) {
                const QVector4D color = picture.pixel(x, y) * 255;
                colours.insert(qRound(color.x()) << 16 | qRound(color.y()) << 8 | qRound(color.z()));
            }
        }
        EXPECT_GT(colours.size(), 1000);
    }
}

// There are 59 passes, and yet each tile's result is back in the pool before the next one takes its texture.
TEST_F(FilterChainsTest, theGalleryNeedsOneTextureForItsDestinationAndOneForAllResults)
{
    TextureManager::Instance()->deleteUnusedTempTextures();
    const int before = TextureManager::Instance()->poolStatistics().live;
    load(QStringLiteral("blend-gallery"));
    ASSERT_TRUE(chain->chain.renderFrame()) << qPrintable(chain->chain.errorString());
    int results = 0;
    for (const TextureManager::PooledTexture &texture : TextureManager::Instance()->pooledTextures())
        results += texture.format == TextureFormat::HighDynamicRange ? 1 : 0;
    EXPECT_EQ(results, 2);
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().live, before);
}

TEST_F(FilterChainsTest, theGlowAddsLightNearBrightPlacesAlone)
{
    load(QStringLiteral("glow"));
    // More glow than usual, beside which the last bits of half floats count little.
    const double threshold = 0.35;
    const double amount = 0.9;
    ASSERT_TRUE(
        chain->chain.setValue(QStringLiteral("glow"), QStringLiteral("Kvz_float_GlowThreshold"), float(threshold)));
    ASSERT_TRUE(chain->chain.setValue(QStringLiteral("glow"), QStringLiteral("Kvz_float_GlowAmount"), float(amount)));
    const int reach = 3 * 6 + 2; // Taps lie between texels, so they touch one more.
    const Image model = chain->render({output("model")})[0]; // The background does not glow.
    const auto luma = [&](int x, int y) {
        const QVector4D color = model.pixel(x, y);
        return 0.2125 * double(color.x()) + 0.7154 * double(color.y()) + 0.0721 * double(color.z());
    };
    const auto isBright = [&](int x, int y) { return luma(x, y) >= threshold; };
    const QVector<Image> images = chain->render({output("over"), output("glow", blurred)});
    const Image &over = images[0];
    const Image &glow = images[1];
    ASSERT_EQ(over.width, usualSize.width());
    ASSERT_EQ(glow.width, usualSize.width());
    // Columns with bright pixels within reach, then rows of those.
    const auto dilated = [&](const QVector<bool> &flags, int stepX, int stepY) {
        QVector<bool> result(flags.size());
        for (int y = 0; y < over.height; ++y) {
            for (int x = 0; x < over.width; ++x) {
                for (int i = -reach; i <= reach; ++i) {
                    const int nearX = qBound(0, x + i * stepX, over.width - 1);
                    const int nearY = qBound(0, y + i * stepY, over.height - 1);
                    result[y * over.width + x] |= flags[nearY * over.width + nearX];
                }
            }
        }
        return result;
    };
    QVector<bool> bright(over.width * over.height);
    for (int i = 0; i < bright.size(); ++i)
        bright[i] = isBright(i % over.width, i / over.width);
    const QVector<bool> nearBright = dilated(dilated(bright, 1, 0), 0, 1);

    int far = 0;
    double light = 0, added = 0, largest = 0;
    for (int y = 0; y < over.height; ++y) {
        for (int x = 0; x < over.width; ++x) {
            const QVector4D difference = glow.pixel(x, y) - over.pixel(x, y);
            for (int channel = 0; channel < 3; ++channel) {
                ASSERT_GE(difference[channel], -0.002f) << x << ' ' << y;
                if (!nearBright[y * over.width + x]) {
                    // Nothing is added, but for the last bit of a half float or of a denormal one.
                    const double slack = std::max(double(over.pixel(x, y)[channel]) / 1024, std::ldexp(1.0, -14));
                    ASSERT_NEAR(difference[channel], 0, slack) << x << ' ' << y;
                }
            }
            far += nearBright[y * over.width + x] ? 0 : 1;
            added += luminance(difference);
            light += isBright(x, y) ? luminance(model.pixel(x, y)) : 0;
            largest = std::max(largest, luminance(difference));
        }
    }
    EXPECT_GT(far, over.width * over.height / 10);
    EXPECT_LT(far, over.width * over.height * 9 / 10);
    EXPECT_GT(largest, 0.1);
    // A blur moves light without adding any, but for what it spills over the edges of the picture.
    EXPECT_NEAR(added, amount * amount * light, 0.02 * added);
}

TEST_F(FilterChainsTest, softFocusMixesThePictureWithItsBlurAndLowersTheContrast)
{
    load(QStringLiteral("soft-focus"));
    const QVector<Image> images = chain->render({output("over"), output("blur", blurred), output("mix")});
    const Image &over = images[0];
    const Image &blur = images[1];
    const Image &mix = images[2];
    ASSERT_EQ(over.width, usualSize.width());
    ASSERT_EQ(blur.width, usualSize.width());
    ASSERT_EQ(mix.width, usualSize.width());
    for (int i = 0; i < mix.data.size(); ++i)
        ASSERT_NEAR(mix.data[i], 0.5f * over.data[i] + 0.5f * blur.data[i], 0.002f * (1 + mix.data[i])) << i;

    const Statistics sharp = luminanceOf(over);
    const Statistics soft = luminanceOf(mix);
    EXPECT_NEAR(soft.mean, sharp.mean, 0.01 * sharp.mean);
    EXPECT_LT(soft.deviation, 0.95 * sharp.deviation);
    const auto steepness = [](const Image &image) {
        double sum = 0;
        for (int y = 0; y < image.height; ++y) {
            for (int x = 1; x < image.width; ++x)
                sum += std::abs(luminance(image.pixel(x, y)) - luminance(image.pixel(x - 1, y)));
        }
        return sum;
    };
    // Half of each edge stays and half is blurred.
    EXPECT_LT(steepness(mix), 0.8 * steepness(over));
    EXPECT_GT(steepness(mix), 0.5 * steepness(over));
}

TEST_F(FilterChainsTest, eachTileOfTheGalleryShowsItsOperator)
{
    load(QStringLiteral("blend-gallery"));
    const QVector<Image> images = chain->render({output("source"), output("destination")});
    const Image &source = images[0];
    const Image &destination = images[1];
    const Image sheet = chain->picture();
    const int columns = 4;
    const QSize tile(160, 96);
    ASSERT_EQ(source.width, tile.width());
    ASSERT_EQ(destination.height, source.height);
    const int margin = (source.height - tile.height()) / 2;

    const auto expectTile = [&](int index, const char *name, const auto &reference) {
        const int left = index % columns * tile.width();
        const int bottom = sheet.height - (index / columns + 1) * tile.height();
        for (int y = 0; y < tile.height(); ++y) {
            for (int x = 0; x < tile.width(); ++x) {
                const auto expected = reference(source.pixel(x, y + margin), destination.pixel(x, y + margin));
                const QVector4D shown = sheet.pixel(left + x, bottom + y);
                for (int channel = 0; channel < 3; ++channel) {
                    // Rounded to half floats, then to 8 bits.
                    ASSERT_NEAR(double(shown[channel]), qBound(0.0, double(expected[channel]), 1.0), 1.5 / 255)
                        << name << ' ' << x << ' ' << y << " channel " << channel;
                }
            }
        }
    };
    expectTile(0, "source", [](const QVector4D &s, const QVector4D &) { return s; });
    expectTile(1, "destination", [](const QVector4D &, const QVector4D &d) { return d; });
    for (int mode = 0; mode <= BlendRenderPass::MultiplyKeepAlpha; ++mode) {
        const QByteArray name =
            PassRegistry::standard().find(QStringLiteral("BlendRenderPass"))->options[0].enumerators[mode].toUtf8();
        expectTile(2 + mode, name, [mode](const QVector4D &s, const QVector4D &d) {
            const auto exact = blendReference(mode, s, d);
            return QVector4D(float(exact[0]), float(exact[1]), float(exact[2]), float(exact[3]));
        });
    }
}

TEST_F(FilterChainsTest, theExposureOfAFrameFollowsTheAverageOfTheOneBefore)
{
    load(QStringLiteral("exposure"));
    const double key = 0.4;
    double exposed = 0; // The average of the picture.
    const auto expectExposed = [&](double exposure, Image *over) {
        const QVector<Image> images = chain->render({output("over"), output("expose")});
        *over = images[0];
        ASSERT_EQ(images[1].data.size(), over->data.size());
        double largest = 0;
        for (int y = 0; y < over->height; ++y) {
            for (int x = 0; x < over->width; ++x) {
                for (int channel = 0; channel < 3; ++channel) {
                    const double expected = double(over->pixel(x, y)[channel]) * exposure;
                    largest = std::max(
                        largest, std::abs(double(images[1].pixel(x, y)[channel]) - qBound(0.0, expected, 1.0)));
                }
            }
        }
        EXPECT_LT(largest, 1.5 / 255);
        exposed = luminanceOf(images[1]).mean;
    };

    Image over;
    expectExposed(1, &over);
    const double dark = luminanceOf(over).mean;
    EXPECT_LT(dark, 0.6 * key);
    expectExposed(key / dark, &over);
    EXPECT_NEAR(exposed, key, 0.03);
    const double settled = exposed;
    expectExposed(key / dark, &over);
    EXPECT_NEAR(exposed, settled, 1e-6);

    // Another scene: the first frame has the exposure of the old one, the second its own.
    for (const char *port : {"Kvz_QColor_ColorTop", "Kvz_QColor_ColorBottom"})
        ASSERT_TRUE(
            chain->chain.setValue(QStringLiteral("background"), QString::fromUtf8(port), QColor(230, 230, 230)));
    expectExposed(key / dark, &over);
    const double bright = luminanceOf(over).mean;
    EXPECT_GT(bright, 2 * dark);
    EXPECT_GT(exposed, key + 0.2);
    expectExposed(key / bright, &over);
    EXPECT_NEAR(exposed, key, 0.03);

    // The host can set the key.
    ASSERT_TRUE(chain->chain.setValue(QStringLiteral("expose"), QStringLiteral("u_Key"), 0.2f))
        << qPrintable(chain->chain.errorString());
    expectExposed(0.2 / bright, &over);
    EXPECT_NEAR(exposed, 0.2, 0.015);

    // Without a measurement the last exposure is kept.
    ASSERT_TRUE(chain->chain.setEnabled(QStringLiteral("average"), false)) << qPrintable(chain->chain.errorString());
    ASSERT_TRUE(
        chain->chain.setValue(QStringLiteral("background"), QStringLiteral("Kvz_QColor_ColorTop"), QColor(0, 0, 0)));
    for (int i = 0; i < 3; ++i)
        expectExposed(0.2 / bright, &over);
    EXPECT_LT(luminanceOf(over).mean, 0.8 * bright);
}

} // namespace Velmora::Kvz
