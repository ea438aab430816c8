// SPDX-License-Identifier: MIT
#include "ShadowPassFixture.h"
#include "support/ChangedShaders.h"
#include "support/GLCallRecorder.h"

#include <GL/GLExtensions.h>
#include <GL/GLStatistics.h>

#include <QtCore/QSize>

#include <epoxy/gl.h>

#include <gtest/gtest-spi.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace Velmora::Kvz {

namespace {

class ShadowMapRenderPass2Test : public ShadowPassTest<ShadowMapRenderPass2>
{
protected:
    static QVector<ShadowDriver> drivers() { return Traits::drivers(); }
    void addSpots(int count)
    {
        for (int i = 0; i < count; ++i)
            lights.spot({4, 6, float(i) / 4}, {-4, -6, -3}, 60, 20);
    }
};

/// Counts what is drawn and cleared while it lives.
struct WorkRecorder
{
    GLCallRecorder<&epoxy_glDrawArrays> arrays;
    GLCallRecorder<&epoxy_glDrawElements> elements;
    GLCallRecorder<&epoxy_glClear> clears;

    size_t draws() const { return arrays.calls.size() + elements.calls.size(); }
    size_t all() const { return draws() + clears.calls.size(); }
};

/// Checks maps that were drawn in two ways against each other. At an edge the rounding of a corner decides whether a
/// texel is covered, so one texel in a thousand may differ. None may be NaN.
void expectNearlyEqual(const Image &map, const Image &expected, double tolerance)
{
    ASSERT_EQ(map.width, expected.width);
    ASSERT_EQ(map.height, expected.height);
    ASSERT_EQ(map.data.size(), expected.data.size());
    int apart = 0;
    int undefined = 0;
    for (int i = 0; i < map.data.size(); i += 4) {
        const double mean = std::abs(double(map.data[i]) - double(expected.data[i]));
        const double square = std::abs(double(map.data[i + 1]) - double(expected.data[i + 1]));
        if (std::isnan(mean) || std::isnan(square))
            ++undefined;
        else if (std::max(mean, square / 2) > tolerance)
            ++apart;
    }
    EXPECT_EQ(undefined, 0) << "texels are no numbers";
    EXPECT_LE(apart, map.width * map.height / 1000) << "texels differ by more than " << tolerance;
}

} // namespace

// Tests the comparison that other tests rely on.
TEST_F(ShadowMapRenderPass2Test, nearlyEqualMapsAreOfOneSizeAndAllNumbers)
{
    const Image map(mapSize, mapSize);
    expectNearlyEqual(map, map, 0);
    for (const int channel : {0, 1}) {
        Image undefined = map;
        undefined.data[channel] = std::numeric_limits<float>::quiet_NaN();
        EXPECT_NONFATAL_FAILURE(expectNearlyEqual(undefined, map, 1), "no numbers");
        EXPECT_NONFATAL_FAILURE(expectNearlyEqual(map, undefined, 1), "no numbers");
        Image apart = map;
        for (int texel = 0; texel < mapSize; ++texel)
            apart.data[4 * texel + channel] = 3;
        EXPECT_NONFATAL_FAILURE(expectNearlyEqual(apart, map, 1), "differ by more");
    }
}

