// SPDX-License-Identifier: MIT
#include "ImportHelpers.h"
#include "support/GLTest.h"

#include <GL/BufferObject.h>
#include <GL/BufferTexture.h>
#include <GL/DrawBuffers.h>
#include <GL/VertexArrayObject.h>
#include <Scene/InstanceDataRegistry.h>

#include <epoxy/gl.h>

#include <cstring>

namespace Velmora::Kvz {

namespace {

class SceneBuildTest : public GLTest
{ };

ImportedMesh triangle()
{
    ImportedMesh mesh;
    mesh.positions = {{1, 2, 3}, {4, -1, 2}, {0, 1, -5}};
    mesh.normals = {{0, 0, 1}, {1, 0, 0}, {0.6f, 0.8f, 0}};
    mesh.texCoords = {{0, 0}, {1, 0}, {0, 1}};
    mesh.tangents = {{1, 0, 0, 1}, {0, 1, 0, -1}, {0, 0, 1, 1}};
    mesh.indices = {0, 1, 2};
    return mesh;
}

ImportedScene sceneOf(const QVector<QMatrix4x4> &matrices)
{
    ImportedScene scene;
    scene.meshes = {triangle()};
    scene.materials = {ImportedMaterial()};
    for (const QMatrix4x4 &matrix : matrices) {
        ImportedItem item;
        item.modelMatrix = matrix;
        scene.items.append(item);
    }
    return scene;
}

template <typename Vector> QVector<Vector> arrayOf(const GPUModel &model, const char *name)
{
    const auto buffer = model.drawBuffers(0)->VAO()->bo(QLatin1String(name));
    QVector<Vector> values(int(buffer->size() / long(sizeof(Vector))));
    std::memcpy(values.data(), buffer->map(GL_READ_ONLY), size_t(buffer->size()));
    buffer->unmap();
    return values;
}

/// A value of an item's row of "SurfaceMaterial".
float surfaceValue(const GPUModel &model, int item, const char *getter, int channel = 0)
{
    const InstanceDataPlan &plan = InstanceDataRegistry::Instance().getPlan(QStringLiteral("SurfaceMaterial"));
    auto *const rows = dynamic_cast<BufferTexture *>(model.surfaceData());
    QVector<float> values(int(rows->size() / long(sizeof(float))));
    glBindBuffer(GL_COPY_READ_BUFFER, rows->buffer()->getBO());
    glGetBufferSubData(GL_COPY_READ_BUFFER, 0, rows->size(), values.data());
    glBindBuffer(GL_COPY_READ_BUFFER, 0);
    return values[item * plan.stride() * 4 + plan.offset(QLatin1String(getter)) + channel];
}

QVector3D transformU(const GPUModel &model, const char *getter)
{
    return {surfaceValue(model, 0, getter, 0), surfaceValue(model, 0, getter, 1), surfaceValue(model, 0, getter, 2)};
}

const SceneBuildOptions &baked()
{
    static const SceneBuildOptions options = [] {
        SceneBuildOptions result;
        result.forBasicPasses = true;
        return result;
    }();
    return options;
}

QMatrix4x4 turned(const QVector3D &scale)
{
    QMatrix4x4 matrix;
    matrix.translate(5, -6, 7);
    matrix.rotate(30, 1, 2, 3);
    matrix.scale(scale);
    return matrix;
}

QMatrix4x4 sheared()
{
    QMatrix4x4 matrix = turned({2, 3, 0.5f});
    matrix.rotate(40, 3, 1, 0);
    matrix.scale(1, 4, 1);
    return matrix;
}

} // namespace

TEST_F(SceneBuildTest, nothingIsBakedUnlessAskedFor)
{
    ImportedScene scene = sceneOf({turned({2, 3, 4}), QMatrix4x4()});
    scene.images = {{"map", QImage(4, 4, QImage::Format_RGB32), ImportedImage::Colour}};
    scene.materials[0].baseColourTexture.image = 0;
    scene.materials[0].baseColourTexture.transform = QTransform(2, 0, 0, 3, 10, 20);
    const auto model = scene.build();
    EXPECT_EQ(model->modelMatrix(0), scene.items[0].modelMatrix);
    EXPECT_EQ(arrayOf<QVector3D>(*model, "va_Vertex"), scene.meshes[0].positions);
    EXPECT_EQ(arrayOf<QVector3D>(*model, "va_Normal"), scene.meshes[0].normals);
    EXPECT_EQ(arrayOf<QVector2D>(*model, "va_TexCoord"), scene.meshes[0].texCoords);
    EXPECT_EQ(transformU(*model, "getBaseColourMapU"), QVector3D(2, 0, 10));
    EXPECT_EQ(transformU(*model, "getBaseColourMapV"), QVector3D(0, 3, 20));
}

TEST_F(SceneBuildTest, aRefusedMeshOrMaterialCostsItsOwnItemsAlone)
{
    ImportedScene scene = sceneOf({turned({2, 3, 4}), QMatrix4x4(), turned({2, 3, 4}), QMatrix4x4()});
    const float infinite = std::numeric_limits<float>::infinity();
    scene.meshes = {triangle(), triangle(), triangle()};
    scene.meshes[0].positions[1].setX(infinite);
    scene.meshes[2].positions[0].setX(9);
    scene.materials = {ImportedMaterial(), ImportedMaterial()};
    scene.materials[0].kd.setX(infinite);
    scene.materials[1].kd = {0.25f, 0.5f, 1};
    for (int i = 0; i < 4; ++i) {
        scene.items[i].mesh = i < 2 ? 2 : i - 2; // the last two: refused mesh, fine mesh
        scene.items[i].material = i == 3 ? 0 : 1; // the last: refused material
    }
    for (const SceneBuildOptions &options : {SceneBuildOptions(), baked()}) {
        const auto model = scene.build(options);
        EXPECT_EQ(log.takeWarnings().size(), 2) << "the mesh and the material, and no item";
        ASSERT_TRUE(model);
        ASSERT_EQ(model->itemCount(), 2);
        EXPECT_FLOAT_EQ(surfaceValue(*model, 0, "getBaseColour", 2), 1);
        EXPECT_TRUE(arrayOf<QVector3D>(*model, "va_Vertex").contains(scene.meshes[2].positions[0]));
    }
}

/// Whichever of its faces is drawn, front or back.
TEST_F(SceneBuildTest, bodiesThatAreScaledFlatAreLitFromBothSides)
{
    ImportedMesh plane = triangle();
    plane.positions = {{1, 2, 3}, {4, -1, 3}, {0, 1, 3}};
    ImportedScene scene = sceneOf({turned({1, 2, 1}), turned({1, 1, 0}), turned({1e-6f, 1, 1}), turned({1, 1, 0}),
        turned({1000, 0.001f, 1}), turned({1, 1, 1e-6f})});
    scene.meshes = {triangle(), plane, triangle()};
    for (QVector3D &position : scene.meshes[2].positions)
        position *= QVector3D(0.001f, 1000, 1); // the fifth item's
    scene.materials[0].saysSides = true;
    scene.materials[0].kd = {0.25f, 0.5f, 1};
    const bool isLit[] = {false, true, true, false, false, false}; // a plane has one face at each place
    const int meshes[] = {0, 0, 0, 1, 2, 1};
    for (int i = 0; i < 6; ++i)
        scene.items[i].mesh = meshes[i];
    const auto model = scene.build();
    ASSERT_EQ(model->itemCount(), 6);
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(surfaceValue(*model, i, "getSurfaceFlags") != surfaceValue(*model, 0, "getSurfaceFlags"), isLit[i])
            << i;
        EXPECT_FLOAT_EQ(surfaceValue(*model, i, "getBaseColour", 1), 0.5f) << i;
    }
}

