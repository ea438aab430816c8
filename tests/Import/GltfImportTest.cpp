// SPDX-License-Identifier: MIT
#include "GltfDocument.h"
#include "ImportHelpers.h"
#include "support/ModelFiles.h"
#include "support/TemporaryFolder.h"

#include <QtCore/QtMath>

#include <meshoptimizer.h>

namespace Velmora::Kvz {

namespace {

using Doc = GltfDocument;

void expectNear(const QVector4D &actual, const QVector4D &expected, float tolerance = 1e-5f)
{
    for (int i = 0; i < 4; ++i)
        EXPECT_NEAR(actual[i], expected[i], tolerance) << "component " << i;
}

void expectNear(const QVector3D &actual, const QVector3D &expected, float tolerance = 1e-5f)
{
    expectNear(QVector4D(actual, 0), QVector4D(expected, 0), tolerance);
}

ImportedScene importDocument(const Doc &document, const ImportOptions &options = ImportOptions())
{
    TemporaryFolder folder;
    return importScene(folder.write("a.gltf", document.bytes()), options);
}

ImportedMaterial importMaterial(const QJsonObject &material)
{
    Doc document;
    document.setSquare(material);
    return importDocument(document).materials.value(0);
}

} // namespace

TEST(GltfImportTest, quantizedGeometryIsDecoded)
{
    Doc document;
    // Strides are multiples of four, as the extension asks for.
    const int positions = document.addAccessor(
        Doc::bytesOf<quint16>({0, 0, 0, 0, 1000, 0, 0, 0, 1000, 500, 0, 0}), Doc::UnsignedShort, 3, "VEC3", false, 8);
    const int normals = document.addAccessor(
        Doc::bytesOf<qint8>({0, 0, 127, 0, 0, 0, 127, 0, 0, 0, 127, 0}), Doc::Byte, 3, "VEC3", true, 4);
    const int texCoords = document.addAccessor(
        Doc::bytesOf<quint16>({0, 65535, 65535, 65535, 65535, 0}), Doc::UnsignedShort, 3, "VEC2", true);
    document.setPrimitive(
        {{"attributes", QJsonObject{{"POSITION", positions}, {"NORMAL", normals}, {"TEXCOORD_0", texCoords}}}});
    document.setNodes({QJsonObject{{"mesh", 0}, {"scale", QJsonArray{0.001, 0.001, 0.001}}}}, {0});
    document.root["extensionsRequired"] = QJsonArray{"KHR_mesh_quantization"};
    const ImportedScene scene = importDocument(document);
    ASSERT_EQ(scene.items.size(), 1);
    const ImportedMesh &mesh = scene.meshes[0];
    ASSERT_EQ(mesh.positions.size(), 3);
    for (int i = 0; i < 3; ++i) {
        const QVector3D at = scene.items[0].modelMatrix.map(mesh.positions[i]);
        expectNear(mesh.normals[i], QVector3D(0, 0, 1));
        EXPECT_NEAR(mesh.texCoords[i].x(), at.x(), 1e-5f);
        EXPECT_NEAR(mesh.texCoords[i].y(), at.y() * 2, 1e-5f);
    }
    EXPECT_TRUE(mesh.positions.contains(QVector3D(1000, 500, 0)));
}

TEST(GltfImportTest, requiredExtensionsThatAreNotReadRefuseTheFile)
{
    TemporaryFolder folder;
    Doc document;
    document.setSquare();
    document.root["extensionsUsed"] = QJsonArray{"KHR_materials_unlit", "VENDOR_magic"};
    EXPECT_EQ(importDocument(document).items.size(), 1) << "what is used alone can be done without";
    document.root["extensionsRequired"] = QJsonArray{"KHR_materials_unlit", "VENDOR_magic"};
    EXPECT_EQ(refusal(folder.write("a.gltf", document.bytes())),
        "it requires the glTF extension VENDOR_magic, which is not read");
}

TEST(GltfImportTest, instancesBecomeItems)
{
    Doc document;
    document.setSquare();
    const int translations = document.addAccessor(Doc::bytesOf<float>({1, 0, 0, 0, 2, 0}), Doc::Float, 2, "VEC3");
    const int rotations = // about z by 90 degrees: (0, 0, sin 45, cos 45) of 32767
        document.addAccessor(Doc::bytesOf<qint16>({0, 0, 0, 32767, 0, 0, 23170, 23170}), Doc::Short, 2, "VEC4", true);
    const int scales = document.addAccessor(Doc::bytesOf<float>({1, 1, 1, 3, 3, 3}), Doc::Float, 2, "VEC3");
    const QJsonObject attributes{{"TRANSLATION", translations}, {"ROTATION", rotations}, {"SCALE", scales}};
    document.setNodes(
        {QJsonObject{{"mesh", 0}, {"translation", QJsonArray{0, 0, 7}},
            {"extensions", QJsonObject{{"EXT_mesh_gpu_instancing", QJsonObject{{"attributes", attributes}}}}}}},
        {0});
    document.root["extensionsRequired"] = QJsonArray{"EXT_mesh_gpu_instancing"};
    const ImportedScene scene = importDocument(document);
    ASSERT_EQ(scene.items.size(), 2);
    EXPECT_EQ(scene.meshes.size(), 1);
    expectNear(scene.items[0].modelMatrix.map(QVector3D(1, 0, 0)), QVector3D(2, 0, 7));
    expectNear(scene.items[1].modelMatrix.map(QVector3D(1, 0, 0)), QVector3D(0, 5, 7), 1e-3f);
}

TEST(GltfImportTest, meshoptCompressionIsDecoded)
{
    const std::vector<float> positions{0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0};
    const std::vector<unsigned> indices{0, 1, 2, 0, 2, 3};
    std::vector<unsigned char> vertices(meshopt_encodeVertexBufferBound(4, 12));
    vertices.resize(meshopt_encodeVertexBuffer(vertices.data(), vertices.size(), positions.data(), 4, 12));
    meshopt_encodeIndexVersion(1);
    std::vector<unsigned char> triangles(meshopt_encodeIndexBufferBound(6, 4));
    triangles.resize(meshopt_encodeIndexBuffer(triangles.data(), triangles.size(), indices.data(), 6));

    Doc document;
    const auto addCompressed = [&](const std::vector<unsigned char> &data, int stride, int count, const char *mode,
                                   int size, int offset) {
        const int raw = document.addView(QByteArray(reinterpret_cast<const char *>(data.data()), int(data.size())));
        QJsonObject view = document.views()[raw].toObject();
        const QJsonObject extension{{"buffer", 0}, {"byteOffset", view["byteOffset"]}, {"byteLength", int(data.size())},
            {"byteStride", stride}, {"count", count}, {"mode", mode}};
        view = {{"buffer", 1}, {"byteOffset", offset}, {"byteLength", size},
            {"extensions", QJsonObject{{"EXT_meshopt_compression", extension}}}};
        document.views()[raw] = view;
    };
    addCompressed(vertices, 12, 4, "ATTRIBUTES", 48, 0);
    addCompressed(triangles, 2, 6, "TRIANGLES", 12, 48);
    document.accessors() = {
        QJsonObject{{"bufferView", 0}, {"componentType", Doc::Float}, {"count", 4}, {"type", "VEC3"}},
        QJsonObject{{"bufferView", 1}, {"componentType", Doc::UnsignedShort}, {"count", 6}, {"type", "SCALAR"}}};
    document.setPrimitive({{"attributes", QJsonObject{{"POSITION", 0}}}, {"indices", 1}});
    const QString data = "data:application/octet-stream;base64," + document.buffer().toBase64();
    const QJsonObject fallback{
        {"byteLength", 60}, {"extensions", QJsonObject{{"EXT_meshopt_compression", QJsonObject{{"fallback", true}}}}}};
    document.root["buffers"] =
        QJsonArray{QJsonObject{{"byteLength", document.buffer().size()}, {"uri", data}}, fallback};
    document.root["extensionsRequired"] = QJsonArray{"EXT_meshopt_compression"};
    const ImportedScene scene = importDocument(document);
    ASSERT_EQ(scene.meshes.size(), 1);
    EXPECT_EQ(scene.meshes[0].indices.size(), 6);
    EXPECT_EQ(scene.meshes[0].positions, (QVector<QVector3D>{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}}));

