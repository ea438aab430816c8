// SPDX-License-Identifier: MIT
// What both shadow passes have in common. Each also has a test file of its own.
#include "ShadowPassFixture.h"
#include "support/ChangedShaders.h"
#include "support/GLCallRecorder.h"

#include <GL/AutoBinder.h>
#include <GL/FramebufferObject.h>
#include <GL/GLStatistics.h>
#include <Scene/InstanceDataCollection.h>
#include <Scene/InstanceDataRegistry.h>

#include <QtCore/QSize>

#include <epoxy/gl.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

using RenderData = ShadowMapManager::RenderData;

struct PassNames
{
    template <typename Pass> static std::string GetName(int) { return ShadowPassTraits<Pass>::className; }
};

} // namespace

using BothPasses = testing::Types<ShadowMapRenderPass, ShadowMapRenderPass2>;
TYPED_TEST_SUITE(ShadowPassTest, BothPasses, PassNames);

TYPED_TEST(ShadowPassTest, publishesItsOwnData)
{
    this->buildScene();
    this->addLights();
    EXPECT_FALSE(this->pass->output(0).isValid());
    this->render(0);
    EXPECT_STREQ(this->pass->output(0).typeName(), TestFixture::Traits::outputType);
    RenderData *const data = renderDataOf(*this->pass);
    ASSERT_TRUE(data);
    EXPECT_EQ(data->layerCount, 8);
    ASSERT_TRUE(data->projectionTexture());
    EXPECT_EQ(data->projectionTexture()->internalFormat(0), GL_RG32F);
    this->run(*this->pass);
    EXPECT_EQ(renderDataOf(*this->pass), data);
    this->pass->skip(nullptr);
    EXPECT_FALSE(this->pass->output(0).isValid());
}

TYPED_TEST(ShadowPassTest, allLayersOfAllLightsAreWhatRaysMeet)
{
    this->buildScene();
    this->addLights();
    this->setView(*this->pass);
    this->render(0);
    EXPECT_EQ(renderDataOf(*this->pass)->layerCount, 10);
    EXPECT_EQ(layersOf(this->array()), 10);
    this->expectRayCast(*this->pass, this->bias);
}

TYPED_TEST(ShadowPassTest, featureBitsDecideWhatCastsAndFromWhichSide)
{
    this->addSpot();
    this->add(wallMesh(), placedAt({0, 0, -4}, {0.5f, 0.5f, 1}), GPUModel::NoShadowA);
    this->add(wallMesh(), placedAt({0, 0, -4}, {0.5f, 0.5f, 1}), GPUModel::NoShadowB | GPUModel::DoubleSided);
    this->add(wallMesh(), this->turnedWall());
    this->add(wallMesh(), placedAt({0, 0, -7}, {3, 3, 1}), 0x0f00000000000000 | 8);
    this->build();
    this->expectAxisDepth(*this->pass, this->render(0)[0], 7, this->bias);
    this->add(wallMesh(), this->turnedWall(), GPUModel::DoubleSided);
    this->build();
    this->expectAxisDepth(*this->pass, this->render(0)[0], 5, this->bias);
}

TYPED_TEST(ShadowPassTest, doubleSidedItemsAreDrawnWholeWhateverCullingWas)
{
    this->addSpot();
    this->add(wallMesh(), this->turnedWall(), GPUModel::DoubleSided);
    this->build();
    for (const ShadowDriver &driver : TestFixture::Traits::drivers()) {
        SCOPED_TRACE(driver.name);
        this->make(driver);
        glEnable(GL_CULL_FACE);
        this->expectAxisDepth(*this->pass, this->render(1)[0], 5, this->bias);
    }
}

TYPED_TEST(ShadowPassTest, aFilterThatDoesNotBuildLeavesTheMomentsAndIsNotBuiltAgain)
{
    this->buildScene();
    this->addLights();
    for (const ShadowDriver &driver : TestFixture::Traits::drivers()) {
        SCOPED_TRACE(driver.name);
        for (const int filter : TestFixture::Traits::filters) {
            SCOPED_TRACE(filter);
            this->make(driver);
            const QVector<Image> unfiltered = this->render(0);
            Texture *const moments = this->array();
            const int programs = glObjectCounts().programs;
            {
                const RefusedShaders refused;
                expectSameMaps(this->render(filter), unfiltered);
            }
            this->expectOneDebugLine("refused");
            EXPECT_TRUE(this->pass->output(0).isValid());
            EXPECT_EQ(this->array(), moments);
            EXPECT_EQ(glObjectCounts().programs, programs + 1);
            // The next frame uses the broken program, although the driver would now accept the shader. The result of
            // drawing without a program is undefined.
            this->render(filter);
            EXPECT_EQ(glObjectCounts().programs, programs + 1);
            EXPECT_TRUE(this->log.messages().isEmpty());
            // Other filters work.
            expectSameMaps(this->render(0), unfiltered);
        }
    }
}

