// SPDX-License-Identifier: MIT
#include "support/GLTest.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <GL/BufferObject.h>
#include <GL/DrawBuffers.h>
#include <GL/VertexArrayObject.h>
#include <Import/ModelImporter.h>
#include <Import/SceneFacts.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

class ModelImporterGLTest : public GLTest
{ };

TEST_F(ModelImporterGLTest, sceneIsBuiltWithItsItems)
{
    TemporaryFolder folder;
    const QJsonArray nodes{QJsonObject{{"mesh", 0}, {"translation", QJsonArray{1, 2, 3}}},
        QJsonObject{{"mesh", 0}, {"scale", QJsonArray{4, 4, 4}}}};
    const QJsonObject material{{"name", "m"}, {"doubleSided", true}, {"alphaMode", "BLEND"},
        {"pbrMetallicRoughness", QJsonObject{{"baseColorFactor", QJsonArray{1, 1, 1, 0.5}}}}};
    ImportedScene scene;
    QString error;
    ASSERT_TRUE(importModel(folder.write("a.gltf", gltfBytes(squareGltf(nodes, material))), &scene, &error))
        << qPrintable(error);
    const auto model = scene.build();
    ASSERT_TRUE(model);
    EXPECT_EQ(model->itemCount(), 2);
    EXPECT_EQ(model->itemFeatureFlags(1), quint64(GPUModel::DoubleSided) | ImportedScene::Transparent);
    EXPECT_EQ(model->modelMatrix(0).map(QVector3D()), QVector3D(1, 2, 3));
    EXPECT_EQ(model->sceneBounds().first, QVector3D(0, 0, 0));
    EXPECT_EQ(model->sceneBounds().second, QVector3D(4, 4, 3));
    EXPECT_FALSE(model->isDrawEmpty(ImportedScene::Transparent, ImportedScene::Transparent));
    EXPECT_TRUE(model->isDrawEmpty(0, ImportedScene::Transparent));
}

/// One mesh, two materials: the first samples set 1 through a transform, the second set 0 as it is.
TEST_F(ModelImporterGLTest, textureCoordinatesAreThoseThatTheMaterialAsksFor)
{
    ImportedScene scene;
    ImportedMesh mesh;
    mesh.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    mesh.indices = {0, 1, 2};
    mesh.texCoords = {{0, 0}, {1, 0}, {0, 1}};
    mesh.texCoords1 = {{0.5f, 0.5f}, {0.75f, 0.5f}, {0.5f, 0.75f}};
    scene.meshes = {mesh};
    scene.images = {{"map", QImage(), ImportedImage::Colour}};
    ImportedMaterial moved;
    moved.baseColourTexture.image = 0;
    moved.baseColourTexture.uvSet = 1;
    moved.baseColourTexture.transform = QTransform(2, 0, 0, 3, 10, 20);
    ImportedMaterial plain;
    plain.baseColourTexture.image = 0;
    scene.materials = {moved, plain};
    for (const int material : {0, 1, 0}) {
        ImportedItem item;
        item.material = material;
        scene.items.append(item);
    }
    SceneBuildOptions options;
    options.forBasicPasses = true;
    const auto model = scene.build(options);
    ASSERT_TRUE(model);
    EXPECT_EQ(model->itemCount(), 3);
    const auto buffer = model->drawBuffers(0)->VAO()->bo(QStringLiteral("va_TexCoord"));
    ASSERT_EQ(buffer->size(), long(6 * sizeof(QVector2D))) << "items of one mesh and material share it";
    const auto *mapped = static_cast<const QVector2D *>(buffer->map(GL_READ_ONLY));
    QVector<QVector2D> texCoords;
    for (int v = 0; v < 6; ++v)
        texCoords.append(mapped[v]);
    buffer->unmap();
    const QVector<QVector2D> expected = {{11, 21.5f}, {11.5f, 21.5f}, {11, 22.25f}};
    const bool movedFirst = texCoords[0] == expected[0];
    EXPECT_EQ(texCoords.mid(movedFirst ? 0 : 3, 3), expected);
    EXPECT_EQ(texCoords.mid(movedFirst ? 3 : 0, 3), mesh.texCoords);
}

/// Bytes of all buffers that there are.
static qint64 bytesInBuffers()
{
    qint64 bytes = 0;
    for (GLuint name = 1; name < 1000; ++name) {
        if (!glIsBuffer(name))
            continue;
        GLint size = 0;
        glBindBuffer(GL_COPY_READ_BUFFER, name);
        glGetBufferParameteriv(GL_COPY_READ_BUFFER, GL_BUFFER_SIZE, &size);
        bytes += size;
    }
    glBindBuffer(GL_COPY_READ_BUFFER, 0);
    return bytes;
}

TEST_F(ModelImporterGLTest, factsAreThoseOfTheModelOnTheGpu)
{
    ImportedScene scene;
    QString error;
    ASSERT_TRUE(importModel(QStringLiteral(KVZ_SOURCE_DIR "/Media/Models/still-life.obj"), &scene, &error))
        << qPrintable(error);
    const SceneFacts facts = factsOf(scene);
    const qint64 before = bytesInBuffers();
    const auto model = scene.build();
    ASSERT_TRUE(model);
    EXPECT_EQ(3 * facts.triangles * long(sizeof(quint32)), model->drawBuffers(0)->indexBO()->size());
    EXPECT_EQ(facts.low, model->sceneBounds().first);
    EXPECT_EQ(facts.high, model->sceneBounds().second);
    const qint64 images = 3 * 4 * (128 * 128 * 4 - 1) / 3; // three of 128 by 128, with all levels
    EXPECT_NEAR(double(bytesInBuffers() - before), double(facts.gpuBytes - images), 0.01 * double(facts.gpuBytes));
}

} // namespace Velmora::Kvz
