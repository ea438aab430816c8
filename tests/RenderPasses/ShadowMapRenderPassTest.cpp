// SPDX-License-Identifier: MIT
#include "ShadowReference.h"
#include "support/ChangedShaders.h"
#include "support/GLCallRecorder.h"

#include <GL/AutoBinder.h>
#include <GL/FramebufferObject.h>
#include <GL/GLStatistics.h>
#include <RenderPasses/ShadowMapRenderPass.h>
#include <Scene/InstanceDataCollection.h>
#include <Scene/InstanceDataRegistry.h>

#include <QtCore/QRegularExpression>
#include <QtCore/QSize>

#include <epoxy/gl.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

using Port = ShadowMapRenderPass;
using RenderData = ShadowMapManager::RenderData;

/// What the pass adds to every depth.
constexpr double bias = 0.0005;
constexpr int mapSize = 64;

class ShadowMapRenderPassTest : public ShadowTest
{
protected:
    void TearDown() override
    {
        pass.reset();
        ShadowTest::TearDown();
    }

    std::unique_ptr<ShadowMapRenderPass> pass = std::make_unique<ShadowMapRenderPass>();

    void setFilter(int filter) { pass->setInput(Port::Filter, filter); }
    Texture *array() const { return renderDataOf(*pass)->projectionTexture(); }
    /// A frame with the scene and its lights.
    QVector<Image> render(int filter)
    {
        setFilter(filter);
        connect(*pass, mapSize);
        run(*pass);
        return readMaps(*pass);
    }
};

int arrayParameter(GLuint texture, GLenum name)
{
    return textureParameter(GL_TEXTURE_2D_ARRAY, texture, name);
}

} // namespace

TEST_F(ShadowMapRenderPassTest, declaresItsPorts)
{
    const QVector<QPair<QString, QVariant>> inputs = {
        {QStringLiteral("Kvz_KvzGPUModel*_Geometry"), QVariant()},
        {QStringLiteral("Kvz_QList_InstanceData"), QVariant()},
        {QStringLiteral("Kvz_QList_KvzShadowMapManagerLight*_Lights"), QVariant()},
        {QStringLiteral("Kvz_QMatrix4x4_ProjectionMatrix"), QVariant()},
        {QStringLiteral("Kvz_QMatrix4x4_CameraMatrix"), QVariant()},
        {QStringLiteral("Kvz_QVector3D_SceneBoundsMin"), QVariant()},
        {QStringLiteral("Kvz_QVector3D_SceneBoundsMax"), QVariant()},
        {QStringLiteral("Kvz_int_FilterType"), 1},
        {QStringLiteral("Kvz_QSize_MapSize"), QSize(512, 512)},
    };
    ASSERT_EQ(pass->numInputs(), inputs.size());
    for (int i = 0; i < inputs.size(); ++i) {
        EXPECT_EQ(pass->inputName(i), inputs[i].first);
        EXPECT_EQ(pass->defaultValue(i), inputs[i].second) << i;
        EXPECT_EQ(pass->defaultValue(i).isValid(), inputs[i].second.isValid()) << i;
    }
    ASSERT_EQ(pass->numOutputs(), 1);
    EXPECT_EQ(pass->outputName(0), QStringLiteral("Kvz_QVariant_ShadowMapData"));
    EXPECT_EQ(pass->defaultValue(Port::Filter).userType(), int(QMetaType::Int));
}

TEST_F(ShadowMapRenderPassTest, publishesItsOwnData)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    EXPECT_FALSE(pass->output(0).isValid());
    render(0);
    const QVariant first = pass->output(0);
    EXPECT_STREQ(first.typeName(), "Velmora::Kvz::ShadowMapManager::RenderData*");
    auto *const data = first.value<RenderData *>();
    ASSERT_TRUE(data);
    EXPECT_EQ(data->layerCount, 1);
    ASSERT_TRUE(data->projectionTexture());
    run(*pass);
    EXPECT_EQ(pass->output(0).value<RenderData *>(), data);
    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(0).isValid());
}