// Each stage is valid by itself, so only linking can fail.
TYPED_TEST(ShadowPassTest, aFilterThatDoesNotLinkLeavesTheMomentsAndIsNotBuiltAgain)
{
    this->buildScene();
    this->addLights();
    for (const ShadowDriver &driver : TestFixture::Traits::drivers()) {
        SCOPED_TRACE(driver.name);
        for (const int filter : TestFixture::Traits::linkedFilters) {
            SCOPED_TRACE(filter);
            this->make(driver);
            const QVector<Image> unfiltered = this->render(0);
            Texture *const moments = this->array();
            const int programs = glObjectCounts().programs;
            {
                ChangedShaders other(TestFixture::Traits::linkedText, TestFixture::Traits::unlinkedText);
                GLCallRecorder<&epoxy_glLinkProgram> links;
                const QVector<Image> maps = this->render(filter);
                EXPECT_EQ(other.changed, 1);
                EXPECT_EQ(links.calls.size(), 1u) << "it compiles";
                expectSameMaps(maps, unfiltered);
            }
            this->expectOneDebugLine(TestFixture::Traits::unlinkedName);
            EXPECT_TRUE(this->pass->output(0).isValid());
            EXPECT_EQ(this->array(), moments);
            EXPECT_EQ(glObjectCounts().programs, programs + 1);
            this->render(filter);
            EXPECT_EQ(glObjectCounts().programs, programs + 1);
            EXPECT_TRUE(this->log.messages().isEmpty());
        }
    }
}

TYPED_TEST(ShadowPassTest, withoutCastersEveryLayerIsFarAndNothingIsFiltered)
{
    this->lights.directional({0, -1, 0});
    this->lights.point({0, 1, 0}, 10);
    this->add(boxMesh(), QMatrix4x4(), GPUModel::NoShadowA);
    this->add(boxMesh(), placedAt({3, 0, 0}), GPUModel::NoShadowB);
    this->build();
    for (const ShadowDriver &driver : TestFixture::Traits::drivers()) {
        SCOPED_TRACE(driver.name);
        this->make(driver);
        this->connect(*this->pass, this->mapSize);
        GLCallRecorder<&epoxy_glDrawArrays> draws;
        GLCallRecorder<&epoxy_glDrawElements> indexedDraws;
        this->run(*this->pass);
        EXPECT_EQ(draws.calls.size() + indexedDraws.calls.size(), 0u);
        const QVector<Image> maps = readMaps(*this->pass);
        ASSERT_EQ(maps.size(), 7);
        for (const Image &map : maps)
            EXPECT_TRUE(isAllFar(map));
    }
}

TYPED_TEST(ShadowPassTest, aNullModelIsAssertedAndMakesEmptyMaps)
{
    this->lights.directional({0, -1, 0});
    this->connect(*this->pass, this->mapSize);
    const QString isNull = QStringLiteral("false == modelAsQVariant.isNull() | Input Geometry is NULL");
    const QString isOther = QStringLiteral(
        "true == modelAsQVariant.canConvert<GPUModel*>() | Input Geometry is not a 'GPUModel*', type is '%1'");
    const auto expectAsserted = [&](const QVariant &geometry, const QStringList &texts) {
        SCOPED_TRACE(geometry.typeName() ? geometry.typeName() : "nothing");
        this->set(*this->pass, "Kvz_KvzGPUModel*_Geometry", geometry);
        this->run(*this->pass);
        EXPECT_EQ(assertionTexts(TestFixture::Traits::className, this->log.takeCriticals()), texts);
        EXPECT_TRUE(isAllFar(readMaps(*this->pass)[0]));
    };
    expectAsserted(QVariant::fromValue<GPUModel *>(nullptr), {isNull});
    expectAsserted(7, {isOther.arg(QStringLiteral("int"))});
    expectAsserted(QStringLiteral("model"), {isOther.arg(QStringLiteral("QString"))});
    // An unset input is both null and of another type.
    expectAsserted(QVariant(), {isNull, isOther.arg(QString())});
    EXPECT_EQ(this->pass->errorCode(), 0u);
}