/// The shader of a basic pass inverts the matrix: what flattens is applied to the mesh.
TEST_F(SceneBuildTest, matricesThatFlattenAreBakedForBasicPasses)
{
    for (const QMatrix4x4 &matrix : {turned({2, 3, 0}), turned({0, 1, 5}), turned({1, 0, 1})}) {
        const ImportedScene scene = sceneOf({matrix});
        const auto model = scene.build(baked());
        const QMatrix4x4 rest = model->modelMatrix(0);
        EXPECT_EQ(rest.determinant(), 1);
        EXPECT_EQ(rest.column(3), matrix.column(3));
        const QVector<QVector3D> positions = arrayOf<QVector3D>(*model, "va_Vertex");
        const QVector<QVector3D> normals = arrayOf<QVector3D>(*model, "va_Normal");
        const QVector3D x = matrix.column(0).toVector3D();
        const QVector3D y = matrix.column(1).toVector3D();
        const QVector3D z = matrix.column(2).toVector3D();
        const QVector3D upright =
            QVector3D::crossProduct(x, y) + QVector3D::crossProduct(y, z) + QVector3D::crossProduct(z, x);
        for (int v = 0; v < 3; ++v) {
            EXPECT_LT((rest.map(positions[v]) - matrix.map(scene.meshes[0].positions[v])).length(), 1e-5f);
            const float length = normals[v].length();
            EXPECT_TRUE(length < 1e-5f || std::abs(length - 1) < 1e-5f) << length;
            EXPECT_LT(QVector3D::crossProduct(normals[v], upright.normalized()).length(), 1e-5f);
        }
    }
}

