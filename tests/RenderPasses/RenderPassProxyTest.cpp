// SPDX-License-Identifier: MIT
#include "support/GLTest.h"
#include "support/PooledTextures.h"

#include <GL/DrawBuffers.h>
#include <GL/TextureManager.h>
#include <RenderPasses/RenderPassProxy.h>
#include <Scene/GPUModel.h>

#include <epoxy/gl.h>

#include <cstring>

namespace Velmora::Kvz {

namespace {

/// A pass with this many inputs and two outputs.
class ProbePass : public RenderPassProxy
{
public:
    explicit ProbePass(const QVector<QVariant> &inputs)
    {
        for (const QVariant &input : inputs)
            addInput(QStringLiteral("input"), input);
        addOutput(QStringLiteral("first"));
        addOutput(QStringLiteral("second"));
        m_outputs[0].value = 1;
        m_outputs[1].value = QVariant::fromValue<Texture *>(nullptr);
    }

    QVariant value(int input) const { return m_inputs[input].value; }
};

class RenderPassProxyTest : public GLTest
{
protected:
    PooledTextures pool;

    Texture *makePooled(int references) { return pool.take(TextureFormat::LowDynamicRange, 4, 4, references); }
};

} // namespace

TEST_F(RenderPassProxyTest, skipGivesEachTextureInputBackOnce)
{
    Texture *const once = makePooled(2);
    Texture *const twice = makePooled(3);
    ProbePass pass({QVariant::fromValue(once), QVariant::fromValue(twice), 5, QVariant::fromValue(twice)});
    pass.skip(nullptr);
    EXPECT_EQ(pool.references(once), 1);
    EXPECT_EQ(pool.references(twice), 1);
}

TEST_F(RenderPassProxyTest, skipReleasesOneReferenceAndNeverMore)
{
    Texture *const last = makePooled(1);
    ProbePass pass({QVariant::fromValue(last)});
    pass.skip(nullptr);
    EXPECT_EQ(pool.references(last), 0);
    EXPECT_EQ(TextureManager::Instance()->tempTexture(TextureFormat::LowDynamicRange, 4, 4, 1, 1), last);
    TextureManager::Instance()->releaseTempTextureRef(last, 1);
}

TEST_F(RenderPassProxyTest, skipTakesANullTextureAndOneThatThePoolDoesNotOwn)
{
    Texture own(GL_TEXTURE_2D, GL_RGBA8, 4, 4, 0, nullptr);
    ProbePass pass({QVariant::fromValue<Texture *>(nullptr), QVariant::fromValue(&own), QVariant()});
    Texture *const other = makePooled(3);
    pass.skip(nullptr);
    EXPECT_EQ(pool.references(other), 3);
    EXPECT_EQ(pool.references(&own), -1);
    EXPECT_EQ(own.width(0), 4);
}

TEST_F(RenderPassProxyTest, skipDoesNotReadATextureThatIsGone)
{
    // Memory that holds no texture any more: whoever asks it for its class follows a pointer to nowhere.
    alignas(Texture) unsigned char remains[sizeof(Texture)];
    std::memset(remains, 0x01, sizeof remains);
    auto *const gone = reinterpret_cast<Texture *>(remains);
    ProbePass pass({QVariant(qMetaTypeId<Texture *>(), &gone)});
    pass.skip(nullptr);
    EXPECT_FALSE(pass.output(0).isValid());
}

TEST_F(RenderPassProxyTest, skipLeavesInputsOfOtherTypesAlone)
{
    Texture *const texture = makePooled(2);
    DrawBuffers geometry;
    ProbePass pass({QVariant::fromValue<QObject *>(texture), QVariant::fromValue<DrawBuffers *>(&geometry),
        QVariant::fromValue<GPUModel *>(nullptr), 5, QVariantList{QVariant::fromValue(texture)}});
    pass.skip(nullptr);
    EXPECT_EQ(pool.references(texture), 2) << "only a value of exactly the type Texture* counts";
    EXPECT_EQ(pass.value(1).value<DrawBuffers *>(), &geometry);
}

TEST_F(RenderPassProxyTest, skipMakesTheOutputsInvalidAndKeepsTheInputs)
{
    Texture *const texture = makePooled(2);
    ProbePass pass({QVariant::fromValue(texture), 5});
    pass.setNumOutputUsers(0, 2);
    pass.skip(nullptr);
    EXPECT_FALSE(pass.output(0).isValid());
    EXPECT_FALSE(pass.output(1).isValid());
    EXPECT_EQ(pass.value(0).value<Texture *>(), texture);
    EXPECT_EQ(pass.value(1), QVariant(5));
    EXPECT_EQ(pool.references(texture), 1) << "nothing is added for the outputs' users";
}

} // namespace Velmora::Kvz