TEST_F(ShadowMapRenderPass2Test, theArraysHaveTheirFormatsFiltersAndEdges)
{
    buildScene();
    addLights();
    for (const ShadowDriver &driver : drivers()) {
        SCOPED_TRACE(driver.name);
        make(driver);
        setView(*pass);
        GLuint depths = 0;
        GLuint biases = 0;
        GLCallRecorder<&epoxy_glTexImage3D> storage;
        storage.onCall = [&](GLenum, GLint, GLint, GLsizei width, GLsizei, GLsizei, GLint, GLenum format, GLenum type,
                             const void *) {
            EXPECT_EQ(type, GLenum(GL_FLOAT));
            if (format == GL_DEPTH_COMPONENT)
                (width == 1 ? biases : depths) = GLuint(glInteger(GL_TEXTURE_BINDING_2D_ARRAY));
            else
                EXPECT_EQ(format, GLenum(GL_RG));
        };
        for (const int filter : {0, 3, 0}) {
            SCOPED_TRACE(filter);
            render(filter);
            const auto expectState = [](GLuint texture, int format, int filtering, int size) {
                const auto level = [&](GLenum name) {
                    return textureLevelParameter(GL_TEXTURE_2D_ARRAY, texture, name);
                };
                const auto state = [&](GLenum name) { return textureParameter(GL_TEXTURE_2D_ARRAY, texture, name); };
                EXPECT_EQ(level(GL_TEXTURE_INTERNAL_FORMAT), format);
                EXPECT_EQ(level(GL_TEXTURE_WIDTH), size);
                EXPECT_EQ(level(GL_TEXTURE_HEIGHT), size);
                EXPECT_EQ(level(GL_TEXTURE_DEPTH), 10);
                EXPECT_EQ(state(GL_TEXTURE_MIN_FILTER), filtering);
                EXPECT_EQ(state(GL_TEXTURE_MAG_FILTER), filtering);
            };
            const auto expectWrap = [](GLuint texture, int mode) {
                for (const GLenum axis : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T})
                    EXPECT_EQ(textureParameter(GL_TEXTURE_2D_ARRAY, texture, axis), mode);
            };
            ASSERT_TRUE(depths && biases);
            const GLuint moments = array()->textureID();
            ASSERT_EQ(array()->target(), unsigned(GL_TEXTURE_2D_ARRAY));
            {
                SCOPED_TRACE("moments");
                expectState(moments, GL_RG32F, GL_LINEAR, mapSize);
                expectWrap(moments, GL_CLAMP_TO_BORDER);
                EXPECT_EQ(borderColor(GL_TEXTURE_2D_ARRAY, moments),
                    (std::vector<float>{farMoment, farMoment, farMoment, 1}));
            }
            {
                SCOPED_TRACE("depths");
                expectState(depths, GL_DEPTH_COMPONENT32F, GL_NEAREST, mapSize);
                expectWrap(depths, GL_CLAMP_TO_EDGE);
            }
            {
                SCOPED_TRACE("biases");
                expectState(biases, GL_DEPTH_COMPONENT32F, GL_NEAREST, 1);
                expectWrap(biases, GL_REPEAT);
            }
        }
    }
}

TEST_F(ShadowMapRenderPass2Test, theDriverDecidesTheStrategyAndTheLogNamesIt)
{
    struct Row
    {
        QByteArray renderer;
        int vertices;
        bool hidesExtension;
        QString rendering;
        bool isFilterLayered;
    };
    const QString batches = QStringLiteral("SMRP2: Using bath 8 layered rendering");
    const QString vertexStage = QStringLiteral("SMRP2: Using GL_ARB_shader_viewport_layer_array layered rendering");
    const QString oneByOne = QStringLiteral("SMRP2: Using non-Layered rendering");
    QVector<Row> rows = {
        {"AMD Radeon", 1024, true, batches, true},
        {"ATI Technologies", 24, true, batches, true},
        {"AMD Radeon", 23, true, oneByOne, true},
        {"amd radeon", 1024, true, oneByOne, true},
        {"Test", 1024, true, oneByOne, true},
        {"Test", 4, true, oneByOne, true},
        {"Test", 3, true, oneByOne, false},
    };
    if (hasVertexStage()) {
        rows.append({"AMD Radeon", 24, false, batches, true});
        rows.append({"AMD Radeon", 23, false, vertexStage, true});
        rows.append({"Test", 1024, false, vertexStage, true});
        rows.append({"ATI", 3, false, vertexStage, false});
    }
    for (const Row &row : rows) {
        std::printf("[ STRATEGY ] %s, %d vertices%s\n", row.renderer.constData(), row.vertices,
            row.hidesExtension ? "" : ", vertex stage");
        SCOPED_TRACE(row.renderer.constData() + std::to_string(row.vertices));
        const DriverClaims claims(row.renderer, row.vertices, row.hidesExtension ? vertexStageExtension : QByteArray());
        log.clear();
        const ShadowMapRenderPass2 made;
        for (const LogCapture::Message &message : log.messages()) {
            EXPECT_EQ(message.category, QStringLiteral("default"));
            EXPECT_TRUE(message.file.isEmpty());
        }
        EXPECT_EQ(log.takeDebug(),
            (QStringList{QStringLiteral("SMRP2: Geometry Outputs %1 ").arg(row.vertices), row.rendering,
                row.isFilterLayered ? QStringLiteral("SMRP2: Using layered blur")
                                    : QStringLiteral("SMRP2: Using non-Layered blur")}));
    }
}

