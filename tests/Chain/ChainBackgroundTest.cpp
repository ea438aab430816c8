// SPDX-License-Identifier: MIT
// A colour, or transparency, instead of a chain's own background.
#include "support/GLTest.h"
#include "support/ModelChain.h"

#include <Chain/ChainBackground.h>
#include <Chain/ChainLibrary.h>
#include <Chain/ChainValidation.h>

#include <QtGui/QColor>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

const QSize size(160, 120);
const QColor nothing(0, 0, 0, 0);
const QColor orange(230, 120, 20);
const QString frame = QStringLiteral("Kvz_KvzTexture*_Frame");

ChainDescription ready(const QString &name)
{
    ChainDescription chain;
    QString error;
    EXPECT_TRUE(loadChain(name, &chain, &error)) << qPrintable(error);
    return chain;
}

ChainDescription readyWith(const QString &name, const QColor &colour)
{
    ChainDescription chain = ready(name);
    QString error;
    EXPECT_TRUE(setBackground(&chain, colour, &error)) << qPrintable(error);
    for (const ChainFinding &finding : validateChain(chain))
        ADD_FAILURE() << qPrintable(name) << ": " << qPrintable(finding.toString());
    return chain;
}

QString refusal(const QString &name, const QColor &colour)
{
    const ChainDescription before = ready(name);
    ChainDescription chain = before;
    QString error;
    EXPECT_FALSE(setBackground(&chain, colour, &error)) << qPrintable(name);
    EXPECT_EQ(chain, before) << "nothing changes";
    return error;
}

bool hasClass(const ChainDescription &chain, const char *className)
{
    return std::any_of(chain.passes.begin(), chain.passes.end(),
        [&](const ChainPass &pass) { return pass.className == QLatin1String(className); });
}

/// The ready chains that draw a lit model over their own background.
QStringList shadingChains()
{
    QStringList names = readyChainNames();
    for (const char *other : {"blend-gallery", "picking", "primitives"})
        names.removeAll(QLatin1String(other));
    return names;
}

} // namespace

TEST(ChainBackgroundTest, backgroundPassesAreTakenOutWithWhatFeedsThem)
{
    const ChainDescription deferred = readyWith(QStringLiteral("deferred"), nothing);
    EXPECT_FALSE(hasClass(deferred, "BackgroundGradientRenderPass"));
    const ChainPass &over = deferred.passes[deferred.findPass(QStringLiteral("over"))];
    EXPECT_EQ(over.connections[QStringLiteral("Kvz_KvzTexture*_Background")], ChainSource::none());
    EXPECT_EQ(over.values[QStringLiteral("Kvz_QColor_BackgroundColor")], QVariant(nothing));

    const ChainDescription full = readyWith(QStringLiteral("full"), orange);
    EXPECT_FALSE(hasClass(full, "SkyboxRenderPass"));
    EXPECT_FALSE(hasClass(full, "TextureLoaderRenderPass")) << "the panorama went to the sky alone";
    EXPECT_TRUE(hasClass(full, "CameraJitterPass"));

    // A pass that draws into a frame is left out of its way.
    const ChainDescription backdrop = readyWith(QStringLiteral("backdrop"), orange);
    EXPECT_EQ(backdrop.passes[backdrop.findPass(QStringLiteral("over"))].connections[frame],
        ChainSource::output(QStringLiteral("shading"), frame));
}

TEST(ChainBackgroundTest, aColourWorksInEveryChainThatShades)
{
    for (const QString &name : shadingChains()) {
        if (name != QLatin1String("skybox-cubemap-basic") && name != QLatin1String("full-basic"))
            readyWith(name, orange);
    }
    EXPECT_EQ(refusal(QStringLiteral("full-basic"), orange),
        QStringLiteral("the chain full-basic has neither a CompositeRenderPass nor a gradient to give a colour to"));
}

TEST(ChainBackgroundTest, noneIsRefusedWhereAlphaIsLost)
{
    EXPECT_EQ(refusal(QStringLiteral("fxaa"), nothing),
        QStringLiteral("the pass smooth (FastApproximateAntiAliasingRenderPass) loses the alpha of its picture; choose "
                       "an opaque background, or disable it"));
    EXPECT_TRUE(refusal(QStringLiteral("depth-of-field"), nothing).startsWith(QStringLiteral("the pass lens (")));
    EXPECT_TRUE(refusal(QStringLiteral("smaa-t2x"), nothing).startsWith(QStringLiteral("the pass smooth (")));
    const QString way =
        QStringLiteral("; choose an opaque background, or a chain with a CompositeRenderPass, such as deferred");
    EXPECT_EQ(refusal(QStringLiteral("smaa-4x"), nothing),
        "the pass smooth (SMAARenderPass) loses the alpha of its picture" + way);
    EXPECT_EQ(refusal(QStringLiteral("smaa-s2x"), QColor(255, 255, 255, 128)),
        "the pass frame (MultisampleForwardRenderPass) lays the model on an opaque background" + way)
        << "half of a colour too";
    EXPECT_EQ(refusal(QStringLiteral("forward-basic"), nothing),
        "the pass hole (BlendRenderPass) lays the model on an opaque background" + way);
    EXPECT_EQ(refusal(QStringLiteral("full-basic"), nothing),
        "the pass sky (SkyboxRenderPass) lays the model on an opaque background" + way);
    EXPECT_EQ(
        refusal(QStringLiteral("primitives"), nothing), "no pass of the chain primitives composites with alpha" + way);
}

class ChainBackgroundPictureTest : public GLTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        model = importScene(QStringLiteral(KVZ_SOURCE_DIR "/Media/Models/glass.obj")).build();
    }

    Image picture(const ChainDescription &description)
    {
        ModelChain chain(description, model, size);
        chain.render();
        return chain.picture();
    }

    /// Opaque and transparent items with empty places between them.
    QSharedPointer<GPUModel> model;
};

TEST_F(ChainBackgroundPictureTest, aColourLaidBehindNothingIsTheColoursPicture)
{
    for (const QString &name : shadingChains()) {
        ChainDescription chain = ready(name);
        QString error;
        if (!setBackground(&chain, nothing, &error))
            continue;
        // Random jitter would make every picture different.
        chain.passes.erase(
            std::remove_if(chain.passes.begin(), chain.passes.end(),
                [](const ChainPass &pass) { return pass.className == QLatin1String("CameraJitterPass"); }),
            chain.passes.end());
        ChainDescription coloured = chain;
        ASSERT_TRUE(setBackground(&coloured, orange, &error)) << qPrintable(error);
        const Image without = picture(chain);
        const Image with = picture(coloured);
        saveForViewing(without, QStringLiteral("background-none-%1").arg(name));
        int empty = 0, partial = 0, wrong = 0;
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const QVector4D pixel = without.pixel(x, y);
                empty += pixel.w() == 0;
                partial += pixel.w() > 0 && pixel.w() < 1;
                const QVector4D laid = pixel
                    + (1 - pixel.w())
                        * QVector4D(float(orange.redF()), float(orange.greenF()), float(orange.blueF()), 1);
                wrong += (laid - with.pixel(x, y)).toVector3D().length() > 3.0f / 255;
            }
        }
        EXPECT_GT(empty, 1000) << qPrintable(name);
        // Steps after the compositing that are not linear in colour, such as a glow, give another result.
        if (name != QLatin1String("glow") && name != QLatin1String("exposure") && !name.startsWith("smaa")) {
            EXPECT_GT(partial, 50) << qPrintable(name);
            EXPECT_LE(wrong, size.width() * size.height() / 50) << qPrintable(name);
        }
    }
}

} // namespace Velmora::Kvz
