// SPDX-License-Identifier: MIT
// The shadow passes in a chain, on the still life.
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/ModelChain.h"

#include <Chain/FrameValues.h>
#include <Chain/RenderChain.h>
#include <GL/GLStatistics.h>
#include <Host/Camera.h>
#include <Host/TextureCapture.h>
#include <Scene/ShadowMapManager.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

const QString maps = QStringLiteral("maps");
const QString data = QStringLiteral("Kvz_QVariant_ShadowMapData");
constexpr int mapSize = 64;

} // namespace

class ShadowChainTest : public GLTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        model = importScene(QStringLiteral(KVZ_SOURCE_DIR "/Media/Models/still-life.obj")).build();
        spot.type = ShadowMapManager::Light::Spot;
        const QVector3D center = (model->sceneBounds().first + model->sceneBounds().second) / 2;
        spot.position = center + QVector3D(3, 5, 4);
        spot.direction = center - spot.position;
        spot.range = 30;
        sun.direction = {-1, -2, -0.5f};
    }
    void TearDown() override
    {
        chain.reset();
        model.clear();
        GLTest::TearDown();
    }

    void setChain(const QString &className)
    {
        ChainDescription description;
        ChainPass pass;
        pass.name = maps;
        pass.className = className;
        pass.values.insert(QStringLiteral("Kvz_QSize_MapSize"), QSize(mapSize, mapSize));
        description.passes = {pass};
        chain = std::make_unique<RenderChain>();
        ASSERT_TRUE(chain->setDescription(description)) << qPrintable(chain->errorString());
        ASSERT_TRUE(chain->addExport(QStringLiteral("maps"), {maps, data}));
        QMatrix4x4 camera;
        camera.lookAt({4, 5, 9}, {0, 1, 0}, {0, 1, 0});
        QMatrix4x4 projection;
        projection.perspective(40, 4.0f / 3.0f, 0.5f, 40);
        chain->setFrameValue(FrameValues::viewport, QRect(0, 0, 64, 48));
        chain->setCamera(camera, projection);
        chain->setModel(model.data());
        chain->setFrameValue(FrameValues::lights, QVariantList{QVariant::fromValue(&sun), QVariant::fromValue(&spot)});
    }

    QSharedPointer<GPUModel> model;
    ShadowMapManager::Light sun;
    ShadowMapManager::Light spot;
    std::unique_ptr<RenderChain> chain;
};

TEST_F(ShadowChainTest, theLayersAreCapturedAsAContactSheet)
{
    for (const char *className : {"ShadowMapRenderPass", "ShadowMapRenderPass2"}) {
        SCOPED_TRACE(className);
        setChain(QString::fromUtf8(className));
        ASSERT_TRUE(chain->requestCapture({maps, data}));
        ASSERT_TRUE(chain->renderFrame()) << qPrintable(chain->errorString());
        const QVector<RenderChain::Capture> captures = chain->takeCaptures();
        ASSERT_EQ(captures.size(), 1);
        // Three cascades and the spot light, two by two.
        const QImage sheet = captures[0].image;
        ASSERT_EQ(sheet.size(), QSize(2 * mapSize + captureGap(), 2 * mapSize + captureGap()));
        for (int layer = 0; layer < 4; ++layer) {
            int filled = 0, empty = 0;
            for (int y = 0; y < mapSize; ++y) {
                for (int x = 0; x < mapSize; ++x) {
                    const int step = mapSize + captureGap();
                    const QColor color = sheet.pixelColor(layer % 2 * step + x, layer / 2 * step + y);
                    EXPECT_EQ(color.alpha(), 255);
                    ++(color.red() > 0 ? filled : empty);
                }
            }
            EXPECT_GT(filled, 200) << layer;
            EXPECT_GT(empty, 50) << layer;
        }
        chain->requestAllCaptures();
        ASSERT_TRUE(chain->renderFrame());
        EXPECT_EQ(chain->takeCaptures().size(), 1);
        EXPECT_EQ(chain->exportedValue(QStringLiteral("maps")).value<QObject *>()->metaObject(),
            &ShadowMapManager::RenderData::staticMetaObject);
    }
}

TEST_F(ShadowChainTest, noLightsGiveNoPicture)
{
    setChain(QStringLiteral("ShadowMapRenderPass"));
    chain->setFrameValue(FrameValues::lights, QVariantList());
    ASSERT_TRUE(chain->requestCapture({maps, data}));
    ASSERT_TRUE(chain->renderFrame());
    EXPECT_TRUE(chain->takeCaptures().value(0).image.isNull());
}

TEST_F(ShadowChainTest, aPassWithoutAModelIsSkippedWithOneLine)
{
    for (const char *className : {"ShadowMapRenderPass", "ShadowMapRenderPass2"}) {
        SCOPED_TRACE(className);
        setChain(QString::fromUtf8(className));
        chain->setModel(nullptr);
        for (int i = 0; i < 2; ++i)
            ASSERT_TRUE(chain->renderFrame()) << qPrintable(chain->errorString());
        const QStringList lines = log.takeWarnings();
        ASSERT_EQ(lines.size(), 1);
        EXPECT_TRUE(lines[0].endsWith(QStringLiteral("pass \"maps\" is skipped: Kvz_KvzGPUModel*_Geometry is null")))
            << qPrintable(lines[0]);
        EXPECT_FALSE(chain->exportedValue(QStringLiteral("maps")).isValid());
    }
}

TEST_F(ShadowChainTest, theHostKeepsTheMapsOfAFrameThatDidNotChange)
{
    setChain(QStringLiteral("ShadowMapRenderPass2"));
    ASSERT_TRUE(chain->renderFrame());
    ASSERT_TRUE(chain->setValue(maps, QStringLiteral("Kvz_bool_Dirty"), false));
    {
        GLCallRecorder<&epoxy_glDrawElements> draws;
        ASSERT_TRUE(chain->renderFrame());
        EXPECT_EQ(draws.calls.size(), 0u);
    }
    ASSERT_TRUE(chain->setValue(maps, QStringLiteral("Kvz_bool_Dirty"), true));
    GLCallRecorder<&epoxy_glDrawElements> draws;
    ASSERT_TRUE(chain->renderFrame());
    EXPECT_GT(draws.calls.size(), 0u);
}

TEST_F(ShadowChainTest, nothingStaysWhenTheChainGoes)
{
    const auto renderOnce = [this] {
        for (const char *className : {"ShadowMapRenderPass", "ShadowMapRenderPass2"}) {
            setChain(QString::fromUtf8(className));
            EXPECT_TRUE(chain->renderFrame());
            chain.reset();
        }
    };
    renderOnce();
    const GLObjectCounts before = glObjectCounts();
    renderOnce();
    EXPECT_TRUE(glObjectCounts() == before);
}

} // namespace Velmora::Kvz