TEST_F(ShadowMapRenderPassTest, holdsTheMomentsOfAWallAtAKnownDistance)
{
    addWall(5, 1);
    build();
    addSpot();
    for (const float distance : {0.5f, 5.0f, 12.5f, 19.0f}) {
        SCOPED_TRACE(distance);
        model->setModelMatrix(0, placedAt({0, 0, -distance}, {distance / 4, distance / 4, 1}));
        const Image map = render(0)[0];
        const double depth = axisDepth(*pass, double(distance)) + bias;
        // The wall spans 1/4 of the distance to each side, of tan(30) of it that the light sees.
        const int half = int(0.25 / std::tan(M_PI / 6) * mapSize / 2);
        int inside = 0;
        for (int y = 0; y < mapSize; ++y) {
            for (int x = 0; x < mapSize; ++x) {
                const int off = std::max(std::abs(2 * x + 1 - mapSize), std::abs(2 * y + 1 - mapSize)) / 2;
                const float *const texel = map.at(x, y);
                if (off < half - 1) {
                    ++inside;
                    // Single precision of a depth near 1 in two divisions and a square.
                    ASSERT_NEAR(texel[0], depth, 2e-6) << x << ", " << y;
                    ASSERT_NEAR(texel[1], depth * depth, 4e-6) << x << ", " << y;
                } else if (off > half + 1) {
                    ASSERT_EQ(texel[0], farMoment);
                    ASSERT_EQ(texel[1], farMoment);
                }
            }
        }
        EXPECT_GT(inside, 500);
    }
}

TEST_F(ShadowMapRenderPassTest, allLayersOfAllLightsAreWhatRaysMeet)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f}, 3);
    lights.spot({4, 6, 3}, {-4, -6, -3}, 50, 20);
    lights.point({-0.5f, 4.5f, 0}, 15);
    set(*pass, "Kvz_QMatrix4x4_ProjectionMatrix", perspective({4, 3}, 0.5f, 40));
    set(*pass, "Kvz_QMatrix4x4_CameraMatrix", lookAt({6, 5, 8}, {0, 1, 0}));
    render(0);
    EXPECT_EQ(renderDataOf(*pass)->layerCount, 10);
    EXPECT_EQ(layersOf(array()), 10);
    expectRayCast(*pass, bias);
}

TEST_F(ShadowMapRenderPassTest, theNearHalfOfTheClipRangeCastsNothing)
{
    addWall(8, 10);
    addWall(1, 0.1f);
    addWall(1, 0.1f);
    build();
    addSpot();
    render(0);
    // A wall in the near half, and one in front of what clips, cover a farther one.
    const auto within = float(axisDistance(*pass, -0.5));
    const auto before = float(axisDistance(*pass, -1) / 2);
    ASSERT_LT(axisDepth(*pass, double(before)), -1);
    model->setModelMatrix(1, placedAt({0, 0, -within}, {1, 1, 1}));
    model->setModelMatrix(2, placedAt({0, 0, -before}, {1, 1, 1}));
    expectAxisDepth(*pass, render(0)[0], 8, bias);
    EXPECT_FALSE(isAllFar(readMaps(*pass)[0])) << "what casts nothing hides nothing";
    // The border is at 0, and not where the bias would have it.
    const auto justBefore = float(axisDistance(*pass, -2e-4));
    model->setModelMatrix(1, placedAt({0, 0, -justBefore}, {1, 1, 1}));
    expectAxisDepth(*pass, render(0)[0], 8, bias);
    // Just beyond the middle of the range a wall casts.
    const auto lit = float(axisDistance(*pass, 0.01));
    model->setModelMatrix(1, placedAt({0, 0, -lit}, {1, 1, 1}));
    expectAxisDepth(*pass, render(0)[0], double(lit), bias);
    model->setModelMatrix(1, placedAt({0, 0, -within}, {1, 1, 1}));
    model->setModelMatrix(0, placedAt({0, 0, -25}, {30, 30, 1}));
    ASSERT_GT(axisDepth(*pass, 25), 1);
    EXPECT_TRUE(isAllFar(render(0)[0])) << "what lies behind the range casts nothing either";
}

TEST_F(ShadowMapRenderPassTest, featureBitsDecideWhatCastsAndFromWhichSide)
{
    addSpot();
    // Turned away from the light.
    QMatrix4x4 turned = placedAt({0, 0, -5}, {1, 1, 1});
    turned.rotate(180, 0, 1, 0);
    add(wallMesh(), placedAt({0, 0, -4}, {0.5f, 0.5f, 1}), GPUModel::NoShadowA);
    add(wallMesh(), placedAt({0, 0, -4}, {0.5f, 0.5f, 1}), GPUModel::NoShadowB | GPUModel::DoubleSided);
    add(wallMesh(), turned);
    add(wallMesh(), placedAt({0, 0, -7}, {3, 3, 1}), 0x0f00000000000000 | 8);
    build();
    expectAxisDepth(*pass, render(0)[0], 7, bias);
    pass = std::make_unique<ShadowMapRenderPass>();
    add(wallMesh(), turned, GPUModel::DoubleSided);
    build();
    expectAxisDepth(*pass, render(0)[0], 5, bias);
}