// Runs in several environments, each of which names the strategy that it expects.
TEST_F(ShadowMapRenderPass2Test, theStrategyIsTheOneThatTheEnvironmentExpects)
{
    QString expected = expectedShadowStrategy();
    if (expected.isEmpty()) {
        const bool isBatching =
            driverName().contains(QStringLiteral("AMD")) || driverName().contains(QStringLiteral("ATI"));
        expected = isBatching && glInteger(GL_MAX_GEOMETRY_OUTPUT_VERTICES) > 23
            ? QStringLiteral("bath 8 layered rendering")
            : hasGLExtension(vertexStageExtension)
            ? QStringLiteral("GL_ARB_shader_viewport_layer_array layered rendering")
            : QStringLiteral("non-Layered rendering");
    }
    log.clear();
    const ShadowMapRenderPass2 made;
    EXPECT_EQ(log.takeDebug().value(1), QStringLiteral("SMRP2: Using ") + expected);
}

TEST_F(ShadowMapRenderPass2Test, allStrategiesGiveTheSameMaps)
{
    buildScene();
    addLights();
    for (const int filter : {0, 3}) {
        QVector<Image> expected;
        for (const ShadowDriver &driver : drivers()) {
            SCOPED_TRACE(driver.name);
            make(driver);
            setView(*pass);
            WorkRecorder work;
            const QVector<Image> maps = render(filter);
            ASSERT_EQ(maps.size(), 10);
            // Four items per batch or layer, plus the filter's draws.
            const bool isBatched = driver.renderer.startsWith("AMD");
            EXPECT_EQ(work.elements.calls.size(), isBatched ? 4u * 2u : 4u * 10u);
            EXPECT_EQ(work.arrays.calls.size(), driver.geometryVertices > 3 ? 1u : 10u);
            if (expected.isEmpty()) {
                expected = maps;
                continue;
            }
            for (int layer = 0; layer < 10; ++layer) {
                SCOPED_TRACE(layer);
                // The strategies multiply the same matrices with different rounding, so edges may fall on other texels.
                expectNearlyEqual(maps[layer], expected[layer], 2e-6);
            }
        }
    }
}

TEST_F(ShadowMapRenderPass2Test, drawsDepthsAloneInBatchesOfWhatIsLeft)
{
    buildScene();
    addLights();
    for (const ShadowDriver &driver : drivers()) {
        SCOPED_TRACE(driver.name);
        make(driver);
        setView(*pass);
        QVector<QPair<int, int>> batches;
        {
            GLCallRecorder<&epoxy_glDrawElements> draws;
            draws.onCall = [&](GLenum, GLsizei, GLenum, const void *) {
                EXPECT_FALSE(glFlag(GL_DEPTH_CLAMP));
                EXPECT_TRUE(glFlag(GL_DEPTH_TEST));
                EXPECT_TRUE(glFlag(GL_CULL_FACE));
                GLboolean mask[4] = {};
                glGetBooleanv(GL_COLOR_WRITEMASK, mask);
                EXPECT_FALSE(mask[0] || mask[1] || mask[2] || mask[3]);
                const auto program = GLuint(glInteger(GL_CURRENT_PROGRAM));
                QPair<int, int> batch(-1, 1);
                glGetUniformiv(program, glGetUniformLocation(program, "u_layerBase"), &batch.first);
                const GLint count = glGetUniformLocation(program, "u_layerCount");
                if (count >= 0)
                    glGetUniformiv(program, count, &batch.second);
                if (batches.isEmpty() || batches.last() != batch)
                    batches.append(batch);
            };
            render(3);
        }
        if (driver.renderer.startsWith("AMD")) {
            EXPECT_EQ(batches, (QVector<QPair<int, int>>{{0, 8}, {8, 2}}));
        } else {
            ASSERT_EQ(batches.size(), 10);
            for (int i = 0; i < 10; ++i)
                EXPECT_EQ(batches[i].first, i);
        }
    }
}