TYPED_TEST(ShadowPassTest, anInvalidMapSizeGivesNoMap)
{
    this->buildScene();
    this->lights.directional({-0.4f, -1, -0.3f});
    for (const QVariant &size :
        {QVariant(), QVariant(QStringLiteral("large")), QVariant(7), QVariant(QVector3D(64, 64, 1))}) {
        SCOPED_TRACE(size.typeName() ? size.typeName() : "nothing");
        this->make();
        this->connect(*this->pass, this->mapSize);
        this->set(*this->pass, "Kvz_QSize_MapSize", size);
        GLCallRecorder<&epoxy_glTexImage2D> planes;
        GLCallRecorder<&epoxy_glTexImage3D> arrays;
        this->run(*this->pass);
        EXPECT_FALSE(this->takeGLErrors().isEmpty()) << "GL refuses a negative size";
        const auto hasSize = [](int side) {
            return [side](const auto &call) { return std::get<3>(call) == side && std::get<4>(call) == side; };
        };
        EXPECT_EQ(planes.calls.size(), TestFixture::Traits::depthPlanes);
        EXPECT_TRUE(std::all_of(planes.calls.begin(), planes.calls.end(), hasSize(-1)));
        EXPECT_EQ(std::count_if(arrays.calls.begin(), arrays.calls.end(), hasSize(-1)), 2);
        // The biases are one texel a layer, whatever the size.
        const auto biases = std::count_if(arrays.calls.begin(), arrays.calls.end(), hasSize(1));
        EXPECT_EQ(biases, int(arrays.calls.size()) - 2);
        EXPECT_EQ(biases > 0, TestFixture::Traits::hasBiases);
    }
    this->render(0);
    this->expectRayCast(*this->pass, this->bias);
}

TYPED_TEST(ShadowPassTest, boundsComeFromThePortsElseFromTheModel)
{
    this->expectBoundsOfPortsElseOfTheModel(*this->pass);
}

TYPED_TEST(ShadowPassTest, theCameraCountsOnlyWhenBothMatricesAreThere)
{
    this->expectCameraOnlyWithBothMatrices(*this->pass);
}

TYPED_TEST(ShadowPassTest, rowsOfInstanceDataPlaceTheItems)
{
    this->addWall(5, 1);
    this->build();
    this->addSpot();
    InstanceDataCollection rows(QStringLiteral("TavoInstance"));
    rows.setRowCount(1);
    rows.setModelMatrix(0, placedAt({0, 0, -9}));
    for (const ShadowDriver &driver : TestFixture::Traits::drivers()) {
        SCOPED_TRACE(driver.name);
        this->make(driver);
        for (const QVariant &element : {QVariant::fromValue(&rows), QVariant::fromValue<QObject *>(&rows)}) {
            this->set(*this->pass, "Kvz_QList_InstanceData", QVariantList{QVariant(3), element, QVariant()});
            this->expectAxisDepth(*this->pass, this->render(0)[0], 9, this->bias);
            EXPECT_FALSE(InstanceDataCollection::isBound(QStringLiteral("TavoInstance")));
        }
        this->set(*this->pass, "Kvz_QList_InstanceData", QVariant());
        this->expectAxisDepth(*this->pass, this->render(0)[0], 5, this->bias);
    }
}

TYPED_TEST(ShadowPassTest, thePlanIsTheOneNamedBeforeTheFirstFrame)
{
    const QString name = QStringLiteral("ShadowTestPlan");
    if (!InstanceDataRegistry::Instance().hasPlan(name)) {
        InstanceDataRegistry::Instance().addPlan(InstanceDataPlan(name,
            {{QStringLiteral("getOther"), InstanceDataPlan::Type::Vec3},
                {QStringLiteral("getModelMatrix"), InstanceDataPlan::Type::Mat4}}));
    }
    this->addWall(5, 1);
    this->build();
    this->addSpot();
    InstanceDataCollection rows(name);
    rows.setRowCount(1);
    rows.setValue(0, QStringLiteral("getModelMatrix"), placedAt({0, 0, -11}, {3, 3, 1}));
    const QVariantList collections{QVariant::fromValue(&rows)};
    for (const ShadowDriver &driver : TestFixture::Traits::drivers()) {
        SCOPED_TRACE(driver.name);
        this->make(driver);
        this->set(*this->pass, "Kvz_QList_InstanceData", collections);
        this->expectAxisDepth(*this->pass, this->render(0)[0], 5, this->bias);
        this->pass->setInstanceDataPlanName(name);
        this->expectAxisDepth(*this->pass, this->render(0)[0], 5, this->bias); // Too late.
        this->make(driver);
        this->pass->setInstanceDataPlanName(name);
        this->set(*this->pass, "Kvz_QList_InstanceData", collections);
        this->expectAxisDepth(*this->pass, this->render(0)[0], 11, this->bias);
    }
}