TEST_F(ShadowMapRenderPassTest, doubleSidedItemsAreDrawnWholeWhateverCullingWas)
{
    addSpot();
    QMatrix4x4 turned = placedAt({0, 0, -5}, {1, 1, 1});
    turned.rotate(180, 0, 1, 0);
    add(wallMesh(), turned, GPUModel::DoubleSided);
    build();
    glEnable(GL_CULL_FACE);
    expectAxisDepth(*pass, render(1)[0], 5, bias);
}

TEST_F(ShadowMapRenderPassTest, filtersAreTheirFormulas)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    lights.spot({4, 6, 3}, {-4, -6, -3}, 100, 20);
    const QVector<Image> input = render(0);
    // Sums of a few floats; the Gaussian's constants have six digits, of which each pass uses seven weights.
    constexpr double tolerance = 2e-5;
    for (int layer = 0; layer < input.size(); ++layer) {
        const MomentMap map(input[layer]);
        int extended = 0;
        SCOPED_TRACE(layer);
        {
            SCOPED_TRACE("Gaussian");
            expectMoments(render(Port::FilterGaussian)[layer], gaussianReference(map), tolerance);
        }
        {
            SCOPED_TRACE("Gaussian with edges");
            expectMoments(render(Port::FilterGaussianEdge)[layer], gaussianEdgeReference(map, &extended), tolerance);
            EXPECT_GT(extended, 50) << "no silhouettes were extended";
        }
        {
            SCOPED_TRACE("box");
            extended = 0;
            expectMoments(render(Port::FilterBox3x3)[layer], boxReference(map, true, &extended), tolerance);
            EXPECT_GT(extended, 50) << "no silhouettes were extended";
        }
    }
}

TEST_F(ShadowMapRenderPassTest, everyOtherFilterNumberIsTheGaussian)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    const Image gaussian = render(Port::FilterGaussian)[0];
    for (const int filter : {4, -1, 1000})
        EXPECT_EQ(maximumDifference(render(filter)[0], gaussian), 0) << filter;
    // What is no number counts as 0.
    const Image none = render(Port::FilterNone)[0];
    pass->setInput(Port::Filter, QSize(3, 3));
    run(*pass);
    EXPECT_EQ(maximumDifference(readMaps(*pass)[0], none), 0);
    EXPECT_GT(maximumDifference(gaussian, none), 0.01);
}

TEST_F(ShadowMapRenderPassTest, theResultHasTheFarBorderWithEveryFilter)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    QVector<Texture *> published;
    for (const int filter : {0, 1, 2, 3, 0, 1}) {
        SCOPED_TRACE(filter);
        render(filter);
        Texture *const texture = array();
        published.append(texture);
        EXPECT_EQ(texture->target(), unsigned(GL_TEXTURE_2D_ARRAY));
        EXPECT_EQ(texture->internalFormat(0), GL_RG32F);
        EXPECT_EQ(arrayParameter(texture->textureID(), GL_TEXTURE_WRAP_S), GL_CLAMP_TO_BORDER);
        EXPECT_EQ(arrayParameter(texture->textureID(), GL_TEXTURE_WRAP_T), GL_CLAMP_TO_BORDER);
        EXPECT_EQ(arrayParameter(texture->textureID(), GL_TEXTURE_MIN_FILTER), GL_LINEAR);
        EXPECT_EQ(arrayParameter(texture->textureID(), GL_TEXTURE_MAG_FILTER), GL_LINEAR);
        EXPECT_EQ(borderColor(texture->target(), texture->textureID()),
            (std::vector<float>{farMoment, farMoment, farMoment, 1}));
    }
    EXPECT_EQ(published[1], published[0]);
    EXPECT_EQ(published[2], published[0]);
    EXPECT_NE(published[3], published[0]) << "the box filter publishes the other array";
    EXPECT_EQ(published[4], published[0]);
}

TEST_F(ShadowMapRenderPassTest, theDepthIsOnePlaneOfFloatsReadAtTheNearest)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f}, 3);
    GLuint depth = 0;
    GLCallRecorder<&epoxy_glTexImage2D> storage;
    storage.onCall = [&](GLenum, GLint, GLint, GLsizei, GLsizei, GLint, GLenum format, GLenum type, const void *) {
        EXPECT_EQ(format, GLenum(GL_DEPTH_COMPONENT));
        EXPECT_EQ(type, GLenum(GL_FLOAT));
        depth = GLuint(glInteger(GL_TEXTURE_BINDING_2D));
    };
    for (const int filter : {0, 1, 2, 3}) {
        SCOPED_TRACE(filter);
        render(filter);
        ASSERT_EQ(storage.calls.size(), 1u);
        const auto level = [&](GLenum name) { return textureLevelParameter(GL_TEXTURE_2D, depth, name); };
        EXPECT_EQ(level(GL_TEXTURE_INTERNAL_FORMAT), GL_DEPTH_COMPONENT32F);
        EXPECT_EQ(level(GL_TEXTURE_WIDTH), mapSize);
        EXPECT_EQ(level(GL_TEXTURE_HEIGHT), mapSize);
        EXPECT_EQ(textureParameter(GL_TEXTURE_2D, depth, GL_TEXTURE_MIN_FILTER), GL_NEAREST);
        EXPECT_EQ(textureParameter(GL_TEXTURE_2D, depth, GL_TEXTURE_MAG_FILTER), GL_NEAREST);
    }
}