TEST_F(ShadowMapRenderPass2Test, agreesWithTheOtherPass)
{
    buildScene();
    addLights();
    setView(*pass);
    ShadowMapRenderPass other;
    connect(other, mapSize);
    setView(other);
    for (const int filter : {0, 3}) {
        set(other, "Kvz_int_FilterType", filter);
        run(other);
        const QVector<Image> expected = readMaps(other);
        const QVector<Image> maps = render(filter);
        ASSERT_EQ(maps.size(), expected.size());
        for (int layer = 0; layer < maps.size(); ++layer) {
            SCOPED_TRACE(layer);
            // One way stores depths mapped to 0 to 1, the other divides in each texel.
            expectNearlyEqual(maps[layer], expected[layer], 4e-6);
        }
    }
}

TEST_F(ShadowMapRenderPass2Test, holdsTheMomentsOfAWallAtAKnownDistance)
{
    addWall(5, 30);
    build();
    addSpot();
    lights.spot({0, 0, 0}, {0, 0, -1}, 60, 20)->depthBias = 0.0625f;
    for (const float distance : {0.5f, 5.0f, 12.5f, 18.0f}) {
        SCOPED_TRACE(distance);
        model->setModelMatrix(0, placedAt({0, 0, -distance}, {30, 30, 1}));
        for (const int filter : {0, 3}) {
            const QVector<Image> maps = render(filter);
            for (int layer = 0; layer < 2; ++layer) {
                const double depth = axisDepth(*pass, double(distance), layer) + (layer == 0 ? bias : 0.0625);
                for (int i = 0; i < maps[layer].data.size(); i += 4) {
                    if (depth > 1) {
                        ASSERT_EQ(maps[layer].data[i], farMoment) << "past the range with its bias";
                        continue;
                    }
                    ASSERT_NEAR(maps[layer].data[i], depth, 2e-6);
                    ASSERT_NEAR(maps[layer].data[i + 1], depth * depth, 4e-6);
                }
            }
        }
    }
}

TEST_F(ShadowMapRenderPass2Test, theNearHalfOfTheClipRangeIsEmptyAndHides)
{
    addWall(8, 10);
    addWall(1, 1);
    addWall(1, 1);
    build();
    addSpot();
    render(0);
    // A wall in front of the near plane is clipped and hides nothing.
    const auto before = float(axisDistance(*pass, -1) / 2);
    ASSERT_LT(axisDepth(*pass, double(before)), -1);
    for (const int item : {1, 2})
        model->setModelMatrix(item, placedAt({0, 0, -before}, {1, 1, 1}));
    expectAxisDepth(*pass, render(0)[0], 8, bias);
    // In the near half of the depth range a wall writes empty texels, and still hides what is behind it.
    const auto within = float(axisDistance(*pass, -0.5));
    model->setModelMatrix(1, placedAt({0, 0, -within}, {within / 8, within / 8, 1}));
    const Image map = render(0)[0];
    EXPECT_EQ(map.at(mapSize / 2, mapSize / 2)[0], farMoment);
    EXPECT_NEAR(map.at(2, 2)[0], axisDepth(*pass, 8) + bias, 2e-6);
    const auto lit = float(axisDistance(*pass, 0.01));
    model->setModelMatrix(1, placedAt({0, 0, -lit}, {1, 1, 1}));
    expectAxisDepth(*pass, render(0)[0], double(lit), bias);
    model->setModelMatrix(1, placedAt({0, 0, -before}, {1, 1, 1}));
    model->setModelMatrix(0, placedAt({0, 0, -25}, {30, 30, 1}));
    ASSERT_GT(axisDepth(*pass, 25), 1);
    EXPECT_TRUE(isAllFar(render(0)[0]));
}