    // The buffer of what lies elsewhere is recognized without its mark too.
    document.root["buffers"] = QJsonArray{document.root["buffers"].toArray()[0], QJsonObject{{"byteLength", 60}}};
    EXPECT_EQ(importDocument(document).meshes.value(0).positions, scene.meshes[0].positions);

    QJsonObject broken = document.views()[0].toObject();
    QJsonObject extension = broken["extensions"].toObject()["EXT_meshopt_compression"].toObject();
    extension["byteLength"] = extension["byteLength"].toInt() - 4;
    broken["extensions"] = QJsonObject{{"EXT_meshopt_compression", extension}};
    document.views()[0] = broken;
    TemporaryFolder folder;
    EXPECT_EQ(refusal(folder.write("a.gltf", document.bytes())),
        "mesh 0: accessor 0: its data cannot be decoded by EXT_meshopt_compression; is it damaged?");

    // Not all that lies in the buffer without a uri is compressed, so some data is nowhere.
    document.root["buffers"] = QJsonArray{document.root["buffers"].toArray()[0], QJsonObject{{"byteLength", 60}}};
    document.views().append(QJsonObject{{"buffer", 1}, {"byteLength", 4}});
    EXPECT_EQ(refusal(folder.write("b.gltf", document.bytes())), "buffer 1 names no file: its uri is missing");
}