TEST_F(ShadowMapRenderPassTest, onlyTheResultHasABorderBesideTheMoments)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    render(0);
    Texture *const moments = array();
    GLuint second = 0;
    GLCallRecorder<&epoxy_glTexImage3D> storage;
    storage.onCall = [&](GLenum, GLint, GLint, GLsizei, GLsizei, GLsizei, GLint, GLenum, GLenum, const void *) {
        second = GLuint(glInteger(GL_TEXTURE_BINDING_2D_ARRAY));
    };
    for (const int filter : {1, 2, 3, 0, 2, 3, 1}) {
        SCOPED_TRACE(filter);
        Texture *const before = array();
        render(filter);
        ASSERT_EQ(storage.calls.size(), 1u);
        ASSERT_NE(second, moments->textureID());
        ASSERT_EQ(array()->textureID(), filter == 3 ? second : moments->textureID());
        EXPECT_EQ(arrayParameter(moments->textureID(), GL_TEXTURE_WRAP_S), GL_CLAMP_TO_BORDER);
        EXPECT_EQ(arrayParameter(moments->textureID(), GL_TEXTURE_WRAP_T), GL_CLAMP_TO_BORDER);
        // No filter runs with 0, so the result of the frame before stays as it was.
        const bool hasBorder = filter == 3 || (filter == 0 && before->textureID() == second);
        for (const GLenum axis : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T}) {
            EXPECT_EQ(arrayParameter(second, axis), hasBorder ? GL_CLAMP_TO_BORDER : GL_CLAMP_TO_EDGE);
        }
    }
}

TEST_F(ShadowMapRenderPassTest, aFilterThatDoesNotBuildLeavesTheMomentsAndIsNotBuiltAgain)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    const Image unfiltered = render(0)[0];
    GLuint second = 0;
    GLCallRecorder<&epoxy_glTexImage3D> storage;
    storage.onCall = [&](GLenum, GLint, GLint, GLsizei, GLsizei, GLsizei, GLint, GLenum, GLenum, const void *) {
        second = GLuint(glInteger(GL_TEXTURE_BINDING_2D_ARRAY));
    };
    for (const int filter : {1, 2, 3}) {
        SCOPED_TRACE(filter);
        Texture *const moments = array();
        const int programs = glObjectCounts().programs;
        {
            const RefusedShaders refused;
            EXPECT_EQ(maximumDifference(render(filter)[0], unfiltered), 0);
        }
        log.takeCategory(QStringLiteral("kvz.gl"));
        const QStringList lines = log.takeDebug();
        ASSERT_EQ(lines.size(), 1);
        EXPECT_TRUE(
            QRegularExpression(QStringLiteral("^\\[ShadowMapRenderPass:\\d+\\] .*refused")).match(lines[0]).hasMatch())
            << qPrintable(lines[0]);
        EXPECT_TRUE(pass->output(0).isValid());
        EXPECT_EQ(array(), moments);
        EXPECT_EQ(arrayParameter(moments->textureID(), GL_TEXTURE_WRAP_S), GL_CLAMP_TO_BORDER);
        ASSERT_NE(second, 0u) << "the second array is made before the program";
        EXPECT_EQ(arrayParameter(second, GL_TEXTURE_WRAP_S), GL_CLAMP_TO_EDGE);
        EXPECT_EQ(arrayParameter(second, GL_TEXTURE_WRAP_T), GL_CLAMP_TO_EDGE);
        EXPECT_EQ(glObjectCounts().programs, programs + 1);
        // The next frame takes the broken one, although the driver would now build it. What a draw without a program leaves is
        // not defined.
        render(filter);
        EXPECT_EQ(glObjectCounts().programs, programs + 1);
        EXPECT_TRUE(log.messages().isEmpty());
        pass = std::make_unique<ShadowMapRenderPass>();
        EXPECT_EQ(maximumDifference(render(0)[0], unfiltered), 0);
    }
}