TEST_F(ShadowMapRenderPass2Test, aDepthProgramThatDoesNotBuildEndsTheFrameAndIsNotBuiltAgain)
{
    buildScene();
    addLights();
    const QByteArray body = "void main()\n{\n    out_fragDepth = vec4(1.0, 1.0, 0.0, 0.0);";
    for (const ShadowDriver &driver : drivers()) {
        SCOPED_TRACE(driver.name);
        for (const bool compiles : {false, true}) {
            SCOPED_TRACE(compiles ? "does not link" : "does not compile");
            make(driver);
            connect(*pass, mapSize);
            const int programs = glObjectCounts().programs;
            {
                ChangedShaders other(body,
                    compiles ? "uniform float u_layerBase;\nvoid main()\n{\n    out_fragDepth = vec4(u_layerBase);"
                             : "void main()\n{\n    out_fragDepth = vec4(u_layerBase);");
                GLCallRecorder<&epoxy_glLinkProgram> links;
                WorkRecorder work;
                run(*pass);
                EXPECT_EQ(other.changed, 1);
                EXPECT_EQ(links.calls.size(), compiles ? 1u : 0u);
                EXPECT_EQ(work.all(), 0u);
            }
            expectOneDebugLine("u_layerBase");
            EXPECT_FALSE(pass->output(0).isValid());
            EXPECT_EQ(glObjectCounts().programs, programs + 1);
            // The maps stay empty from then on, although the driver would now accept the program.
            run(*pass);
            EXPECT_EQ(glObjectCounts().programs, programs + 2) << "the filter's alone";
            const QVector<Image> maps = readMaps(*pass);
            EXPECT_EQ(maps.size(), 8);
            for (const Image &map : maps)
                EXPECT_TRUE(isAllFar(map));
            EXPECT_TRUE(log.messages().isEmpty());
            EXPECT_EQ(pass->errorCode(), 0u);
        }
    }
}

TEST_F(ShadowMapRenderPass2Test, filtersAreTheirFormulas)
{
    buildScene();
    addLights();
    const QVector<Image> input = render(0);
    const QVector<Image> filtered = render(3);
    ASSERT_EQ(input.size(), 8);
    int extended = 0;
    for (int layer = 0; layer < input.size(); ++layer) {
        SCOPED_TRACE(layer);
        // Sums of nine floats.
        expectMoments(filtered[layer], boxReference(MomentMap(input[layer]), false, &extended), 1e-6);
    }
    EXPECT_GT(extended, 200) << "no silhouettes were extended";
}

TEST_F(ShadowMapRenderPass2Test, everyFilterNumberButZeroIsTheSameFilter)
{
    buildScene();
    addLights();
    const QVector<Image> unfiltered = render(0);
    const QVector<Image> expected = render(3);
    const int programs = glObjectCounts().programs;
    int built = 0;
    for (const int filter : {1, 2, -5, 1, 3}) {
        const QVector<Image> maps = render(filter);
        built += filter == 1 && built > 0 ? 0 : filter == 3 ? 0 : 1;
        EXPECT_EQ(glObjectCounts().programs, programs + built) << filter;
        for (int layer = 0; layer < maps.size(); ++layer)
            EXPECT_EQ(maximumDifference(maps[layer], expected[layer]), 0) << filter;
    }
    EXPECT_GT(maximumDifference(unfiltered[0], expected[0]), 0.001);
    // A value that is not a number counts as 0.
    pass->setInput(ShadowMapRenderPass2::Filter, QSize(3, 3));
    run(*pass);
    EXPECT_EQ(maximumDifference(readMaps(*pass)[0], unfiltered[0]), 0);
}