TEST(GltfImportTest, vertexColoursAreReadInAllTheirTypes)
{
    struct Case
    {
        const char *label;
        QByteArray bytes;
        int componentType;
        const char *type;
        QVector4D second;
    };
    const Case cases[] = {
        {"float3", Doc::bytesOf<float>({1, 1, 1, 0.25f, 0.5f, 1, 1, 1, 1, 1, 1, 1}), Doc::Float, "VEC3",
            {0.25f, 0.5f, 1, 1}},
        {"float4", Doc::bytesOf<float>({1, 1, 1, 1, 0.25f, 0.5f, 1, 0.125f, 1, 1, 1, 1, 1, 1, 1, 1}), Doc::Float,
            "VEC4", {0.25f, 0.5f, 1, 0.125f}},
        {"byte4", Doc::bytesOf<quint8>({1, 1, 1, 1, 51, 102, 255, 204, 1, 1, 1, 1, 1, 1, 1, 1}), Doc::UnsignedByte,
            "VEC4", {0.2f, 0.4f, 1, 0.8f}},
        {"short4", Doc::bytesOf<quint16>({1, 1, 1, 1, 13107, 26214, 65535, 52428, 1, 1, 1, 1, 1, 1, 1, 1}),
            Doc::UnsignedShort, "VEC4", {0.2f, 0.4f, 1, 0.8f}},
    };
    for (const Case &test : cases) {
        Doc document;
        QJsonObject attributes = document.square();
        attributes["COLOR_0"] =
            document.addAccessor(test.bytes, test.componentType, 4, test.type, test.componentType != Doc::Float);
        document.setPrimitive({{"attributes", attributes}, {"indices", document.squareIndices()}});
        const ImportedScene scene = importDocument(document);
        ASSERT_EQ(scene.meshes.size(), 1) << test.label;
        ASSERT_EQ(scene.meshes[0].colours.size(), 4) << test.label;
        SCOPED_TRACE(test.label);
        expectNear(scene.meshes[0].colours[1], test.second);
        EXPECT_EQ(scene.materials.value(0).kd, QVector3D(1, 1, 1)) << "the colours are all that the file says";
    }
}

TEST(GltfImportTest, alphaModesAndCutoff)
{
    const auto material = [](const char *mode) {
        return QJsonObject{{"alphaMode", mode}, {"alphaCutoff", 0.75},
            {"pbrMetallicRoughness", QJsonObject{{"baseColorFactor", QJsonArray{1, 0.5, 0.25, 0.125}}}}};
    };
    EXPECT_EQ(importMaterial(material("OPAQUE")).alphaMode, ImportedMaterial::Opaque);
    const ImportedMaterial mask = importMaterial(material("MASK"));
    EXPECT_EQ(mask.alphaMode, ImportedMaterial::Mask);
    EXPECT_FLOAT_EQ(mask.alphaCutoff, 0.75f);
    EXPECT_FLOAT_EQ(mask.d, 1);
    expectNear(mask.baseColour, {1, 0.5f, 0.25f, 0.125f});
    const ImportedMaterial blend = importMaterial(material("BLEND"));
    EXPECT_EQ(blend.alphaMode, ImportedMaterial::Blend);
    EXPECT_FLOAT_EQ(blend.d, 0.125f);
    EXPECT_EQ(importMaterial({}).alphaMode, ImportedMaterial::Opaque);
    EXPECT_FLOAT_EQ(importMaterial({}).alphaCutoff, 0.5f);
}

TEST(GltfImportTest, emissionUnlitAndSurfaceAreKept)
{
    const ImportedMaterial material = importMaterial({{"emissiveFactor", QJsonArray{1, 0.5, 0}},
        {"extensions",
            QJsonObject{{"KHR_materials_unlit", QJsonObject()},
                {"KHR_materials_emissive_strength", QJsonObject{{"emissiveStrength", 4}}},
                {"KHR_materials_ior", QJsonObject{{"ior", 1.25}}},
                {"KHR_materials_transmission", QJsonObject{{"transmissionFactor", 0.5}}},
                {"KHR_materials_clearcoat",
                    QJsonObject{{"clearcoatFactor", 0.75}, {"clearcoatRoughnessFactor", 0.25}}}}},
        {"pbrMetallicRoughness", QJsonObject{{"metallicFactor", 0.25}, {"roughnessFactor", 0.75}}}});
    EXPECT_TRUE(material.isUnlit);
    EXPECT_TRUE(material.isMetallicRoughness);
    EXPECT_TRUE(material.saysSides);
    EXPECT_EQ(material.emission, QVector3D(4, 2, 0));
    EXPECT_FLOAT_EQ(material.metallic, 0.25f);
    EXPECT_FLOAT_EQ(material.roughness, 0.75f);
    EXPECT_FLOAT_EQ(material.refractiveIndex, 1.25f);
    EXPECT_FLOAT_EQ(material.transmission, 0.5f);
    EXPECT_FLOAT_EQ(material.clearcoat, 0.75f);
    EXPECT_FLOAT_EQ(material.clearcoatRoughness, 0.25f);
    EXPECT_FALSE(importMaterial({}).isUnlit);
}

TEST(GltfImportTest, specularGlossinessKeepsItsColours)
{
    const ImportedMaterial material = importMaterial({{"extensions",
        QJsonObject{{"KHR_materials_pbrSpecularGlossiness",
            QJsonObject{{"diffuseFactor", QJsonArray{0.25, 0.5, 1, 1}}, {"specularFactor", QJsonArray{1, 0.5, 0}},
                {"glossinessFactor", 0.5}}}}}});
    EXPECT_FALSE(material.isMetallicRoughness);
    EXPECT_EQ(material.kd, QVector3D(0.25f, 0.5f, 1));
    EXPECT_FLOAT_EQ(material.roughness, 0.5f);
    EXPECT_NEAR(material.ns, 30, 1e-3) << "2 / 0.5^4 - 2";
    expectNear(material.ks, QVector3D(0.5f, 0.25f, 0));
}