TEST_F(ShadowMapRenderPassTest, switchingFiltersBuildsEachProgramOnceAndLeavesNoTrace)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    QVector<Image> fresh;
    for (int filter = 0; filter < 4; ++filter) {
        fresh.append(render(filter)[0]);
        pass = std::make_unique<ShadowMapRenderPass>();
    }
    // The box filter first: it reads no texture coordinates, and the quad is built for it.
    render(Port::FilterNone);
    const int programs = glObjectCounts().programs;
    int expected = 0;
    QVector<int> seen;
    for (const int filter : {3, 1, 2, 0, 3, 2, 1, 3}) {
        SCOPED_TRACE(filter);
        EXPECT_EQ(maximumDifference(render(filter)[0], fresh[filter]), 0);
        if (filter != 0 && !seen.contains(filter)) {
            seen.append(filter);
            ++expected;
        }
        EXPECT_EQ(glObjectCounts().programs, programs + expected);
    }
}

TEST_F(ShadowMapRenderPassTest, withoutCastersEveryLayerIsFarAndNothingIsFiltered)
{
    lights.directional({0, -1, 0});
    lights.point({0, 1, 0}, 10);
    add(boxMesh(), QMatrix4x4(), GPUModel::NoShadowA);
    add(boxMesh(), placedAt({3, 0, 0}), GPUModel::NoShadowB);
    build();
    connect(*pass, mapSize);
    GLCallRecorder<&epoxy_glDrawArrays> draws;
    GLCallRecorder<&epoxy_glDrawElements> indexedDraws;
    run(*pass);
    EXPECT_EQ(draws.calls.size() + indexedDraws.calls.size(), 0u);
    const QVector<Image> maps = readMaps(*pass);
    ASSERT_EQ(maps.size(), 7);
    for (const Image &map : maps)
        EXPECT_TRUE(isAllFar(map));
}

TEST_F(ShadowMapRenderPassTest, withoutLightsThereAreNoLayers)
{
    buildScene();
    connect(*pass, mapSize);
    for (const QVariant &none : {QVariant(), QVariant(QVariantList()), QVariant(5)}) {
        set(*pass, "Kvz_QList_KvzShadowMapManagerLight*_Lights", none);
        run(*pass);
        EXPECT_EQ(renderDataOf(*pass)->layerCount, 0);
        EXPECT_TRUE(array());
    }
}

TEST_F(ShadowMapRenderPassTest, aNullModelIsAssertedAndMakesEmptyMaps)
{
    lights.directional({0, -1, 0});
    connect(*pass, mapSize);
    const QString isNull = QStringLiteral("false == modelAsQVariant.isNull() | Input Geometry is NULL");
    const QString isOther = QStringLiteral(
        "true == modelAsQVariant.canConvert<GPUModel*>() | Input Geometry is not a 'GPUModel*', type is '%1'");
    set(*pass, "Kvz_KvzGPUModel*_Geometry", QVariant::fromValue<GPUModel *>(nullptr));
    run(*pass);
    EXPECT_EQ(assertionTexts("ShadowMapRenderPass", log.takeCriticals()), QStringList{isNull});
    EXPECT_TRUE(isAllFar(readMaps(*pass)[0]));
    set(*pass, "Kvz_KvzGPUModel*_Geometry", QVariant(7));
    run(*pass);
    EXPECT_EQ(
        assertionTexts("ShadowMapRenderPass", log.takeCriticals()), QStringList{isOther.arg(QStringLiteral("int"))});
    EXPECT_TRUE(isAllFar(readMaps(*pass)[0]));
    // Nothing at all is both.
    set(*pass, "Kvz_KvzGPUModel*_Geometry", QVariant());
    run(*pass);
    EXPECT_EQ(
        assertionTexts("ShadowMapRenderPass", log.takeCriticals()), (QStringList{isNull, isOther.arg(QString())}));
    EXPECT_TRUE(isAllFar(readMaps(*pass)[0]));
    EXPECT_EQ(pass->errorCode(), 0u);
}

TEST_F(ShadowMapRenderPassTest, aChangeOfLightsRemakesTheArraysAndKeepsTheDepth)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    render(1);
    GLCallRecorder<&epoxy_glTexImage2D> planes;
    GLCallRecorder<&epoxy_glTexImage3D> arrays;
    const GLObjectCounts before = glObjectCounts();
    render(1);
    EXPECT_EQ(planes.calls.size() + arrays.calls.size(), 0u) << "nothing changed";
    lights.spot({4, 6, 3}, {-4, -6, -3}, 40, 20);
    render(1);
    EXPECT_EQ(layersOf(array()), 2);
    EXPECT_EQ(planes.calls.size(), 0u);
    EXPECT_EQ(arrays.calls.size(), 2u);
    connect(*pass, 2 * mapSize);
    run(*pass);
    EXPECT_EQ(array()->width(0), 2 * mapSize);
    EXPECT_EQ(planes.calls.size(), 1u);
    EXPECT_EQ(arrays.calls.size(), 4u);
    EXPECT_TRUE(glObjectCounts() == before) << "what is replaced goes";
}