TEST_F(SceneBuildTest, scalesAreBakedForBasicPasses)
{
    QMatrix4x4 tiny = turned({1e-3f, 1e-3f, 1e-3f});
    QMatrix4x4 uneven = turned({1000, 0.001f, 1});
    for (const QMatrix4x4 &matrix :
        {tiny, turned({1000, 1000, 1000}), uneven, turned({-2, 3, 4}), turned({-1, -1, -5}), sheared()}) {
        const ImportedScene scene = sceneOf({matrix});
        const auto model = scene.build(baked());
        const QMatrix4x4 rest = model->modelMatrix(0);
        // What is left moves, turns and mirrors.
        for (int i = 0; i < 3; ++i) {
            for (int k = 0; k < 3; ++k) {
                const float product = QVector3D::dotProduct(rest.column(i).toVector3D(), rest.column(k).toVector3D());
                EXPECT_NEAR(product, i == k ? 1 : 0, 2e-5f);
            }
        }
        EXPECT_EQ(rest.determinant() < 0, matrix.determinant() < 0);
        const QVector<QVector3D> positions = arrayOf<QVector3D>(*model, "va_Vertex");
        const QVector<QVector3D> normals = arrayOf<QVector3D>(*model, "va_Normal");
        ASSERT_EQ(positions.size(), 3);
        for (int v = 0; v < 3; ++v) {
            const QVector3D place = matrix.map(scene.meshes[0].positions[v]);
            EXPECT_LT((rest.map(positions[v]) - place).length(), 2e-6f * place.length() + 2e-6f);
            // What the basic passes see: the normal matrix of the item, which is not followed by a division by length.
            const QVector3D seen = rest.inverted().transposed().mapVector(normals[v]);
            EXPECT_NEAR(seen.length(), 1, 3e-5f);
            // The inverse transposed, by cofactors.
            const QVector3D x = matrix.column(0).toVector3D();
            const QVector3D y = matrix.column(1).toVector3D();
            const QVector3D z = matrix.column(2).toVector3D();
            const QVector3D n = scene.meshes[0].normals[v];
            const float sign = matrix.determinant() < 0 ? -1 : 1;
            const QVector3D expected = sign
                * (QVector3D::crossProduct(y, z) * n.x() + QVector3D::crossProduct(z, x) * n.y()
                    + QVector3D::crossProduct(x, y) * n.z())
                      .normalized();
            EXPECT_LT((seen - expected).length(), 1e-3f) << "normal " << v;
        }
        EXPECT_TRUE(log.takeWarnings().isEmpty());
    }
}

TEST_F(SceneBuildTest, itemsThatAreStretchedAlikeShareTheirMesh)
{
    QMatrix4x4 other;
    other.rotate(75, 0, 1, 1);
    other.translate(1, 2, 3);
    QMatrix4x4 mirrored;
    mirrored.scale(1, 1, -1);
    const auto verticesOf = [](const QVector<QMatrix4x4> &matrices) {
        return arrayOf<QVector3D>(*sceneOf(matrices).build(baked()), "va_Vertex").size() / 3;
    };
    EXPECT_EQ(verticesOf({QMatrix4x4(), other, mirrored, other * mirrored}), 1) << "nothing stretches";
    EXPECT_EQ(verticesOf({turned({2, 2, 2}), other * turned({2, 2, 2}), turned({-2, 2, 2})}), 1);
    EXPECT_EQ(verticesOf({turned({2, 3, 4}), other * turned({2, 3, 4}), turned({2, 3, 5}), QMatrix4x4()}), 3);
    QMatrix4x4 flat;
    flat.scale(1, 1, 0);
    EXPECT_EQ(verticesOf({flat, flat}), 1);
    QMatrix4x4 line;
    line.scale(1, 0, 0);
    EXPECT_EQ(sceneOf({line}).build(baked())->modelMatrix(0), line) << "nothing is left to be seen";
}