TEST(GltfImportTest, samplersSetsAndSharedImages)
{
    TemporaryFolder folder;
    folder.write("map.png", pngBytes(plainImage(2, 2, Qt::red)));
    Doc document;
    document.setSquare(
        {{"pbrMetallicRoughness", QJsonObject{{"baseColorTexture", QJsonObject{{"index", 0}, {"texCoord", 1}}}}},
            {"normalTexture", QJsonObject{{"index", 1}, {"scale", 0.5}}},
            {"occlusionTexture", QJsonObject{{"index", 2}, {"strength", 0.25}}}});
    document.root["images"] = QJsonArray{QJsonObject{{"uri", "map.png"}}};
    document.root["samplers"] =
        QJsonArray{QJsonObject{{"wrapS", 33071}, {"wrapT", 33648}, {"magFilter", 9728}, {"minFilter", 9728}},
            QJsonObject{{"minFilter", 9987}}};
    document.root["textures"] = QJsonArray{QJsonObject{{"source", 0}, {"sampler", 0}},
        QJsonObject{{"source", 0}, {"sampler", 1}}, QJsonObject{{"source", 0}}};
    const ImportedScene scene = importScene(folder.write("a.gltf", document.bytes()));
    ASSERT_EQ(scene.warnings.size(), 1) << "the square has one set";
    EXPECT_TRUE(scene.warnings[0].contains("second set of texture coordinates")) << qPrintable(scene.warnings[0]);
    const ImportedMaterial material = scene.materials.value(0);
    ASSERT_EQ(scene.images.size(), 1);
    EXPECT_EQ(scene.images[0].name, "map.png");
    EXPECT_EQ(scene.images[0].uses, ImportedImage::Colour | ImportedImage::Data);
    EXPECT_EQ(scene.images[0].image.size(), QSize(2, 2));
    EXPECT_EQ(material.baseColourTexture.image, 0);
    EXPECT_EQ(material.baseColourTexture.uvSet, 1);
    EXPECT_EQ(material.baseColourTexture.wrapU, ImportedTexture::ClampToEdge);
    EXPECT_EQ(material.baseColourTexture.wrapV, ImportedTexture::MirroredRepeat);
    EXPECT_EQ(material.baseColourTexture.magnification, ImportedTexture::Nearest);
    EXPECT_EQ(material.baseColourTexture.minification, ImportedTexture::Nearest);
    EXPECT_FALSE(material.baseColourTexture.mipmaps);
    EXPECT_EQ(material.normalTexture.image, 0);
    EXPECT_EQ(material.normalTexture.uvSet, 0);
    EXPECT_EQ(material.normalTexture.wrapU, ImportedTexture::Repeat);
    EXPECT_EQ(material.normalTexture.magnification, ImportedTexture::Linear);
    EXPECT_TRUE(material.normalTexture.mipmaps);
    EXPECT_FLOAT_EQ(material.normalScale, 0.5f);
    EXPECT_FLOAT_EQ(material.occlusionStrength, 0.25f);
    EXPECT_EQ(material.emissionTexture.image, -1);
}

/// Offset, rotation and scale together. In the document's coordinates, where v points down, the rotation is counter-clockwise:
/// (u, v) becomes offset + (c su u + s sv v, -s su u + c sv v).
TEST(GltfImportTest, textureTransformsAreTurnedToOurCoordinates)
{
    TemporaryFolder folder;
    folder.write("map.png", pngBytes(plainImage(2, 2, Qt::red)));
    Doc document;
    const QJsonObject transform{
        {"offset", QJsonArray{0.5, 0.25}}, {"rotation", M_PI / 2}, {"scale", QJsonArray{2, 3}}, {"texCoord", 1}};
    document.setSquare({{"pbrMetallicRoughness",
        QJsonObject{{"baseColorTexture",
            QJsonObject{{"index", 0}, {"extensions", QJsonObject{{"KHR_texture_transform", transform}}}}}}}});
    document.root["images"] = QJsonArray{QJsonObject{{"uri", "map.png"}}};
    document.root["textures"] = QJsonArray{QJsonObject{{"source", 0}}};
    document.root["extensionsRequired"] = QJsonArray{"KHR_texture_transform"};
    const ImportedScene scene = importScene(folder.write("a.gltf", document.bytes()));
    const ImportedTexture texture = scene.materials.value(0).baseColourTexture;
    EXPECT_EQ(texture.uvSet, 1) << "the extension's set goes before the texture's";
    for (const QPointF &given : {QPointF(0, 0), QPointF(1, 0), QPointF(0, 1), QPointF(0.25, 0.75)}) {
        const QPointF expected(0.5 + 3 * given.y(), 0.25 - 2 * given.x());
        const QPointF actual = texture.transform.map(QPointF(given.x(), 1 - given.y()));
        EXPECT_NEAR(actual.x(), expected.x(), 1e-6);
        EXPECT_NEAR(1 - actual.y(), expected.y(), 1e-6);
    }
}

