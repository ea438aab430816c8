// SPDX-License-Identifier: MIT
#include <Chain/ChainDescription.h>
#include <Chain/ChainLibrary.h>
#include <Chain/ChainValidation.h>
#include <Chain/LinearLight.h>
#include <Chain/ResolvedChain.h>

#include <QtGui/QColor>

#include <gtest/gtest.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

const QString frame = QStringLiteral("Kvz_KvzTexture*_Frame");
const QString linear = QStringLiteral("Kvz_KvzTexture*_Linear");
const QString colourPort = QStringLiteral("Kvz_QColor_BackgroundColor");

ChainPass pass(const char *className, const QString &name)
{
    ChainPass result;
    result.className = className;
    result.name = name;
    return result;
}

/// A model, tone mapped, smoothed, and laid over a shadow and a colour.
ChainDescription product()
{
    ChainDescription chain;
    chain.name = "product";
    chain.passes = {pass("SurfaceRenderPass", "surface"), pass("LitDeferredRenderPass", "model"),
        pass("ToneMapRenderPass", "tone"), pass("CutoutAntiAliasingRenderPass", "smooth"),
        pass("GroundShadowRenderPass", "ground"), pass("CompositeRenderPass", "over"),
        pass("TextureToScreenRenderPass", "screen")};
    chain.passes[3].values["Kvz_bool_RenderInHDR"] = false;
    chain.passes[5].values[colourPort] = QStringLiteral("#80ff00");
    chain.passes[5].connections[frame] = ChainSource::output("smooth", frame);
    chain.passes[5].connections["Kvz_KvzTexture*_Background"] = ChainSource::output("ground", "Kvz_KvzTexture*_Ground");
    chain.passes[6].connections["Kvz_KvzTexture*_Texture"] = ChainSource::output("over", frame);
    return chain;
}

} // namespace

TEST(LinearLightTest, whatTakesDisplayValuesTakesLight)
{
    ChainDescription chain = product();
    QString error;
    ASSERT_TRUE(setLinearLight(&chain, &error)) << qPrintable(error);
    EXPECT_EQ(chain.passes[3].connections[frame], ChainSource::output("tone", linear));
    EXPECT_EQ(chain.passes[3].values["Kvz_bool_RenderInHDR"], true);
    EXPECT_EQ(chain.passes[4].values["Kvz_bool_DisplayValues"], false);
    const auto colour = chain.passes[5].values[colourPort].value<QColor>();
    EXPECT_NEAR(colour.redF(), 0.21586, 1e-4) << "128, decoded";
    EXPECT_NEAR(colour.greenF(), 1, 1e-4);
    EXPECT_EQ(chain.passes[2], product().passes[2]) << "the tone mapper itself stays";
    EXPECT_TRUE(endsInLight(ResolvedChain(chain)));
    EXPECT_FALSE(endsInLight(ResolvedChain(product())));
    EXPECT_EQ(ResolvedChain(chain).errors(), QStringList());
}

TEST(LinearLightTest, aGradientBehindTheModelIsDecodedAndOneInTheLightIsNot)
{
    ChainDescription chain = product();
    chain.passes.insert(4, pass("GradientRenderPass", "backdrop"));
    chain.passes[4].values["Kvz_QColor_ColorTop"] = QStringLiteral("#808080");
    chain.passes[6].connections["Kvz_KvzTexture*_Background"] = ChainSource::output("backdrop", frame);
    // Another one lies in the light that is mapped.
    chain.passes.prepend(pass("GradientRenderPass", "within"));
    chain.passes[0].values["Kvz_QColor_ColorTop"] = QStringLiteral("#808080");
    chain.passes[2].connections["Kvz_KvzTexture*_Background"] = ChainSource::output("within", frame);
    QString error;
    ASSERT_TRUE(setLinearLight(&chain, &error)) << qPrintable(error);
    EXPECT_EQ(chain.passes[0].values["Kvz_QColor_ColorTop"], QStringLiteral("#808080"));
    const ChainPass &backdrop = chain.passes[chain.findPass("backdrop")];
    EXPECT_NEAR(backdrop.values["Kvz_QColor_ColorTop"].value<QColor>().redF(), 0.21586, 1e-4);
    EXPECT_NEAR(backdrop.values["Kvz_QColor_ColorBottom"].value<QColor>().redF(), 0.31855, 1e-4) << "153 by default";
}

TEST(LinearLightTest, anImageBehindDisplayValuesIsRefused)
{
    ChainDescription chain = product();
    chain.passes.insert(4, pass("TextureLoaderRenderPass", "photograph"));
    chain.passes[6].connections["Kvz_KvzTexture*_Background"] =
        ChainSource::output("photograph", "Kvz_KvzTexture*_Texture");
    const ChainDescription before = chain;
    QString error;
    EXPECT_FALSE(setLinearLight(&chain, &error));
    EXPECT_EQ(error,
        "the image that the pass photograph (TextureLoaderRenderPass) lays behind it holds display values, not light; "
        "leave "
        "it out of files of light");
    EXPECT_EQ(chain, before);
}

TEST(LinearLightTest, chainsWithoutToneMappingStayAsTheyAre)
{
    for (const QString &name : readyChainNames()) {
        ChainDescription chain;
        QString error;
        ASSERT_TRUE(loadChain(name, &chain, &error));
        const bool maps = std::any_of(chain.passes.begin(), chain.passes.end(),
            [](const ChainPass &each) { return each.className == QLatin1String("ToneMapRenderPass"); });
        const ChainDescription before = chain;
        EXPECT_EQ(setLinearLight(&chain, &error), maps) << qPrintable(name);
        EXPECT_EQ(error, QString()) << qPrintable(name);
        EXPECT_EQ(chain == before, !maps) << qPrintable(name);
    }
}

} // namespace Velmora::Kvz
