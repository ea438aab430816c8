// SPDX-License-Identifier: MIT
// `kvz render` with lights and backgrounds given on the command line.
#include "KvzRun.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <Chain/ChainLibrary.h>

#include <QtGui/QColor>

#include <cmath>

namespace Velmora::Kvz {

namespace {

const QString glass = QStringLiteral(KVZ_SOURCE_DIR "/Media/Models/glass.obj");

class KvzLightTest : public testing::Test
{
protected:
    QImage picture(const QStringList &options, QStringList *errors = nullptr)
    {
        const QString file = folder.path(QStringLiteral("p.png"));
        QFile::remove(file);
        const Result result =
            run(QStringList{"render", glass, "--chain", "deferred", "--size", "160x90", "-o", file} + options);
        EXPECT_EQ(result.status, 0) << result.errors.join('\n').toStdString();
        if (errors)
            *errors = result.errors;
        else
            EXPECT_EQ(result.errors, QStringList());
        return QImage(file);
    }

    static double brightness(const QImage &image)
    {
        double sum = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x)
                sum += qGray(image.pixel(x, y));
        }
        return sum / (image.width() * image.height());
    }

    TemporaryFolder folder;
};

} // namespace

TEST_F(KvzLightTest, headlightAndAmbientLightHaveIntensities)
{
    const QStringList onBlack{"--background", "black"};
    const double usual = brightness(picture(onBlack));
    const double dim = brightness(picture(onBlack + QStringList{"--light", "headlight:intensity=0.3"}));
    const double bright = brightness(picture(onBlack + QStringList{"--light", "ambient:intensity=0.6"}));
    QStringList errors;
    const double dark = brightness(
        picture(onBlack + QStringList{"--light", "headlight:intensity=0", "--light", "ambient:intensity=0"}, &errors));
    EXPECT_EQ(errors,
        QStringList(
            "kvz: warning: " + glass + ": nothing of it stands out from the background of " + folder.path("p.png")));
    EXPECT_LT(dim, 0.8 * usual);
    EXPECT_GT(bright, 1.1 * usual);
    EXPECT_LT(dark, 1);
    // These are the default lights.
    EXPECT_EQ(
        picture(onBlack + QStringList{"--light", "headlight:intensity=0.85", "--light", "ambient:intensity=0.15"}),
        picture(onBlack));
}

TEST_F(KvzLightTest, noneDrawsTheBasicChainOfTheName)
{
    for (const char *chain : {"forward", "deferred", "transparency-lists", "transparency-weighted", "full"}) {
        const QString basic = QString::fromUtf8(chain) + "-basic";
        EXPECT_EQ(picture({"--chain", chain, "--light", "none"}), picture({"--chain", basic})) << chain;
    }
    EXPECT_NE(picture({"--chain", "wireframe-overlay", "--light", "none"}), picture({"--chain", "wireframe-overlay"}))
        << "the fixed light, where there is no such chain";
    expectLine({"render", glass, "--light", "none", "--light", "headlight", "-o", folder.path("p.png")}, 1,
        "--light none: it takes the place of headlight and ambient light; leave them out");
}

TEST_F(KvzLightTest, castersLeaveTheOtherLightsInForce)
{
    const QStringList shadows{"--chain", "shadows", "--background", "black"};
    QStringList errors;
    const double own = brightness(picture(shadows));
    const double oneCaster = brightness(picture(shadows + QStringList{"--light", "directional:-35,50"}));
    EXPECT_GT(oneCaster, 0.5 * own);
    const double dimmed = brightness(picture(shadows + QStringList{"--light", "headlight:intensity=0.2"}));
    EXPECT_LT(dimmed, 0.7 * own);
    // A light that no pass uses is reported.
    picture({"--chain", "forward-basic", "--light", "headlight:intensity=0.5"}, &errors);
    ASSERT_EQ(errors.size(), 1);
    EXPECT_EQ(errors[0],
        QStringLiteral("kvz: warning: forward-basic: none of its passes takes a headlight or ambient light"));
}