TEST(GltfImportTest, escapedAddressesOfBuffersAreFound)
{
    TemporaryFolder folder;
    Doc document;
    document.setSquare();
    folder.write("my data ü.bin", document.buffer());
    EXPECT_EQ(importScene(folder.write("a.gltf", document.bytes("my%20data%20%C3%BC.bin"))).items.size(), 1);
    EXPECT_EQ(refusal(folder.write("b.gltf", document.bytes("gone.bin"))), "its file \"gone.bin\" is not there");
    folder.write("c++.bin", document.buffer());
    EXPECT_EQ(importScene(folder.write("c.gltf", document.bytes("c++.bin"))).items.size(), 1) << "a plus is no blank";
}

TEST(GltfImportTest, otherVersionsAndScenesThatAreNotThereAreTold)
{
    TemporaryFolder folder;
    const auto written = [&](const QJsonObject &asset, const QJsonValue &scene) {
        QJsonObject document = squareGltf({QJsonObject{{"mesh", 0}}}, {});
        document["asset"] = asset;
        document["scene"] = scene;
        return folder.write("a.gltf", gltfBytes(document));
    };
    for (const char *version : {"2.0", "2.1"})
        EXPECT_EQ(importScene(written({{"version", version}}, 0)).warnings, QStringList()) << version;
    EXPECT_EQ(refusal(written({{"version", "3.0"}}, 0)), "it is glTF 3.0, and 2.0 is read; export it as glTF 2.0");
    EXPECT_EQ(refusal(written({{"version", "2.1"}, {"minVersion", "2.1"}}, 0)),
        "it is glTF 2.1, and 2.0 is read; export it as glTF 2.0");
    const ImportedScene scene = importScene(written({{"version", "2.0"}}, 9));
    EXPECT_EQ(scene.items.size(), 1);
    ASSERT_EQ(scene.warnings.size(), 1);
    EXPECT_TRUE(scene.warnings[0].endsWith(": its scene 9 is not there; the first of 1 is drawn"))
        << qPrintable(scene.warnings[0]);
}

TEST(GltfImportTest, sparseAccessorsReplaceSingleElements)
{
    Doc document;
    QJsonObject attributes = document.square();
    attributes["NORMAL"] =
        document.addAccessor(Doc::bytesOf<float>({0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1}), Doc::Float, 4, "VEC3");
    document.setPrimitive({{"attributes", attributes}, {"indices", document.squareIndices()}});
    const int indices = document.addView(Doc::bytesOf<quint16>({2}));
    const int values = document.addView(Doc::bytesOf<float>({5, 6, 7}));
    QJsonObject positions = document.accessors()[0].toObject();
    positions["sparse"] = QJsonObject{{"count", 1},
        {"indices", QJsonObject{{"bufferView", indices}, {"componentType", Doc::UnsignedShort}}},
        {"values", QJsonObject{{"bufferView", values}}}};
    document.accessors()[0] = positions;
    EXPECT_EQ(importDocument(document).meshes.value(0).positions,
        (QVector<QVector3D>{{0, 0, 0}, {1, 0, 0}, {5, 6, 7}, {0, 1, 0}}));
}

TEST(GltfImportTest, stripsAndFansKeepTheirWinding)
{
    for (const int mode : {5, 6}) {
        Doc document;
        const QJsonObject attributes = document.square();
        const QByteArray corners =
            mode == 5 ? Doc::bytesOf<quint16>({0, 1, 3, 2}) : Doc::bytesOf<quint16>({0, 1, 2, 3});
        document.setPrimitive({{"attributes", attributes}, {"mode", mode},
            {"indices", document.addAccessor(corners, Doc::UnsignedShort, 4, "SCALAR")}});
        const ImportedMesh mesh = importDocument(document).meshes.value(0);
        ASSERT_EQ(mesh.indices.size(), 6) << mode;
        for (const QVector3D &normal : mesh.normals)
            expectNear(normal, QVector3D(0, 0, 1));
    }
}

TEST(GltfImportTest, pointsAndLinesAreSetsOfTheirOwn)
{
    Doc document;
    QJsonObject attributes = document.square();
    attributes["COLOR_0"] =
        document.addAccessor(Doc::bytesOf<float>({1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 1, 1}), Doc::Float, 4, "VEC3");
    const QJsonObject square{{"attributes", attributes}, {"indices", document.squareIndices()}};
    document.setNodes({QJsonObject{{"mesh", 0}, {"translation", QJsonArray{0, 0, 3}}}}, {0});
    const auto primitive = [&](int mode) { return QJsonObject{{"attributes", attributes}, {"mode", mode}}; };
    document.root["meshes"] = QJsonArray{
        QJsonObject{{"primitives", QJsonArray{square, primitive(0), primitive(1), primitive(2), primitive(3)}}}};
    TemporaryFolder folder;
    const QString file = folder.write("a.gltf", document.bytes());
    const ImportedScene scene = importScene(file);
    ASSERT_EQ(scene.pointSets.size(), 1);
    EXPECT_EQ(scene.pointSets[0].positions.size(), 4);
    EXPECT_EQ(scene.pointSets[0].indices.size(), 4);
    expectNear(scene.pointSets[0].colours[1], {0, 1, 0, 1});
    expectNear(scene.pointSets[0].modelMatrix.map(scene.pointSets[0].positions[2]), QVector3D(1, 1, 3));
    ASSERT_EQ(scene.lineSets.size(), 3);
    EXPECT_EQ(scene.lineSets[0].indices, (QVector<quint32>{0, 1, 2, 3}));
    EXPECT_EQ(scene.lineSets[1].indices, (QVector<quint32>{0, 1, 1, 2, 2, 3, 3, 0})) << "a loop closes";
    EXPECT_EQ(scene.lineSets[2].indices, (QVector<quint32>{0, 1, 1, 2, 2, 3}));
    EXPECT_EQ(scene.warnings, QStringList(file + ": 4 points and 9 lines are not drawn: triangles alone are"));

    document.root["meshes"] = QJsonArray{QJsonObject{{"primitives", QJsonArray{primitive(0)}}}};
    EXPECT_EQ(
        refusal(folder.write("b.gltf", document.bytes())), "no triangles; 4 points are not drawn: triangles alone are");
}