TEST_F(SceneBuildTest, bakedCoordinatesAreNotTransformedTwice)
{
    ImportedScene scene = sceneOf({QMatrix4x4()});
    ImportedMesh &mesh = scene.meshes[0];
    mesh.texCoords1 = {{0.5f, 0.5f}, {0.75f, 0.5f}, {0.5f, 0.75f}};
    ImportedMaterial &material = scene.materials[0];
    for (ImportedTexture *const texture :
        {&material.baseColourTexture, &material.specularTexture, &material.emissionTexture})
        texture->image = 0;
    scene.images = {{"map", QImage(4, 4, QImage::Format_RGB32), ImportedImage::Colour}};
    material.mapKd = scene.images[0].image;
    material.mapKs = scene.images[0].image;
    material.baseColourTexture.uvSet = 1;
    material.baseColourTexture.transform = QTransform(2, 0, 0, 4, 10, 20);
    material.specularTexture.uvSet = 1;
    material.specularTexture.transform = QTransform(6, 0, 0, 8, 1, 2);
    material.emissionTexture.transform = QTransform(3, 0, 0, 5, 7, 9);
    const auto model = scene.build(baked());
    const QVector<QVector2D> first = arrayOf<QVector2D>(*model, "va_TexCoord");
    EXPECT_EQ(first, (QVector<QVector2D>{{11, 22}, {11.5f, 22}, {11, 23}}));
    // Base colour: as they are. Specular: 6 u + 1 of what is 2 u + 10 now. Emission: the other set, which is now the second.
    EXPECT_EQ(transformU(*model, "getBaseColourMapU"), QVector3D(1, 0, 0));
    EXPECT_EQ(transformU(*model, "getBaseColourMapV"), QVector3D(0, 1, 0));
    EXPECT_EQ(transformU(*model, "getSpecularMapU"), QVector3D(3, 0, -29));
    EXPECT_EQ(transformU(*model, "getSpecularMapV"), QVector3D(0, 2, -38));
    EXPECT_EQ(transformU(*model, "getEmissionMapU"), QVector3D(3, 0, 7));
    constexpr int second = 128;
    EXPECT_EQ(int(surfaceValue(*model, 0, "getBaseColourMapSampling")) & second, 0);
    EXPECT_EQ(int(surfaceValue(*model, 0, "getSpecularMapSampling")) & second, 0);
    EXPECT_EQ(int(surfaceValue(*model, 0, "getEmissionMapSampling")) & second, second);
    const VertexExtras &extras = model->vertexExtras();
    ASSERT_GE(extras.texCoord1, 0);
    const auto *mapped = static_cast<const char *>(extras.buffer->map(GL_READ_ONLY));
    for (int v = 0; v < 3; ++v) {
        float pair[2];
        std::memcpy(pair, mapped + (v * extras.stride + extras.texCoord1) * 8, sizeof(pair));
        EXPECT_EQ(QVector2D(pair[0], pair[1]), mesh.texCoords[v]);
    }
    extras.buffer->unmap();
}

TEST_F(SceneBuildTest, cutoffOfAMaskCountsWithTheOpacityOfItsColour)
{
    ImportedScene scene = sceneOf({QMatrix4x4()});
    scene.materials[0].alphaMode = MaterialData::Mask;
    scene.materials[0].alphaCutoff = 0.4f;
    scene.materials[0].baseColour.setW(0.8f);
    EXPECT_NEAR(surfaceValue(*scene.build(), 0, "getAlphaCutoff"), 0.5f, 1e-6f);
}

TEST_F(SceneBuildTest, imagesOverTheBudgetAreNamed)
{
    ImportedScene scene = sceneOf({QMatrix4x4()});
    QImage image(64, 64, QImage::Format_RGB32);
    image.fill(Qt::red);
    scene.images = {{"textures/bark.png", image, ImportedImage::Colour}};
    scene.materials[0].baseColourTexture.image = 0;
    scene.materials[0].mapKd = image;
    SceneBuildOptions options;
    options.imageBudget = 6000;
    ASSERT_TRUE(scene.build(options));
    const QStringList lines = log.takeWarnings();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines[0].contains(QLatin1String("\"textures/bark.png\" from 64 by 64 to 32 by 32")))
        << qPrintable(lines[0]);
    scene.releaseImages();
    EXPECT_TRUE(scene.images[0].image.isNull());
    EXPECT_TRUE(scene.materials[0].mapKd.isNull());
    EXPECT_TRUE(image.isDetached()) << "nobody else holds its pixels";
}

} // namespace Velmora::Kvz