TEST_F(ShadowMapRenderPassTest, aMapSizeThatIsNoneGivesNoMap)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    for (const QVariant &size :
        {QVariant(), QVariant(QStringLiteral("large")), QVariant(7), QVariant(QVector3D(64, 64, 1))}) {
        SCOPED_TRACE(size.typeName() ? size.typeName() : "nothing");
        pass = std::make_unique<ShadowMapRenderPass>();
        connect(*pass, mapSize);
        set(*pass, "Kvz_QSize_MapSize", size);
        GLCallRecorder<&epoxy_glTexImage2D> planes;
        GLCallRecorder<&epoxy_glTexImage3D> arrays;
        run(*pass);
        EXPECT_FALSE(takeGLErrors().isEmpty()) << "GL refuses a negative size";
        ASSERT_EQ(planes.calls.size(), 1u);
        EXPECT_EQ(std::get<3>(planes.calls[0]), -1);
        EXPECT_EQ(std::get<4>(planes.calls[0]), -1);
        ASSERT_EQ(arrays.calls.size(), 2u);
        for (const auto &call : arrays.calls) {
            EXPECT_EQ(std::get<3>(call), -1);
            EXPECT_EQ(std::get<4>(call), -1);
        }
    }
    render(0);
    expectRayCast(*pass, bias);
}

TEST_F(ShadowMapRenderPassTest, boundsComeFromThePortsElseFromTheModel)
{
    expectBoundsOfPortsElseOfTheModel(*pass);
}

TEST_F(ShadowMapRenderPassTest, theCameraCountsOnlyWhenBothMatricesAreThere)
{
    expectCameraOnlyWithBothMatrices(*pass);
}

TEST_F(ShadowMapRenderPassTest, rowsOfInstanceDataPlaceTheItems)
{
    addWall(5, 1);
    build();
    addSpot();
    InstanceDataCollection rows(QStringLiteral("TavoInstance"));
    rows.setRowCount(1);
    rows.setModelMatrix(0, placedAt({0, 0, -9}));
    for (const QVariant &element : {QVariant::fromValue(&rows), QVariant::fromValue<QObject *>(&rows)}) {
        set(*pass, "Kvz_QList_InstanceData", QVariantList{QVariant(3), element, QVariant()});
        expectAxisDepth(*pass, render(0)[0], 9, bias);
        EXPECT_FALSE(InstanceDataCollection::isBound(QStringLiteral("TavoInstance")));
    }
    set(*pass, "Kvz_QList_InstanceData", QVariant());
    expectAxisDepth(*pass, render(0)[0], 5, bias);
}

TEST_F(ShadowMapRenderPassTest, thePlanIsTheOneNamedBeforeTheFirstFrame)
{
    const QString name = QStringLiteral("ShadowTestPlan");
    if (!InstanceDataRegistry::Instance().hasPlan(name)) {
        InstanceDataRegistry::Instance().addPlan(InstanceDataPlan(name,
            {{QStringLiteral("getOther"), InstanceDataPlan::Type::Vec3},
                {QStringLiteral("getModelMatrix"), InstanceDataPlan::Type::Mat4}}));
    }
    addWall(5, 1);
    build();
    addSpot();
    InstanceDataCollection rows(name);
    rows.setRowCount(1);
    rows.setValue(0, QStringLiteral("getModelMatrix"), placedAt({0, 0, -11}, {3, 3, 1}));
    set(*pass, "Kvz_QList_InstanceData", QVariantList{QVariant::fromValue(&rows)});
    expectAxisDepth(*pass, render(0)[0], 5, bias);
    pass->setInstanceDataPlanName(name);
    expectAxisDepth(*pass, render(0)[0], 5, bias); // Too late.
    pass = std::make_unique<ShadowMapRenderPass>();
    pass->setInstanceDataPlanName(name);
    set(*pass, "Kvz_QList_InstanceData", QVariantList{QVariant::fromValue(&rows)});
    expectAxisDepth(*pass, render(0)[0], 11, bias);
}

