// SPDX-License-Identifier: MIT
// The ready chain of ambient obscurance, on the still life and on a scanned model.
#include "support/GLTest.h"
#include "support/ModelChain.h"

#include <GL/GLStatistics.h>
#include <GL/TextureManager.h>

#include <QtGui/QVector3D>

#include <cmath>

namespace Velmora::Kvz {

namespace {

const QSize size(240, 180);
const QString stillLife = QStringLiteral(KVZ_SOURCE_DIR "/Media/Models/still-life.obj");
const QString bunny = QStringLiteral("/usr/share/glmark2/models/bunny.obj"); // scripts/setup installs it.
const char frame[] = "Kvz_KvzTexture*_Frame";
const char blurred[] = "Kvz_KvzTexture*_Obscurance";

ChainOutput output(const char *pass, const char *port = frame)
{
    return {QString::fromUtf8(pass), QString::fromUtf8(port)};
}

double redMean(const Image &image)
{
    double sum = 0;
    for (int i = 0; i < image.data.size(); i += 4)
        sum += double(image.data[i]);
    return sum / (image.data.size() / 4.0);
}

} // namespace

class ObscuranceChainTest : public GLTest
{
protected:
    void load(const QString &file, const QString &name = QStringLiteral("ambient-obscurance"))
    {
        chain.reset();
        chain = std::make_unique<ModelChain>(name, importScene(file).build(), size);
        CameraView view;
        view.distance = 0.85f;
        chain->look(view);
    }

    void setValue(const char *pass, const char *port, const QVariant &value)
    {
        ASSERT_TRUE(chain->chain.setValue(QString::fromUtf8(pass), QString::fromUtf8(port), value))
            << qPrintable(chain->chain.errorString());
    }

    std::unique_ptr<ModelChain> chain;
};

TEST_F(ObscuranceChainTest, darkensAllLightButHighlightsByTheBlurredObscurance)
{
    for (const QString &model : {stillLife, bunny}) {
        SCOPED_TRACE(qPrintable(model));
        load(model);
        ASSERT_TRUE(chain->chain.connect(
            QStringLiteral("shading"), QStringLiteral("Kvz_KvzTexture*_Background"), ChainSource::none()))
            << qPrintable(chain->chain.errorString());
        chain->render(); // In the first frame the normals do not yet have the filters that the blur sets.
        const QVector<Image> obscurances = chain->render({output("obscurance"), output("blur-y", blurred)});
        saveForViewing(obscurances[1], QStringLiteral("obscurance-blurred"));
        saveForViewing(chain->picture(), QStringLiteral("obscurance-applied"));
        const auto shading = [&](float strength) {
            setValue("shading", "Kvz_float_ObscuranceStrength", strength);
            return chain->render({output("shading")})[0];
        };
        const Image lit = shading(1);
        const Image open = shading(0);
        const Image half = shading(0.5f);
        // The same without highlights.
        ASSERT_TRUE(chain->chain.connect(
            QStringLiteral("shading"), QStringLiteral("Kvz_KvzTexture*_Specular"), ChainSource::none()))
            << qPrintable(chain->chain.errorString());
        const Image matt = shading(1);
        const Image mattOpen = shading(0);
        int dark = 0, unobscured = 0, highlights = 0;
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const float light = obscurances[1].pixel(x, y).x();
                for (int channel = 0; channel < 3; ++channel) {
                    const float diffuse = mattOpen.pixel(x, y)[channel];
                    const float whole = open.pixel(x, y)[channel];
                    ASSERT_NEAR(matt.pixel(x, y)[channel], diffuse * light, 0.005) << x << ' ' << y;
                    // Where the sum was clamped, the highlight is not known.
                    if (whole == 1)
                        continue;
                    highlights += whole - diffuse > 0.1f && light < 0.9f ? 1 : 0;
                    ASSERT_NEAR(lit.pixel(x, y)[channel], diffuse * light + whole - diffuse, 0.009) << x << ' ' << y;
                    ASSERT_NEAR(half.pixel(x, y)[channel], (lit.pixel(x, y)[channel] + whole) / 2, 0.005);
                }
                ASSERT_EQ(lit.pixel(x, y).w(), open.pixel(x, y).w()) << x << ' ' << y << ": opacity stays";
                if (open.pixel(x, y).w() > 0) {
                    dark += light < 0.6f ? 1 : 0;
                    unobscured += light > 0.97f ? 1 : 0;
                }
            }
        }
        EXPECT_GT(dark, 200);
        EXPECT_GT(unobscured, 2000);
        EXPECT_GT(highlights, 50);
        // A blur moves the darkness and hardly changes its amount.
        EXPECT_NEAR(1 - redMean(obscurances[1]), 1 - redMean(obscurances[0]), 0.15 * (1 - redMean(obscurances[0])));
    }
}

TEST_F(ObscuranceChainTest, looksAlikeAtAnyScale)
{
    const auto obscuranceAt = [&](float extent) {
        ImportedScene scene = importScene(stillLife);
        EXPECT_TRUE(scaleInto(&scene, extent));
        chain.reset();
        chain = std::make_unique<ModelChain>(QStringLiteral("ambient-obscurance"), scene.build(), size);
        chain->look(CameraView());
        return chain->render({output("obscurance")})[0];
    };
    const Image expected = obscuranceAt(4);
    int dark = 0;
    for (int i = 0; i < expected.data.size(); i += 4)
        dark += expected.data[i] < 0.6f ? 1 : 0;
    EXPECT_GT(dark, 100);
    for (const float extent : {0.02f, 1.0f, 15.0f}) {
        SCOPED_TRACE(extent);
        EXPECT_LT(meanError(obscuranceAt(extent), expected), 0.5);
    }
    // A fixed radius does not.
    setValue("obscurance", "Kvz_float_SAORadius", 0.3f);
    EXPECT_GT(meanError(chain->render({output("obscurance")})[0], expected), 2);
}

