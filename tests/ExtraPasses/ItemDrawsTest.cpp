// SPDX-License-Identifier: MIT
// Many items in one call: their numbers, their order, and which calls are made.
#include "support/DriverClaims.h"
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/Meshes.h"

#include <ExtraPasses/ItemIdRenderPass.h>
#include <ExtraPasses/LitForwardRenderPass.h>
#include <GL/AutoBinder.h>
#include <GL/GLExtensions.h>
#include <GL/Texture.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QRect>
#include <QtGui/QMatrix4x4>

#include <epoxy/gl.h>

#include <vector>

namespace Velmora::Kvz {

namespace {

constexpr int side =
    96; // Pixels of the picture, and items, each of which covers one: many enough for calls that draw many.

/// The place of an item: its pixel, from the left and from the bottom.
QMatrix4x4 placeOf(int item, bool isMirrored)
{
    QMatrix4x4 matrix;
    matrix.translate((float(item % side) + 0.5f) * 2 / side - 1, (float(item / side) + 0.5f) * 2 / side - 1, 0);
    matrix.scale(isMirrored ? -1.0f / side : 1.0f / side, 1.0f / side, 1);
    return matrix;
}

QSharedPointer<GPUModel> buildWalls(const MeshData &mesh, bool (*isMirrored)(int))
{
    GPUModelBuilder builder;
    const int wall = builder.addMesh(mesh);
    const int material = builder.addMaterial({});
    for (int item = 0; item < side * side; ++item)
        builder.addItem(wall, material, placeOf(item, isMirrored(item)));
    return builder.build();
}

bool none(int)
{
    return false;
}

bool lastHalf(int item)
{
    return item >= side * side / 2;
}

template <typename Pass> void draw(Pass &pass, GPUModel *model)
{
    pass.setInput(Pass::Viewport, QRect(0, 0, side, side));
    pass.setInput(Pass::ProjectionMatrix, QMatrix4x4());
    pass.setInput(Pass::CameraMatrix, QMatrix4x4());
    pass.setInput(Pass::Geometry, QVariant::fromValue(model));
    pass.start(nullptr);
}

/// Item and triangle at each pixel, as the pass gives them, and from 1 up.
std::vector<std::array<GLuint, 2>> idsOf(GPUModel *model)
{
    ItemIdRenderPass pass;
    draw(pass, model);
    std::vector<std::array<GLuint, 2>> ids(side * side);
    AutoBinder binder(pass.output(0).value<Texture *>());
    glGetTexImage(GL_TEXTURE_2D, 0, GL_RG_INTEGER, GL_UNSIGNED_INT, ids.data());
    return ids;
}

} // namespace

class ItemDrawsTest : public GLTest
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        context();
        if (!hasGLExtension("GL_ARB_multi_draw_indirect") || !hasGLExtension("GL_ARB_base_instance"))
            GTEST_SKIP() << "this driver draws item by item";
    }
};

TEST_F(ItemDrawsTest, itemsKeepTheirNumbersAndTriangles)
{
    for (const bool isIndexed : {true, false}) {
        const MeshData mesh = isIndexed ? wallMesh() : withoutIndices(wallMesh());
        const QSharedPointer<GPUModel> model = buildWalls(mesh, lastHalf);
        const std::vector<std::array<GLuint, 2>> ids = idsOf(model.data());
        for (int item = 0; item < side * side; ++item) {
            EXPECT_EQ(ids[size_t(item)][0], GLuint(item + 1)) << "indices " << isIndexed;
            EXPECT_LE(ids[size_t(item)][1], 1u) << "the second triangle of an item is the last";
        }
        const DriverClaims claims({}, 0, "GL_ARB_multi_draw_indirect");
        EXPECT_EQ(idsOf(model.data()), ids) << "indices " << isIndexed;
    }
}

TEST_F(ItemDrawsTest, aCallDrawsARunOfOneWindingAndLeavesHiddenItemsOut)
{
    const QSharedPointer<GPUModel> model = buildWalls(wallMesh(), lastHalf);
    LitForwardRenderPass pass;
    draw(pass, model.data());
    GLCallRecorder<&epoxy_glMultiDrawElementsIndirect> many;
    GLCallRecorder<&epoxy_glDrawElementsInstancedBaseInstance> one;
    GLCallRecorder<&epoxy_glDrawElements> plain;
    GLCallRecorder<&epoxy_glBufferData> uploads;
    draw(pass, model.data());
    ASSERT_EQ(many.calls.size(), 2u);
    EXPECT_EQ(std::get<3>(many.calls[0]), side * side / 2);
    EXPECT_EQ(std::get<3>(many.calls[1]), side * side / 2);
    EXPECT_TRUE(one.calls.empty() && plain.calls.empty());
    EXPECT_TRUE(uploads.calls.empty()) << "nothing has changed";

    // The left half of the picture alone is in view.
    many.calls.clear();
    QMatrix4x4 leftHalf;
    leftHalf.ortho(-1, -0.01f, -1, 1, -1, 1);
    model->frustumCull(leftHalf);
    draw(pass, model.data());
    ASSERT_EQ(many.calls.size(), 2u);
    EXPECT_EQ(std::get<3>(many.calls[0]) + std::get<3>(many.calls[1]), side * side / 2);
    EXPECT_EQ(uploads.calls.size(), 1u);
    model->resetCulling();

    // Two items that are mirrored end runs. Short ones need no commands.
    many.calls.clear();
    model->setModelMatrix(10, placeOf(10, true));
    model->setModelMatrix(11, placeOf(11, true));
    draw(pass, model.data());
    ASSERT_EQ(many.calls.size(), 3u);
    EXPECT_EQ(std::get<3>(many.calls[0]), 10);
    EXPECT_EQ(one.calls.size(), 2u);
    EXPECT_EQ(std::get<5>(one.calls.at(0)), 10u);
}

TEST_F(ItemDrawsTest, aModelOfFewItemsIsDrawnItemByItem)
{
    GPUModelBuilder builder;
    const int wall = builder.addMesh(wallMesh());
    for (int item = 0; item < 3; ++item)
        builder.addItem(wall, builder.addMaterial({}), placeOf(item, none(item)));
    const QSharedPointer<GPUModel> model = builder.build();
    LitForwardRenderPass pass;
    draw(pass, model.data());
    GLCallRecorder<&epoxy_glMultiDrawElementsIndirect> many;
    GLCallRecorder<&epoxy_glDrawElementsInstancedBaseInstance> one;
    GLCallRecorder<&epoxy_glDrawElements> plain;
    draw(pass, model.data());
    EXPECT_TRUE(many.calls.empty() && one.calls.empty()) << "its pixels would cost more than its items";
    EXPECT_EQ(plain.calls.size(), 3u);
}

} // namespace Velmora::Kvz