TEST_F(ShadowMapRenderPassTest, aProgramThatDoesNotBuildEndsTheFrameAndIsNotBuiltAgain)
{
    buildScene();
    lights.directional({0, -1, 0});
    pass->setInstanceDataPlanName(QStringLiteral("NoSuchPlan"));
    connect(*pass, mapSize);
    run(*pass);
    log.takeCategory(QStringLiteral("kvz.gl"));
    EXPECT_FALSE(log.takeWarnings().isEmpty()) << "the registry names the plan";
    const QStringList lines = log.takeDebug();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(
        QRegularExpression(QStringLiteral("^\\[ShadowMapRenderPass:\\d+\\] .*NoSuchPlan")).match(lines[0]).hasMatch())
        << qPrintable(lines[0]);
    EXPECT_FALSE(pass->output(0).isValid());
    // From then on the maps are empty.
    const int programs = glObjectCounts().programs;
    run(*pass);
    EXPECT_EQ(glObjectCounts().programs, programs + 1) << "the filter's";
    EXPECT_TRUE(log.messages().isEmpty());
    ASSERT_TRUE(renderDataOf(*pass));
    setFilter(0);
    run(*pass);
    EXPECT_TRUE(isAllFar(readMaps(*pass)[0]));
}

// The stages are right each by itself, so that linking alone can fail.
TEST_F(ShadowMapRenderPassTest, aProgramThatDoesNotLinkEndsTheFrameAndIsNotBuiltAgain)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    connect(*pass, mapSize);
    const int programs = glObjectCounts().programs;
    {
        ChangedShaders other("in vec2 vo_fragPos", "in vec3 vo_fragPos");
        GLCallRecorder<&epoxy_glLinkProgram> links;
        GLCallRecorder<&epoxy_glClear> clears;
        GLCallRecorder<&epoxy_glDrawElements> draws;
        run(*pass);
        EXPECT_EQ(other.changed, 1);
        EXPECT_EQ(links.calls.size(), 1u) << "it compiles";
        EXPECT_EQ(clears.calls.size() + draws.calls.size(), 0u);
    }
    log.takeCategory(QStringLiteral("kvz.gl"));
    const QStringList lines = log.takeDebug();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(
        QRegularExpression(QStringLiteral("^\\[ShadowMapRenderPass:\\d+\\] .*vo_fragPos")).match(lines[0]).hasMatch())
        << qPrintable(lines[0]);
    EXPECT_FALSE(pass->output(0).isValid());
    EXPECT_EQ(glObjectCounts().programs, programs + 1);
    // From then on the maps are empty, although the driver would now build it.
    setFilter(0);
    run(*pass);
    EXPECT_EQ(glObjectCounts().programs, programs + 1);
    EXPECT_TRUE(log.messages().isEmpty());
    EXPECT_TRUE(isAllFar(readMaps(*pass).value(0)));
    EXPECT_EQ(pass->errorCode(), 0u);
}

TEST_F(ShadowMapRenderPassTest, aFilterThatDoesNotLinkLeavesTheMomentsAndIsNotBuiltAgain)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    for (const int filter : {1, 2}) { // The third reads nothing of the vertex stage.
        SCOPED_TRACE(filter);
        pass = std::make_unique<ShadowMapRenderPass>();
        const Image unfiltered = render(0)[0];
        Texture *const moments = array();
        const int programs = glObjectCounts().programs;
        {
            ChangedShaders other("in vec2 vo_TexCoord;", "in vec3 vo_TexCoord;\n#define vo_TexCoord vo_TexCoord.xy");
            GLCallRecorder<&epoxy_glLinkProgram> links;
            EXPECT_EQ(maximumDifference(render(filter)[0], unfiltered), 0);
            EXPECT_EQ(other.changed, 1);
            EXPECT_EQ(links.calls.size(), 1u) << "it compiles";
        }
        log.takeCategory(QStringLiteral("kvz.gl"));
        const QStringList lines = log.takeDebug();
        ASSERT_EQ(lines.size(), 1);
        EXPECT_TRUE(QRegularExpression(QStringLiteral("^\\[ShadowMapRenderPass:\\d+\\] .*vo_TexCoord"))
                        .match(lines[0])
                        .hasMatch())
            << qPrintable(lines[0]);
        EXPECT_TRUE(pass->output(0).isValid());
        EXPECT_EQ(array(), moments);
        EXPECT_EQ(glObjectCounts().programs, programs + 1);
        render(filter);
        EXPECT_EQ(glObjectCounts().programs, programs + 1);
        EXPECT_TRUE(log.messages().isEmpty());
    }
}

