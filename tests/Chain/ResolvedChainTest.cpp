// SPDX-License-Identifier: MIT
// What a resolved chain answers without an OpenGL context.
#include "FakePasses.h"
#include "support/TemporaryFolder.h"

#include <Chain/ChainDescription.h>
#include <Chain/ChainLibrary.h>
#include <Chain/ResolvedChain.h>

#include <gtest/gtest.h>

namespace Velmora::Kvz {

namespace {

ChainDescription ready(const char *name)
{
    ChainDescription chain;
    QString error;
    EXPECT_TRUE(loadChain(QString::fromUtf8(name), &chain, &error)) << qPrintable(error);
    return chain;
}

const QString lights = FrameValues::lights;

} // namespace

TEST(ResolvedChainTest, readyChainsHaveNoErrorsAndPresent)
{
    for (const QString &name : readyChainNames()) {
        const ResolvedChain resolved(ready(qPrintable(name)));
        EXPECT_EQ(resolved.errors(), QStringList()) << qPrintable(name);
        EXPECT_TRUE(resolved.presents()) << qPrintable(name);
    }
}

TEST(ResolvedChainTest, whatTakesTheLightsOfTheFrameTakesLights)
{
    EXPECT_FALSE(ResolvedChain(ready("deferred")).takesLights());
    ChainDescription shadows = ready("shadows");
    EXPECT_TRUE(ResolvedChain(shadows).takesLights());
    shadows.lights.clear();
    EXPECT_TRUE(ResolvedChain(shadows).takesLights()) << "whether there are any or not";
    EXPECT_FALSE(ResolvedChain(shadows, PassRegistry::standard(), {FrameValues::model}).takesLights());
}

TEST(ResolvedChainTest, whatGathersOrComparesFramesKeepsAPast)
{
    for (const char *name : {"temporal", "full", "smaa-t2x", "smaa-4x", "exposure"})
        EXPECT_TRUE(ResolvedChain(ready(name)).keepsPast()) << name;
    for (const char *name : {"deferred", "shadows", "fxaa", "smaa-1x", "smaa-s2x"})
        EXPECT_FALSE(ResolvedChain(ready(name)).keepsPast()) << name;
    ChainDescription velocity = ready("deferred");
    ChainPass pass;
    pass.name = pass.className = QStringLiteral("VelocityRenderPass");
    velocity.passes.insert(2, pass);
    EXPECT_TRUE(ResolvedChain(velocity).keepsPast());
    velocity.passes[2].enabled = false;
    EXPECT_FALSE(ResolvedChain(velocity).keepsPast());
}

TEST(ResolvedChainTest, aConnectionToNothingTakesNoLightsAndADisabledPassNeither)
{
    PassRegistry registry;
    registry.add(fakeClass("Lit", {fakeInput(lights.toUtf8(), ValueType::Lights)}, {}));
    ChainDescription chain;
    ChainPass pass;
    pass.name = pass.className = QStringLiteral("Lit");
    chain.passes = {pass};
    EXPECT_TRUE(ResolvedChain(chain, registry).takesLights());
    chain.passes[0].enabled = false;
    EXPECT_FALSE(ResolvedChain(chain, registry).takesLights());
    chain.passes[0].enabled = true;
    chain.passes[0].connections.insert(lights, ChainSource::none());
    EXPECT_FALSE(ResolvedChain(chain, registry).takesLights());
}

TEST(ResolvedChainTest, shaderFilesAreAbsolute)
{
    TemporaryFolder folder;
    const QString file = folder.write("own.frag", "void main() { }\n");
    ChainDescription chain;
    QString error;
    folder.write("chain.json",
        R"({"passes": [{"name": "own", "class": "ShaderRenderPass", "options": {"fragment": "own.frag"}}]})");
    ASSERT_TRUE(loadChain(folder.path("chain.json"), &chain, &error)) << qPrintable(error);
    EXPECT_EQ(ResolvedChain(chain).shaderFiles(), QStringList(file));
    EXPECT_EQ(ResolvedChain(chain).description(), chain);
}

} // namespace Velmora::Kvz