// Both draws of the blur, each against a Gaussian over the taps near the plane of the surface.
TEST_F(ObscuranceChainTest, blursOnlyWithinASurface)
{
    load(stillLife);
    const QVector<Image> images = chain->render({output("obscurance"), output("blur-x", blurred),
        output("blur-y", blurred), output("positions"), output("geometry", "Kvz_KvzTexture*_Normal")});
    const Image &positions = images[3];
    const Image &normals = images[4];
    const double gauss[] = {0.153170, 0.144893, 0.122649, 0.092902, 0.062970};
    const auto compare = [&](const Image &from, const Image &to, const QPoint &step) {
        int cut = 0; // Pixels that skip taps.
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const auto texel = [&](const Image &image, int i) {
                    return image
                        .pixel(qBound(0, x + i * step.x(), size.width() - 1),
                            qBound(0, y + i * step.y(), size.height() - 1))
                        .toVector3D();
                };
                // Tap 1 lies between the texels 1 and 2, tap 2 between 3 and 4, and so on.
                const auto tap = [&](const Image &image, int i) {
                    const int inner = i < 0 ? 2 * i + 1 : 2 * i - 1;
                    return i == 0 ? texel(image, 0) : (texel(image, inner) + texel(image, 2 * i)) / 2;
                };
                const QVector3D centre = texel(positions, 0);
                const QVector3D normal = texel(normals, 0);
                double sum = 0, weights = 0, all = 0;
                for (int i = -4; i <= 4; ++i) {
                    const float height = QVector3D::dotProduct(tap(positions, i) - centre, normal);
                    const double near =
                        i == 0 ? 1 : std::max(0.0, 1 - std::abs(double(height)) / (-0.01 * double(centre.z())));
                    sum += gauss[std::abs(i)] * near * double(tap(from, i).x());
                    weights += gauss[std::abs(i)] * near;
                    all += gauss[std::abs(i)];
                }
                // Rounding to 8 bits, and heights in single precision.
                ASSERT_NEAR(double(to.pixel(x, y).x()), sum / weights, 1.0 / 255) << x << ' ' << y;
                cut += weights < 0.7 * all ? 1 : 0;
            }
        }
        EXPECT_GT(cut, 500);
    };
    compare(images[0], images[1], QPoint(1, 0));
    compare(images[1], images[2], QPoint(0, 1));
}

TEST_F(ObscuranceChainTest, turnedOffItIsThePictureWithoutIt)
{
    load(stillLife, QStringLiteral("deferred"));
    chain->render({});
    const Image plain = chain->picture();
    load(stillLife);
    chain->render({});
    EXPECT_GT(maximumDifference(plain, chain->picture()), 0.2);

    setValue("shading", "Kvz_float_ObscuranceStrength", 0.0f);
    chain->render({});
    EXPECT_LE(maximumDifference(plain, chain->picture()), 1.01 / 255);
    setValue("shading", "Kvz_float_ObscuranceStrength", 1.0f);

    // With the bias that turns the pass off, or without the pass, the missing image must not count as black.
    setValue("obscurance", "Kvz_float_SAOBias", 0.0f);
    chain->render({});
    EXPECT_LE(maximumDifference(plain, chain->picture()), 1.01 / 255);
    setValue("obscurance", "Kvz_float_SAOBias", 0.01f);
    chain->render({});
    EXPECT_GT(maximumDifference(plain, chain->picture()), 0.2);
    ASSERT_TRUE(chain->chain.setEnabled(QStringLiteral("obscurance"), false)) << qPrintable(chain->chain.errorString());
    chain->render({});
    EXPECT_LE(maximumDifference(plain, chain->picture()), 1.01 / 255);
}

TEST_F(ObscuranceChainTest, takesADivider)
{
    load(bunny);
    const Image full = chain->render({output("blur-y", blurred)})[0];
    setValue("obscurance", "Kvz_float_ResolutionDivider", 2.0f);
    const QVector<Image> half = chain->render({output("obscurance"), output("blur-y", blurred)});
    EXPECT_EQ(QSize(half[0].width, half[0].height), size / 2);
    EXPECT_EQ(QSize(half[1].width, half[1].height), size);
    double difference = 0, darkness = 0;
    for (int i = 0; i < full.data.size(); i += 4) {
        difference += std::abs(double(full.data[i]) - double(half[1].data[i]));
        darkness += 1 - double(full.data[i]);
    }
    EXPECT_LT(difference, 0.35 * darkness);
    EXPECT_NEAR(redMean(half[1]), redMean(full), 0.01);
}

TEST_F(ObscuranceChainTest, reusesItsTextures)
{
    load(stillLife);
    const int references = TextureManager::Instance()->poolStatistics().references;
    // Creates what the device and the pool keep, with and without obscurance.
    for (float bias : {0.01f, 0.0f, 0.01f}) {
        setValue("obscurance", "Kvz_float_SAOBias", bias);
        chain->render({});
    }
    const qint64 bytes = TextureManager::Instance()->poolStatistics().bytes;
    const GLObjectCounts objects = glObjectCounts();
    for (int i = 0; i < 20; ++i) {
        setValue("obscurance", "Kvz_float_SAOBias", i % 3 ? 0.01f : 0.0f);
        chain->render({});
    }
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().bytes, bytes);
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().references, references);
    EXPECT_TRUE(glObjectCounts() == objects);
}

} // namespace Velmora::Kvz
