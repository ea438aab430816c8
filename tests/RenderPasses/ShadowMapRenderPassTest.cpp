// SPDX-License-Identifier: MIT
#include "ShadowPassFixture.h"
#include "support/ChangedShaders.h"
#include "support/GLCallRecorder.h"

#include <GL/GLStatistics.h>

#include <QtCore/QSize>

#include <epoxy/gl.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

using Port = ShadowMapRenderPass;
using ShadowMapRenderPassTest = ShadowPassTest<ShadowMapRenderPass>;

int arrayParameter(GLuint texture, GLenum name)
{
    return textureParameter(GL_TEXTURE_2D_ARRAY, texture, name);
}

} // namespace

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
        // The wall extends 1/4 of its distance to each side, the light tan(30 degrees) of it.
        const int half = int(0.25 / std::tan(M_PI / 6) * mapSize / 2);
        int inside = 0;
        for (int y = 0; y < mapSize; ++y) {
            for (int x = 0; x < mapSize; ++x) {
                const int off = std::max(std::abs(2 * x + 1 - mapSize), std::abs(2 * y + 1 - mapSize)) / 2;
                const float *const texel = map.at(x, y);
                if (off < half - 1) {
                    ++inside;
                    // Rounding of a depth near 1 in single precision, by two divisions and a square.
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

TEST_F(ShadowMapRenderPassTest, theNearHalfOfTheClipRangeCastsNothing)
{
    addWall(8, 10);
    addWall(1, 0.1f);
    addWall(1, 0.1f);
    build();
    addSpot();
    render(0);
    // A wall in the near half of the depth range and one in front of the near plane stand before a farther one.
    const auto within = float(axisDistance(*pass, -0.5));
    const auto before = float(axisDistance(*pass, -1) / 2);
    ASSERT_LT(axisDepth(*pass, double(before)), -1);
    model->setModelMatrix(1, placedAt({0, 0, -within}, {1, 1, 1}));
    model->setModelMatrix(2, placedAt({0, 0, -before}, {1, 1, 1}));
    expectAxisDepth(*pass, render(0)[0], 8, bias);
    EXPECT_FALSE(isAllFar(readMaps(*pass)[0])) << "what casts nothing hides nothing";
    // The limit is a depth of 0, regardless of the bias.
    const auto justBefore = float(axisDistance(*pass, -2e-4));
    model->setModelMatrix(1, placedAt({0, 0, -justBefore}, {1, 1, 1}));
    expectAxisDepth(*pass, render(0)[0], 8, bias);
    // Just beyond the middle of the range a wall casts a shadow.
    const auto lit = float(axisDistance(*pass, 0.01));
    model->setModelMatrix(1, placedAt({0, 0, -lit}, {1, 1, 1}));
    expectAxisDepth(*pass, render(0)[0], double(lit), bias);
    model->setModelMatrix(1, placedAt({0, 0, -within}, {1, 1, 1}));
    model->setModelMatrix(0, placedAt({0, 0, -25}, {30, 30, 1}));
    ASSERT_GT(axisDepth(*pass, 25), 1);
    EXPECT_TRUE(isAllFar(render(0)[0])) << "what lies behind the range casts nothing either";
}

TEST_F(ShadowMapRenderPassTest, filtersAreTheirFormulas)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    lights.spot({4, 6, 3}, {-4, -6, -3}, 100, 20);
    const QVector<Image> input = render(0);
    // Sums of a few floats; the Gaussian's constants have six digits, and each pass uses seven weights.
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
    // A value that is not a number counts as 0.
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
        // No filter runs with 0, so the second array keeps the state of an earlier frame.
        const bool hasBorder = filter == 3 || (filter == 0 && before->textureID() == second);
        for (const GLenum axis : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T}) {
            EXPECT_EQ(arrayParameter(second, axis), hasBorder ? GL_CLAMP_TO_BORDER : GL_CLAMP_TO_EDGE);
        }
    }
}

TEST_F(ShadowMapRenderPassTest, aFilterThatDoesNotBuildLeavesTheEdgesOfBothArrays)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    for (const int filter : {1, 2, 3}) {
        SCOPED_TRACE(filter);
        make();
        render(0);
        GLuint second = 0;
        GLCallRecorder<&epoxy_glTexImage3D> storage;
        storage.onCall = [&](GLenum, GLint, GLint, GLsizei, GLsizei, GLsizei, GLint, GLenum, GLenum, const void *) {
            second = GLuint(glInteger(GL_TEXTURE_BINDING_2D_ARRAY));
        };
        {
            const RefusedShaders refused;
            render(filter);
        }
        expectOneDebugLine("refused");
        EXPECT_EQ(arrayParameter(array()->textureID(), GL_TEXTURE_WRAP_S), GL_CLAMP_TO_BORDER);
        ASSERT_NE(second, 0u) << "the second array is made before the program";
        EXPECT_EQ(arrayParameter(second, GL_TEXTURE_WRAP_S), GL_CLAMP_TO_EDGE);
        EXPECT_EQ(arrayParameter(second, GL_TEXTURE_WRAP_T), GL_CLAMP_TO_EDGE);
    }
}

TEST_F(ShadowMapRenderPassTest, switchingFiltersBuildsEachProgramOnceAndLeavesNoTrace)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    QVector<Image> fresh;
    for (int filter = 0; filter < 4; ++filter) {
        fresh.append(render(filter)[0]);
        make();
    }
    // The box filter comes first: it reads no texture coordinates, and the quad is built for its program.
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

TEST_F(ShadowMapRenderPassTest, aProgramThatDoesNotBuildEndsTheFrameAndIsNotBuiltAgain)
{
    buildScene();
    lights.directional({0, -1, 0});
    pass->setInstanceDataPlanName(QStringLiteral("NoSuchPlan"));
    connect(*pass, mapSize);
    run(*pass);
    EXPECT_FALSE(log.takeWarnings().isEmpty()) << "the registry names the plan";
    expectOneDebugLine("NoSuchPlan");
    EXPECT_FALSE(pass->output(0).isValid());
    // The maps stay empty from then on.
    const int programs = glObjectCounts().programs;
    run(*pass);
    EXPECT_EQ(glObjectCounts().programs, programs + 1) << "the filter's";
    EXPECT_TRUE(log.messages().isEmpty());
    ASSERT_TRUE(renderDataOf(*pass));
    setFilter(0);
    run(*pass);
    EXPECT_TRUE(isAllFar(readMaps(*pass)[0]));
}

// Each stage is valid by itself, so only linking can fail.
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
    expectOneDebugLine("vo_fragPos");
    EXPECT_FALSE(pass->output(0).isValid());
    EXPECT_EQ(glObjectCounts().programs, programs + 1);
    // The maps stay empty from then on, although the driver would now accept the program.
    setFilter(0);
    run(*pass);
    EXPECT_EQ(glObjectCounts().programs, programs + 1);
    EXPECT_TRUE(log.messages().isEmpty());
    EXPECT_TRUE(isAllFar(readMaps(*pass).value(0)));
    EXPECT_EQ(pass->errorCode(), 0u);
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

} // namespace Velmora::Kvz