TYPED_TEST(ShadowPassTest, takesTheCullingMarksAwayEachFrame)
{
    this->buildScene();
    this->lights.directional({-0.4f, -1, -0.3f});
    for (const QVariant &dirty : {QVariant(), QVariant(true)}) {
        QMatrix4x4 nowhere;
        nowhere.translate(100, 0, 0);
        this->model->frustumCull(nowhere);
        ASSERT_EQ(this->model->culledCount(), 4);
        if (this->pass->findInput(QStringLiteral("Kvz_bool_Dirty")) >= 0)
            this->set(*this->pass, "Kvz_bool_Dirty", dirty);
        this->render(0);
        EXPECT_EQ(this->model->culledCount(), 0);
        this->expectRayCast(*this->pass, this->bias);
    }
}

TYPED_TEST(ShadowPassTest, leavesTheStateThatItSaysAndTheBindingsThatItFound)
{
    this->buildScene();
    this->lights.directional({-0.4f, -1, -0.3f});
    FramebufferObject own;
    AutoBinder ownBinder(&own);
    for (const ShadowDriver &driver : TestFixture::Traits::drivers()) {
        SCOPED_TRACE(driver.name);
        this->make(driver);
        for (const int filter : {0, 1, 2, 3}) {
            SCOPED_TRACE(filter);
            glViewport(3, 4, 5, 6);
            glEnable(GL_BLEND);
            glEnable(GL_DEPTH_CLAMP);
            glEnable(GL_CULL_FACE);
            glDepthMask(GL_FALSE);
            glActiveTexture(GL_TEXTURE5);
            this->render(filter);
            EXPECT_FALSE(glFlag(GL_BLEND));
            EXPECT_FALSE(glFlag(GL_DEPTH_CLAMP));
            EXPECT_FALSE(glFlag(GL_CULL_FACE));
            EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
            GLboolean depthMask = GL_FALSE;
            glGetBooleanv(GL_DEPTH_WRITEMASK, &depthMask);
            EXPECT_EQ(depthMask, GL_TRUE);
            GLboolean mask[4] = {};
            glGetBooleanv(GL_COLOR_WRITEMASK, mask);
            EXPECT_TRUE(mask[0] && mask[1] && mask[2] && mask[3]);
            float clear[4];
            glGetFloatv(GL_COLOR_CLEAR_VALUE, clear);
            EXPECT_EQ(clear[0], farMoment);
            EXPECT_EQ(clear[3], 1);
            std::vector<int> viewport(4);
            glGetIntegerv(GL_VIEWPORT, viewport.data());
            EXPECT_EQ(viewport,
                TestFixture::Traits::putsViewportBack ? (std::vector<int>{3, 4, 5, 6})
                                                      : (std::vector<int>{0, 0, this->mapSize, this->mapSize}));
            EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), int(own.getFBO()));
            EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
            EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
            EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE5);
            EXPECT_EQ(this->array()->unit(), 0);
        }
    }
}

TYPED_TEST(ShadowPassTest, deletesWhatItMade)
{
    this->buildScene();
    this->addLights();
    // The model creates objects too when it is first drawn.
    this->render(0);
    this->pass.reset();
    const GLObjectCounts before = glObjectCounts();
    for (const ShadowDriver &driver : TestFixture::Traits::drivers()) {
        SCOPED_TRACE(driver.name);
        this->make(driver);
        for (const int filter : {0, 1, 2, 3})
            this->render(filter);
        EXPECT_FALSE(glObjectCounts() == before);
        this->pass.reset();
        EXPECT_TRUE(glObjectCounts() == before);
        // Without a current context object names are dropped.
        this->make(driver);
        this->render(1);
        this->context().doneCurrent();
        this->pass.reset();
        this->context().makeCurrent();
        EXPECT_TRUE(glObjectCounts() == before);
    }
}

} // namespace Velmora::Kvz