TEST_F(ShadowMapRenderPassTest, takesTheCullingMarksAwayEachFrame)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    for (int i = 0; i < 2; ++i) {
        QMatrix4x4 nowhere;
        nowhere.translate(100, 0, 0);
        model->frustumCull(nowhere);
        ASSERT_EQ(model->culledCount(), 4);
        render(0);
        EXPECT_EQ(model->culledCount(), 0);
        expectRayCast(*pass, bias);
    }
}

TEST_F(ShadowMapRenderPassTest, leavesTheStateThatItSaysAndTheBindingsThatItFound)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    FramebufferObject own;
    AutoBinder ownBinder(&own);
    for (const int filter : {0, 1, 2, 3}) {
        SCOPED_TRACE(filter);
        glViewport(3, 4, 5, 6);
        glEnable(GL_BLEND);
        glEnable(GL_DEPTH_CLAMP);
        glEnable(GL_CULL_FACE);
        glDepthMask(GL_FALSE);
        glActiveTexture(GL_TEXTURE5);
        render(filter);
        EXPECT_FALSE(glFlag(GL_BLEND));
        EXPECT_FALSE(glFlag(GL_DEPTH_CLAMP));
        EXPECT_FALSE(glFlag(GL_CULL_FACE));
        EXPECT_FALSE(glFlag(GL_DEPTH_TEST));
        GLboolean depthMask = GL_FALSE;
        glGetBooleanv(GL_DEPTH_WRITEMASK, &depthMask);
        EXPECT_EQ(depthMask, GL_TRUE);
        float clear[4];
        glGetFloatv(GL_COLOR_CLEAR_VALUE, clear);
        EXPECT_EQ(clear[0], farMoment);
        EXPECT_EQ(clear[3], 1);
        int viewport[4];
        glGetIntegerv(GL_VIEWPORT, viewport);
        EXPECT_EQ(viewport[0], 0);
        EXPECT_EQ(viewport[2], mapSize) << "the pass leaves its viewport";
        EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), int(own.getFBO()));
        EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
        EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
        EXPECT_EQ(glInteger(GL_ACTIVE_TEXTURE), GL_TEXTURE5);
        EXPECT_EQ(array()->unit(), 0);
    }
}

TEST_F(ShadowMapRenderPassTest, drawsCastersWithDepthsClampedIntoTheLayerOfTheirMatrix)
{
    buildScene();
    lights.point({-0.5f, 4.5f, 0}, 15);
    GLCallRecorder<&epoxy_glDrawElements> draws;
    QVector<int> layers;
    draws.onCall = [&](GLenum, GLsizei, GLenum, const void *) {
        EXPECT_TRUE(glFlag(GL_DEPTH_CLAMP));
        EXPECT_TRUE(glFlag(GL_DEPTH_TEST));
        EXPECT_TRUE(glFlag(GL_CULL_FACE));
        int layer = -1;
        glGetFramebufferAttachmentParameteriv(
            GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_FRAMEBUFFER_ATTACHMENT_TEXTURE_LAYER, &layer);
        if (layers.isEmpty() || layers.last() != layer)
            layers.append(layer);
    };
    render(0);
    EXPECT_EQ(draws.calls.size(), 6u * 4u);
    EXPECT_EQ(layers, (QVector<int>{0, 1, 2, 3, 4, 5}));
}

TEST_F(ShadowMapRenderPassTest, goesOnAfterItsContextDataWereTornDown)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    const Image before = render(1)[0];
    const GLObjectCounts counts = glObjectCounts();
    pass->teardownContextData(nullptr);
    EXPECT_EQ(glObjectCounts().framebuffers, counts.framebuffers - 1);
    EXPECT_EQ(glObjectCounts().vertexArrays, counts.vertexArrays - 1);
    EXPECT_EQ(glObjectCounts().textures, counts.textures);
    EXPECT_EQ(glObjectCounts().programs, counts.programs);
    pass->teardownContextData(nullptr);
    EXPECT_EQ(maximumDifference(render(1)[0], before), 0);
    EXPECT_TRUE(glObjectCounts() == counts);
}

TEST_F(ShadowMapRenderPassTest, deletesWhatItMade)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    // The model, too, makes things when it is first drawn.
    render(0);
    pass.reset();
    const GLObjectCounts before = glObjectCounts();
    pass = std::make_unique<ShadowMapRenderPass>();
    for (const int filter : {1, 2, 3})
        render(filter);
    EXPECT_FALSE(glObjectCounts() == before);
    pass.reset();
    EXPECT_TRUE(glObjectCounts() == before);
    // Without a context names are dropped.
    pass = std::make_unique<ShadowMapRenderPass>();
    render(1);
    context().doneCurrent();
    pass.reset();
    context().makeCurrent();
    EXPECT_TRUE(glObjectCounts() == before);
}

} // namespace Velmora::Kvz