TEST(GltfImportTest, animationsPoseTheNodes)
{
    Doc document;
    document.setSquare();
    const int times = document.addAccessor(Doc::bytesOf<float>({1, 3}), Doc::Float, 2, "SCALAR");
    const int places = document.addAccessor(Doc::bytesOf<float>({0, 0, 0, 4, 0, 0}), Doc::Float, 2, "VEC3");
    const int turns = document.addAccessor(
        Doc::bytesOf<float>({0, 0, 0, 1, 0, 0, float(M_SQRT1_2), float(M_SQRT1_2)}), Doc::Float, 2, "VEC4");
    const auto animation = [&](const char *name, int values, const char *path, const char *interpolation) {
        return QJsonObject{{"name", name},
            {"channels", QJsonArray{QJsonObject{{"sampler", 0}, {"target", QJsonObject{{"node", 0}, {"path", path}}}}}},
            {"samplers",
                QJsonArray{QJsonObject{{"input", times}, {"output", values}, {"interpolation", interpolation}}}}};
    };
    document.root["animations"] = QJsonArray{animation("slide", places, "translation", "LINEAR"),
        animation("turn", turns, "rotation", "LINEAR"), animation("jump", places, "translation", "STEP")};
    document.setNodes(
        {QJsonObject{{"children", QJsonArray{1}}, {"translation", QJsonArray{0, 9, 0}}}, QJsonObject{{"mesh", 0}}},
        {0});

    const auto placeAt = [&](const char *name, double time) {
        ImportOptions options;
        options.animation = name;
        options.time = time;
        const ImportedScene scene = importDocument(document, options);
        return scene.items.value(0).modelMatrix.map(QVector3D(1, 0, 0));
    };
    expectNear(placeAt("", -1), QVector3D(1, 9, 0));
    expectNear(placeAt("", 2), QVector3D(3, 0, 0)); // the first one, which sets the whole translation
    expectNear(placeAt("slide", 0), QVector3D(1, 0, 0));
    expectNear(placeAt("slide", 99), QVector3D(5, 0, 0));
    expectNear(placeAt("slide", -1), QVector3D(1, 0, 0));
    expectNear(placeAt("1", 2), QVector3D(float(M_SQRT1_2), 9 + float(M_SQRT1_2), 0)); // 45 degrees
    expectNear(placeAt("jump", 2.9), QVector3D(1, 0, 0));
    expectNear(placeAt("jump", 3), QVector3D(5, 0, 0));

    const ImportedScene scene = importDocument(document);
    ASSERT_EQ(scene.animations.size(), 3);
    EXPECT_EQ(scene.animations[1].name, "turn");
    EXPECT_FLOAT_EQ(scene.animations[1].duration, 3);
    TemporaryFolder folder;
    ImportOptions options;
    options.animation = "fly";
    EXPECT_EQ(refusal(folder.write("a.gltf", document.bytes()), options),
        "has no animation \"fly\"; it has \"slide\", \"turn\", \"jump\" (numbers from 0)");
}

/// f(t) = t^2 (3 - 2 t) between tangents of 0; with an out-tangent of 1 a second, t (1 - t)^2 span is added.
TEST(GltfImportTest, cubicSplinesFollowTheirTangents)
{
    Doc document;
    document.setSquare();
    const int times = document.addAccessor(Doc::bytesOf<float>({0, 2}), Doc::Float, 2, "SCALAR");
    const int values = document.addAccessor(
        Doc::bytesOf<float>({0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 4, 0, 0, 0, 0, 0}), Doc::Float, 6, "VEC3");
    document.root["animations"] = QJsonArray{QJsonObject{
        {"channels",
            QJsonArray{QJsonObject{{"sampler", 0}, {"target", QJsonObject{{"node", 0}, {"path", "translation"}}}}}},
        {"samplers", QJsonArray{QJsonObject{{"input", times}, {"output", values}, {"interpolation", "CUBICSPLINE"}}}}}};
    ImportOptions options;
    options.time = 0.5; // a quarter of the span
    const ImportedScene scene = importDocument(document, options);
    expectNear(scene.items.value(0).modelMatrix.map(QVector3D()),
        QVector3D(4 * 0.25f * 0.25f * 2.5f, 0.25f * 0.75f * 0.75f * 2, 0));
}