TEST_F(ShadowMapRenderPass2Test, aCleanFrameDrawsNothingAndPublishesTheSame)
{
    buildScene();
    addLights();
    const QVector<Image> before = render(3);
    Texture *const texture = array();
    set(*pass, "Kvz_bool_Dirty", false);
    pass->skip(nullptr);
    // Changes of lights, filter and positions are ignored now; only the culling marks are reset.
    lights.spot({0, 5, 0}, {0, -1, 0}, 60, 20);
    model->setModelMatrix(1, placedAt({-3, 3, 3}));
    QMatrix4x4 nowhere;
    nowhere.translate(100, 0, 0);
    model->frustumCull(nowhere);
    ASSERT_GT(model->culledCount(), 0);
    connect(*pass, mapSize);
    setFilter(0);
    {
        WorkRecorder work;
        GLCallRecorder<&epoxy_glViewport> viewports;
        run(*pass);
        EXPECT_EQ(work.all(), 0u);
        EXPECT_EQ(viewports.calls.size(), 0u);
    }
    EXPECT_EQ(model->culledCount(), 0);
    EXPECT_EQ(array(), texture);
    EXPECT_EQ(renderDataOf(*pass)->layerCount, before.size());
    const QVector<Image> after = readMaps(*pass);
    for (int layer = 0; layer < before.size(); ++layer)
        EXPECT_EQ(maximumDifference(after[layer], before[layer]), 0);
    // An unset input counts as dirty, and so does any value that converts to true.
    for (const QVariant &dirty : {QVariant(), QVariant(true), QVariant(1)}) {
        set(*pass, "Kvz_bool_Dirty", dirty);
        WorkRecorder work;
        run(*pass);
        EXPECT_GT(work.draws(), 0u);
        EXPECT_EQ(renderDataOf(*pass)->layerCount, before.size() + 1);
    }
}

TEST_F(ShadowMapRenderPass2Test, aCleanFrameWithAnotherMapSizeIsRenderedAnyway)
{
    buildScene();
    addLights();
    render(0);
    const auto transforms = renderDataOf(*pass)->transforms;
    set(*pass, "Kvz_bool_Dirty", false);
    lights.spot({0, 5, 0}, {0, -1, 0}, 60, 20);
    connect(*pass, 2 * mapSize);
    run(*pass);
    EXPECT_EQ(array()->width(0), 2 * mapSize);
    EXPECT_EQ(renderDataOf(*pass)->layerCount, transforms.size()) << "the lights are those of the last dirty frame";
    expectRayCast(*pass, bias);
}