/// Shadow maps know no transparency; chains without shadows have nothing to say.
TEST_F(KvzLightTest, glassSaysThatItsShadowIsFull)
{
    const auto remarks = [this](const QString &model, const QString &chain) {
        return run({"render", model, "--size", "64x36", "--chain", chain, "-o", folder.path("p.png")}).shadowRemarks;
    };
    EXPECT_EQ(remarks(glass, "shadows"),
        QStringList("kvz: warning: " + glass + ": transparent surfaces cast shadows as if they were opaque"));
    EXPECT_EQ(remarks(glass, "forward"), QStringList());
    EXPECT_EQ(remarks(folder.write("cube.obj", cubeObj()), "shadows"), QStringList());
}

TEST_F(KvzLightTest, aBackgroundIsAColourOrNone)
{
    const QImage orange = picture({"--background", "#e67814"});
    EXPECT_EQ(QColor(orange.pixel(2, 2)), QColor("#e67814"));
    EXPECT_EQ(picture({"--background", "#e67814", "--chain", "fxaa"}).pixel(2, 2), orange.pixel(2, 2));
    EXPECT_EQ(picture({"--background", "#e67814", "--chain", "smaa-s2x"}).pixel(2, 2), orange.pixel(2, 2));
    EXPECT_EQ(picture({"--background", "#e67814", "--chain", "forward-basic"}).pixel(2, 2), orange.pixel(2, 2));

    // Straight alpha: laid over a colour it gives the picture with that background.
    const QImage cutOut = picture({"--background", "none"});
    ASSERT_TRUE(cutOut.hasAlphaChannel());
    EXPECT_EQ(qAlpha(cutOut.pixel(2, 2)), 0);
    int opaque = 0, translucent = 0;
    double worst = 0;
    for (int y = 0; y < cutOut.height(); ++y) {
        for (int x = 0; x < cutOut.width(); ++x) {
            const QRgb pixel = cutOut.pixel(x, y);
            const double alpha = qAlpha(pixel) / 255.0;
            opaque += alpha == 1;
            translucent += alpha > 0 && alpha < 1;
            const QColor behind("#e67814");
            const double laid[] = {alpha * qRed(pixel) + (1 - alpha) * behind.red(),
                alpha * qGreen(pixel) + (1 - alpha) * behind.green(),
                alpha * qBlue(pixel) + (1 - alpha) * behind.blue()};
            const QRgb shown = orange.pixel(x, y);
            const int found[] = {qRed(shown), qGreen(shown), qBlue(shown)};
            for (int i = 0; i < 3; ++i)
                worst = std::max(worst, std::abs(laid[i] - found[i]));
        }
    }
    EXPECT_GT(opaque, 500);
    EXPECT_GT(translucent, 100);
    EXPECT_LE(worst, 2.01);
}

TEST_F(KvzLightTest, whatCannotBeIsRefusedInOneLine)
{
    const QString file = folder.path(QStringLiteral("p.png"));
    expectLine({"render", glass, "--background", "reddish", "-o", file}, 1,
        "--background reddish: expected a colour, such as white or #ff8800, none, environment, or an image file");
    expectLine({"render", glass, "--background", "none", "--chain", "fxaa", "-o", file}, 1,
        "--background none: the pass smooth (FastApproximateAntiAliasingRenderPass) loses the alpha of its picture; "
        "choose an opaque background, or disable it");
    expectLine({"render", glass, "--background", "none", "--chain", "smaa-s2x", "-o", file}, 1,
        "--background none: the pass frame (MultisampleForwardRenderPass) lays the model on an opaque background; "
        "choose an opaque background, or a chain with a CompositeRenderPass, such as deferred");
    const QString jpeg = folder.path(QStringLiteral("p.jpg"));
    expectLine({"render", glass, "--background", "none", "-o", jpeg}, 1,
        "-o " + jpeg + ": pictures of this type have no alpha, which --background none needs; write a PNG");
    EXPECT_FALSE(QFile::exists(file));
    EXPECT_FALSE(QFile::exists(jpeg));
}

} // namespace Velmora::Kvz