TEST(GltfImportTest, camerasAndLightsKeepTheirPlaces)
{
    Doc document;
    document.setSquare();
    document.root["cameras"] = QJsonArray{
        QJsonObject{{"type", "perspective"}, {"name", "eye"},
            {"perspective", QJsonObject{{"yfov", 0.5}, {"znear", 0.25}, {"zfar", 50}, {"aspectRatio", 1.5}}}},
        QJsonObject{{"type", "orthographic"},
            {"orthographic", QJsonObject{{"xmag", 3}, {"ymag", 2}, {"znear", 1}, {"zfar", 9}}}}};
    document.root["extensions"] = QJsonObject{{"KHR_lights_punctual",
        QJsonObject{{"lights",
            QJsonArray{QJsonObject{{"type", "spot"}, {"color", QJsonArray{1, 0.5, 0.25}}, {"intensity", 40},
                {"range", 8}, {"spot", QJsonObject{{"innerConeAngle", 0.25}, {"outerConeAngle", 0.5}}}}}}}}};
    document.setNodes({QJsonObject{{"mesh", 0}}, QJsonObject{{"camera", 0}, {"translation", QJsonArray{0, 0, 5}}},
                          QJsonObject{{"camera", 1}, {"name", "plan"}},
                          QJsonObject{{"translation", QJsonArray{1, 2, 3}},
                              {"extensions", QJsonObject{{"KHR_lights_punctual", QJsonObject{{"light", 0}}}}}}},
        {0, 1, 2, 3});
    const ImportedScene scene = importDocument(document);
    ASSERT_EQ(scene.cameras.size(), 2);
    EXPECT_EQ(scene.cameras[0].name, "eye");
    EXPECT_FALSE(scene.cameras[0].isOrthographic);
    EXPECT_FLOAT_EQ(scene.cameras[0].verticalFieldOfView, 0.5f);
    EXPECT_FLOAT_EQ(scene.cameras[0].aspect, 1.5f);
    EXPECT_FLOAT_EQ(scene.cameras[0].nearPlane, 0.25f);
    EXPECT_FLOAT_EQ(scene.cameras[0].farPlane, 50);
    expectNear(scene.cameras[0].worldMatrix.map(QVector3D()), QVector3D(0, 0, 5));
    EXPECT_EQ(scene.cameras[1].name, "plan");
    EXPECT_TRUE(scene.cameras[1].isOrthographic);
    EXPECT_EQ(scene.cameras[1].halfExtent, QVector2D(3, 2));
    ASSERT_EQ(scene.lights.size(), 1);
    EXPECT_EQ(scene.lights[0].type, ImportedLight::Spot);
    EXPECT_EQ(scene.lights[0].colour, QVector3D(1, 0.5f, 0.25f));
    EXPECT_FLOAT_EQ(scene.lights[0].intensity, 40);
    EXPECT_FLOAT_EQ(scene.lights[0].range, 8);
    EXPECT_FLOAT_EQ(scene.lights[0].innerAngle, 0.25f);
    EXPECT_FLOAT_EQ(scene.lights[0].outerAngle, 0.5f);
    expectNear(scene.lights[0].worldMatrix.map(QVector3D()), QVector3D(1, 2, 3));
}

TEST(GltfImportTest, skinnedMeshesStayInBindPose)
{
    Doc document;
    document.setSquare();
    // The joint is at (0, 2, 0) now, and was at (0, 1, 0) when the mesh was bound.
    const int inverse = document.addAccessor(
        Doc::bytesOf<float>({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, -1, 0, 1}), Doc::Float, 1, "MAT4");
    document.root["skins"] = QJsonArray{QJsonObject{{"joints", QJsonArray{1}}, {"inverseBindMatrices", inverse}}};
    document.setNodes({QJsonObject{{"mesh", 0}, {"skin", 0}, {"translation", QJsonArray{50, 0, 0}}},
                          QJsonObject{{"translation", QJsonArray{0, 2, 0}}}},
        {0, 1});
    const ImportedScene scene = importDocument(document);
    ASSERT_EQ(scene.items.size(), 1);
    expectNear(scene.items[0].modelMatrix.map(QVector3D()), QVector3D(0, 1, 0));
    ASSERT_EQ(scene.warnings.size(), 1);
    EXPECT_TRUE(scene.warnings[0].endsWith(": skins are not animated: their meshes stay in bind pose"));
}

TEST(GltfImportTest, anotherAxisMayPointUp)
{
    Doc document;
    document.setSquare();
    TemporaryFolder folder;
    const QString file = folder.write("a.gltf", document.bytes());
    const struct
    {
        const char *axis;
        QVector3D up;
    } cases[] = {{"x", {1, 0, 0}}, {"y", {0, 1, 0}}, {"z", {0, 0, 1}}, {"-x", {-1, 0, 0}}, {"-y", {0, -1, 0}},
        {"-z", {0, 0, -1}}};
    for (const auto &test : cases) {
        ImportOptions options;
        options.up = test.axis;
        const QMatrix4x4 matrix = importScene(file, options).items.value(0).modelMatrix;
        SCOPED_TRACE(test.axis);
        expectNear(matrix.map(test.up), QVector3D(0, 1, 0));
        EXPECT_NEAR(matrix.determinant(), 1, 1e-5) << "turned, not mirrored";
    }
    ImportOptions options;
    options.up = "w";
    EXPECT_EQ(refusal(file, options), "\"w\" is no axis; x, y and z are, and each with a minus");
    EXPECT_EQ(importScene(file).upAxis, "y");
    EXPECT_FLOAT_EQ(importScene(file).unit, 1);
}