TEST_F(ShadowMapRenderPass2Test, aCleanFirstFrameBuildsAProgramWithoutMatricesForGood)
{
    buildScene();
    addLights();
    set(*pass, "Kvz_bool_Dirty", false);
    connect(*pass, mapSize);
    setFilter(0);
    run(*pass);
    // This driver rejects empty arrays, as GLSL demands; another one may accept them.
    const QStringList lines = log.takeDebug();
    log.takeCategory(QStringLiteral("kvz.gl"));
    ASSERT_FALSE(lines.isEmpty());
    EXPECT_TRUE(lines[0].startsWith(QStringLiteral("[ShadowMapRenderPass2:"))) << qPrintable(lines[0]);
    EXPECT_FALSE(pass->output(0).isValid());
    // Later frames have lights, but no program to draw them.
    set(*pass, "Kvz_bool_Dirty", true);
    const int programs = glObjectCounts().programs;
    run(*pass);
    EXPECT_EQ(renderDataOf(*pass)->layerCount, 8);
    EXPECT_EQ(glObjectCounts().programs, programs + 1) << "the filter's alone";
    for (const Image &map : readMaps(*pass))
        EXPECT_TRUE(isAllFar(map));
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(ShadowMapRenderPass2Test, arraysShrinkOnlyBelowHalfTheirCapacity)
{
    buildScene();
    addSpots(10);
    const QVariantList all = lights.values();
    const auto renderWith = [&](int count) {
        set(*pass, "Kvz_QList_KvzShadowMapManagerLight*_Lights", QVariant(all.mid(0, count)));
        run(*pass);
        EXPECT_EQ(renderDataOf(*pass)->layerCount, count);
        expectRayCast(*pass, bias);
    };
    connect(*pass, mapSize);
    setFilter(0);
    renderWith(10);
    Texture *const first = array();
    EXPECT_EQ(layersOf(first), 10);
    GLCallRecorder<&epoxy_glTexImage3D> storage;
    for (const int count : {6, 5, 9, 10}) {
        renderWith(count);
        EXPECT_EQ(array(), first) << count;
        EXPECT_EQ(layersOf(array()), 10);
    }
    // The biases alone are uploaded again, one for each layer.
    ASSERT_EQ(storage.calls.size(), 4u);
    EXPECT_EQ(std::get<5>(storage.calls[0]), 6);
    EXPECT_EQ(std::get<3>(storage.calls[0]), 1);
    const GLObjectCounts before = glObjectCounts();
    renderWith(4);
    EXPECT_EQ(layersOf(array()), 4);
    renderWith(2);
    EXPECT_EQ(layersOf(array()), 4);
    renderWith(5);
    EXPECT_EQ(layersOf(array()), 5);
    EXPECT_TRUE(glObjectCounts() == before) << "what is replaced goes";
}

TEST_F(ShadowMapRenderPass2Test, theProgramKeepsTheNumberOfItsFirstFrame)
{
    buildScene();
    addSpots(3);
    const QVariantList all = lights.values();
    connect(*pass, mapSize);
    set(*pass, "Kvz_QList_KvzShadowMapManagerLight*_Lights", QVariant(all.mid(0, 1)));
    setFilter(0);
    run(*pass);
    const Image first = readMaps(*pass)[0];
    const int programs = glObjectCounts().programs;
    set(*pass, "Kvz_QList_KvzShadowMapManagerLight*_Lights", all);
    run(*pass);
    EXPECT_EQ(glObjectCounts().programs, programs);
    EXPECT_EQ(renderDataOf(*pass)->layerCount, 3);
    EXPECT_EQ(maximumDifference(readMaps(*pass)[0], first), 0) << "the layer that has a matrix is right";
}

TEST_F(ShadowMapRenderPass2Test, castersThatComeAndGoLeaveNothing)
{
    buildScene();
    addLights();
    const auto casters = model;
    for (const ShadowDriver &driver : drivers()) {
        SCOPED_TRACE(driver.name);
        make(driver);
        model = casters;
        const QVector<Image> maps = render(3);
        ASSERT_GT(maps.size(), 0);
        EXPECT_FALSE(isAllFar(maps[0]));
        set(*pass, "Kvz_KvzGPUModel*_Geometry", QVariant::fromValue<GPUModel *>(nullptr));
        run(*pass);
        log.takeCriticals();
        const QVector<Image> without = readMaps(*pass);
        EXPECT_EQ(without.size(), maps.size());
        for (const Image &map : without)
            EXPECT_TRUE(isAllFar(map));
        const QVector<Image> again = render(3);
        ASSERT_EQ(again.size(), maps.size());
        for (int layer = 0; layer < maps.size(); ++layer)
            EXPECT_EQ(maximumDifference(again[layer], maps[layer]), 0);
    }
}

TEST_F(ShadowMapRenderPass2Test, lightsThatGoLeaveNoLayersAndComeBackWhole)
{
    buildScene();
    addSpots(6);
    const QVariantList all = lights.values();
    const auto frame = [&](RenderPass &target, const QVariant &value) {
        set(target, "Kvz_QList_KvzShadowMapManagerLight*_Lights", value);
        run(target);
    };
    for (const ShadowDriver &driver : drivers()) {
        SCOPED_TRACE(driver.name);
        make(driver);
        const QVector<Image> fresh = render(3);
        ASSERT_EQ(fresh.size(), 6);
        EXPECT_FALSE(isAllFar(fresh[5]));
        // Arrays of six layers are recreated; an array of one layer stays, since half of one rounds down to none.
        for (const int count : {6, 1}) {
            SCOPED_TRACE(count);
            make(driver);
            render(3);
            frame(*pass, all.mid(0, count));
            const GLObjectCounts counts = glObjectCounts();
            for (const QVariant &none : {QVariant(QVariantList()), QVariant(), QVariant(5)}) {
                WorkRecorder work;
                frame(*pass, none);
                EXPECT_EQ(work.all(), 0u);
                ASSERT_TRUE(renderDataOf(*pass));
                EXPECT_EQ(renderDataOf(*pass)->layerCount, 0);
                EXPECT_TRUE(renderDataOf(*pass)->transforms.isEmpty());
                EXPECT_TRUE(renderDataOf(*pass)->projectors.isEmpty());
                ASSERT_TRUE(array());
                EXPECT_EQ(layersOf(array()), count == 6 ? 0 : 1);
            }
            EXPECT_TRUE(takeGLErrors().isEmpty());
            frame(*pass, all);
            const QVector<Image> again = readMaps(*pass);
            ASSERT_EQ(again.size(), fresh.size());
            for (int layer = 0; layer < fresh.size(); ++layer)
                EXPECT_EQ(maximumDifference(again[layer], fresh[layer]), 0) << layer;
            EXPECT_TRUE(glObjectCounts() == counts);
            EXPECT_TRUE(log.messages().isEmpty());
        }
    }
}

TEST_F(ShadowMapRenderPass2Test, aNewContextNeedsAReallocation)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    for (const ShadowDriver &driver : drivers()) {
        SCOPED_TRACE(driver.name);
        make(driver);
        render(0);
        const GLObjectCounts counts = glObjectCounts();
        pass->teardownContextData(nullptr);
        EXPECT_EQ(glObjectCounts().framebuffers, counts.framebuffers - 2);
        EXPECT_EQ(glObjectCounts().vertexArrays, counts.vertexArrays - 1);
        EXPECT_EQ(glObjectCounts().textures, counts.textures);
        EXPECT_EQ(glObjectCounts().programs, counts.programs);
        pass->teardownContextData(nullptr);
        // The frame is clean but rendered, because the framebuffers are new; a new size recreates the arrays.
        set(*pass, "Kvz_bool_Dirty", false);
        connect(*pass, 2 * mapSize);
        run(*pass);
        expectRayCast(*pass, bias);
        EXPECT_TRUE(glObjectCounts() == counts);
    }
}

TEST_F(ShadowMapRenderPass2Test, withoutAReallocationNothingIsAttachedInANewContext)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    make({"one by one, single filter", "Test", 3, true});
    const Image expected = render(0)[0];
    pass->teardownContextData(nullptr);
    // Where layers are attached one by one, every frame attaches them. A clean frame is rendered here too.
    set(*pass, "Kvz_bool_Dirty", false);
    {
        WorkRecorder work;
        run(*pass);
        EXPECT_GT(work.elements.calls.size(), 0u);
    }
    EXPECT_EQ(maximumDifference(readMaps(*pass)[0], expected), 0);
    make({"batches, layered filter", "AMD Test", 24, false});
    render(0);
    pass->teardownContextData(nullptr);
    run(*pass);
    EXPECT_FALSE(takeGLErrors().isEmpty()) << "nothing to draw into";
    EXPECT_EQ(maximumDifference(readMaps(*pass)[0], expected), 0) << "the old maps stay";
}

} // namespace Velmora::Kvz
