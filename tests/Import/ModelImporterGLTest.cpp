// SPDX-License-Identifier: MIT
#include "support/GLTest.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <Import/ModelImporter.h>

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

} // namespace Velmora::Kvz