TEST(GltfImportTest, referencesBelowZeroAreNotTakenForNone)
{
    TemporaryFolder folder;
    const auto reason = [&](const Doc &document) { return refusal(folder.write("a.gltf", document.bytes())); };
    Doc square;
    square.setSquare();
    {
        Doc document = square;
        document.setNodes({QJsonObject{{"mesh", -1}}}, {0});
        EXPECT_EQ(reason(document), "damaged glTF: node 0: its mesh is -1, which is no index");
    }
    {
        Doc document = square;
        QJsonObject positions = document.accessors()[0].toObject();
        positions["bufferView"] = -1;
        document.accessors()[0] = positions;
        EXPECT_EQ(reason(document), "damaged glTF: accessor 0: its bufferView is -1, which is no index");
    }
    {
        Doc document;
        document.setPrimitive({{"attributes", document.square()}, {"indices", "0"}});
        EXPECT_EQ(reason(document), "damaged glTF: mesh 0, primitive 0: its indices is \"0\", which is no index");
    }
    const auto warning = [&](const Doc &document) {
        const QString file = folder.write("b.gltf", document.bytes());
        const QStringList lines = importScene(file).warnings;
        return lines.size() == 1 ? lines[0].mid(file.size() + 2) : lines.join('|');
    };
    {
        Doc document;
        document.setPrimitive(
            {{"attributes", document.square()}, {"indices", document.squareIndices()}, {"material", -1}});
        EXPECT_EQ(warning(document), "mesh 0, primitive 0: its material is -1, which is no index");
    }
    {
        Doc document;
        document.setSquare({{"pbrMetallicRoughness", QJsonObject{{"baseColorTexture", QJsonObject{{"index", -1}}}}}});
        EXPECT_EQ(warning(document), "material 0, baseColorTexture: its index is -1, which is no index");
    }
    {
        Doc document;
        document.setSquare({{"pbrMetallicRoughness", QJsonArray{}}});
        EXPECT_EQ(warning(document), "material 0: its pbrMetallicRoughness is [], and no object");
    }
    {
        Doc document;
        document.setSquare({{"extras", QJsonObject{{"index", -1}, {"material", "oak"}}}});
        EXPECT_EQ(warning(document), "") << "what the file's maker put in is not looked at";
    }
}

TEST(GltfImportTest, namesOfBuffersMayHavePercentSigns)
{
    TemporaryFolder folder;
    Doc document;
    document.setSquare();
    folder.write("p%20q.bin", document.buffer());
    const QString file = folder.write("a.gltf", document.bytes("p%20q.bin"));
    EXPECT_EQ(importScene(file).meshes.value(0).positions.size(), 4);
    folder.write("p q.bin", QByteArray(document.buffer().size(), '\0'));
    EXPECT_EQ(refusal(file), "no triangles") << "the resolved name comes first";
}

TEST(GltfImportTest, brokenStructureIsRefused)
{
    TemporaryFolder folder;
    const auto reason = [&](const Doc &document) { return refusal(folder.write("a.gltf", document.bytes())); };
    Doc square;
    square.setSquare();
    {
        Doc document = square;
        QJsonObject positions = document.accessors()[0].toObject();
        positions["count"] = 1000000;
        document.accessors()[0] = positions;
        EXPECT_EQ(reason(document), "mesh 0: accessor 0 reaches past the end of its data");
    }
    {
        Doc document = square;
        document.setNodes(
            {QJsonObject{{"mesh", 0}, {"children", QJsonArray{1}}}, QJsonObject{{"children", QJsonArray{0}}}}, {0});
        EXPECT_EQ(reason(document), "node 0 is below two others or below itself");
    }
    {
        Doc document = square;
        document.setNodes({QJsonObject{{"mesh", 5}}}, {0});
        EXPECT_EQ(reason(document), "mesh 5 does not exist");
    }
    {
        Doc document = square;
        document.setNodes({QJsonObject{{"mesh", 0}}}, {3});
        EXPECT_EQ(reason(document), "node 3 does not exist");
    }
    {
        Doc document;
        QJsonObject attributes = document.square();
        attributes["NORMAL"] = document.addAccessor(Doc::bytesOf<float>({0, 0, 1}), Doc::Float, 1, "VEC3");
        document.setPrimitive({{"attributes", attributes}});
        EXPECT_EQ(reason(document), "mesh 0: its attributes have different counts");
    }
    {
        Doc document;
        const int normals = document.addAccessor(Doc::bytesOf<float>({0, 0, 1}), Doc::Float, 1, "VEC3");
        document.setPrimitive({{"attributes", QJsonObject{{"NORMAL", normals}}}});
        EXPECT_EQ(reason(document), "mesh 0: it has no positions");
    }
}

} // namespace Velmora::Kvz
