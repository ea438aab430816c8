// SPDX-License-Identifier: MIT
#include "GltfDocument.h"
#include "ImportHelpers.h"
#include "support/Meshes.h"
#include "support/TemporaryFolder.h"

#include <draco/compression/encode.h>
#include <draco/mesh/triangle_soup_mesh_builder.h>

#include <algorithm>
#include <memory>

namespace Velmora::Kvz {

namespace {

using Doc = GltfDocument;

constexpr int boxVertices = 24;

/// The box of the tests, each corner of each face in a colour of its own, compressed.
struct PackedBox
{
    MeshData mesh = boxMesh();
    QVector<QVector4D> colours;
    QByteArray bytes;
    QJsonObject attributes; // unique numbers, by name

    explicit PackedBox(int method, int positionBits = 0)
    {
        for (int v = 0; v < mesh.positions.size(); ++v)
            colours.append(QVector4D(10 * v, 255 - 10 * v, v, 255 - v) / 255);
        draco::TriangleSoupMeshBuilder builder;
        builder.Start(mesh.indices.size() / 3);
        const int position = builder.AddAttribute(draco::GeometryAttribute::POSITION, 3, draco::DT_FLOAT32);
        const int normal = builder.AddAttribute(draco::GeometryAttribute::NORMAL, 3, draco::DT_FLOAT32);
        const int texCoord = builder.AddAttribute(draco::GeometryAttribute::TEX_COORD, 2, draco::DT_FLOAT32);
        const int colour = builder.AddAttribute(draco::GeometryAttribute::COLOR, 4, draco::DT_UINT8, true);
        for (int i = 0; i < mesh.indices.size(); i += 3) {
            const draco::FaceIndex face(quint32(i / 3));
            const auto corner = [&](int c) { return int(mesh.indices[i + c]); };
            const auto place = [&](const auto &values, int c) { return &values[corner(c)]; };
            builder.SetAttributeValuesForFace(
                position, face, place(mesh.positions, 0), place(mesh.positions, 1), place(mesh.positions, 2));
            builder.SetAttributeValuesForFace(
                normal, face, place(mesh.normals, 0), place(mesh.normals, 1), place(mesh.normals, 2));
            builder.SetAttributeValuesForFace(
                texCoord, face, place(mesh.texCoords, 0), place(mesh.texCoords, 1), place(mesh.texCoords, 2));
            const std::array<quint8, 4> bytesOfCorners[] = {
                bytesOf(colours[corner(0)]), bytesOf(colours[corner(1)]), bytesOf(colours[corner(2)])};
            builder.SetAttributeValuesForFace(
                colour, face, bytesOfCorners[0].data(), bytesOfCorners[1].data(), bytesOfCorners[2].data());
        }
        const std::unique_ptr<draco::Mesh> packed = builder.Finalize();
        const auto number = [&](int attribute) { return int(packed->attribute(attribute)->unique_id()); };
        attributes = {{"POSITION", number(position)}, {"NORMAL", number(normal)}, {"TEXCOORD_0", number(texCoord)},
            {"COLOR_0", number(colour)}};
        draco::Encoder encoder;
        encoder.SetEncodingMethod(method);
        if (positionBits > 0)
            encoder.SetAttributeQuantization(draco::GeometryAttribute::POSITION, positionBits);
        draco::EncoderBuffer encoded;
        EXPECT_TRUE(encoder.EncodeMeshToBuffer(*packed, &encoded).ok());
        bytes = QByteArray(encoded.data(), int(encoded.size()));
    }

    static std::array<quint8, 4> bytesOf(const QVector4D &colour)
    {
        std::array<quint8, 4> bytes{};
        for (int i = 0; i < 4; ++i)
            bytes[size_t(i)] = quint8(qRound(colour[i] * 255));
        return bytes;
    }
};

/// A document of one primitive with these compressed bytes; its accessors have no data of their own.
Doc documentOf(const QByteArray &bytes, const QJsonObject &attributes, int mode = 4)
{
    Doc document;
    const int view = document.addView(bytes);
    QJsonObject accessors;
    const auto add = [&](const QString &name, int componentType, int count, const char *type) {
        document.accessors().append(QJsonObject{{"componentType", componentType}, {"count", count}, {"type", type},
            {"normalized", componentType == Doc::UnsignedByte}});
        if (!name.isEmpty())
            accessors[name] = document.accessors().size() - 1;
        return document.accessors().size() - 1;
    };
    add("POSITION", Doc::Float, boxVertices, "VEC3");
    add("NORMAL", Doc::Float, boxVertices, "VEC3");
    add("TEXCOORD_0", Doc::Float, boxVertices, "VEC2");
    add("COLOR_0", Doc::UnsignedByte, boxVertices, "VEC4");
    const QJsonObject extension{{"bufferView", view}, {"attributes", attributes}};
    document.setPrimitive({{"attributes", accessors}, {"indices", add({}, Doc::UnsignedShort, 36, "SCALAR")},
        {"mode", mode}, {"extensions", QJsonObject{{"KHR_draco_mesh_compression", extension}}}});
    document.root["extensionsUsed"] = QJsonArray{"KHR_draco_mesh_compression"};
    document.root["extensionsRequired"] = QJsonArray{"KHR_draco_mesh_compression"};
    return document;
}

QByteArray gltfOf(const QByteArray &bytes, int mode = 4)
{
    return documentOf(bytes, PackedBox(draco::MESH_EDGEBREAKER_ENCODING).attributes, mode).bytes();
}

/// The document with its bytes in the chunk of a GLB.
QByteArray glbOf(Doc document)
{
    document.root["buffers"] = QJsonArray{QJsonObject{{"byteLength", document.buffer().size()}}};
    QByteArray json = document.bytes();
    json.append(QByteArray((4 - json.size() % 4) % 4, ' '));
    QByteArray buffer = document.buffer();
    buffer.append(QByteArray((4 - buffer.size() % 4) % 4, '\0'));
    const auto number = [](int value) { return Doc::bytesOf<quint32>({quint32(value)}); };
    return "glTF" + number(2) + number(28 + json.size() + buffer.size()) + number(json.size()) + "JSON" + json
        + number(buffer.size()) + QByteArray("BIN\0", 4) + buffer;
}

/// Compares vertex by vertex: each one read is one of the box, and each corner of each triangle is where it was.
void expectBox(const ImportedScene &scene, const PackedBox &box, float tolerance)
{
    EXPECT_EQ(scene.warnings, QStringList());
    ASSERT_EQ(scene.meshes.size(), 1);
    const ImportedMesh &mesh = scene.meshes[0];
    ASSERT_EQ(mesh.positions.size(), boxVertices);
    ASSERT_EQ(mesh.normals.size(), boxVertices);
    ASSERT_EQ(mesh.texCoords.size(), boxVertices);
    ASSERT_EQ(mesh.colours.size(), boxVertices);
    ASSERT_EQ(mesh.indices.size(), 36);
    QVector<int> vertices; // of the box, by vertex read: the colours tell
    for (int v = 0; v < boxVertices; ++v) {
        const int original = box.colours.indexOf(mesh.colours[v]);
        ASSERT_GE(original, 0) << v;
        vertices.append(original);
        EXPECT_LE((mesh.positions[v] - box.mesh.positions[original]).length(), tolerance) << v;
        EXPECT_LE((mesh.normals[v] - box.mesh.normals[original]).length(), 1e-6f) << v;
        const QVector2D texCoord = box.mesh.texCoords[original];
        EXPECT_EQ(mesh.texCoords[v], QVector2D(texCoord.x(), 1 - texCoord.y())) << v;
    }
    const auto triangles = [](const QVector<quint32> &indices, const QVector<int> *names) {
        QVector<std::array<int, 3>> result;
        for (int i = 0; i + 2 < indices.size(); i += 3) {
            std::array<int, 3> triangle{};
            for (int c = 0; c < 3; ++c)
                triangle[size_t(c)] = names ? names->at(int(indices[i + c])) : int(indices[i + c]);
            std::rotate(triangle.begin(), std::min_element(triangle.begin(), triangle.end()), triangle.end());
            result.append(triangle);
        }
        std::sort(result.begin(), result.end());
        return result;
    };
    EXPECT_EQ(triangles(mesh.indices, &vertices), triangles(box.mesh.indices, nullptr)) << "wound as they were";
}

} // namespace

TEST(DracoTest, bothMethodsAreDecoded)
{
    const TemporaryFolder folder;
    for (const int method : {int(draco::MESH_SEQUENTIAL_ENCODING), int(draco::MESH_EDGEBREAKER_ENCODING)}) {
        const PackedBox exact(method);
        const Doc document = documentOf(exact.bytes, exact.attributes);
        expectBox(importScene(folder.write("a.gltf", document.bytes())), exact, 0);
        expectBox(importScene(folder.write("a.glb", glbOf(document))), exact, 0);
        const PackedBox quantized(method, 11);
        EXPECT_LT(quantized.bytes.size(), exact.bytes.size());
        expectBox(importScene(folder.write("b.gltf", documentOf(quantized.bytes, quantized.attributes).bytes())),
            quantized, 2.0f / (1 << 11));
    }
}

TEST(DracoTest, stripsAreCompressedAsTriangles)
{
    const TemporaryFolder folder;
    const PackedBox box(draco::MESH_EDGEBREAKER_ENCODING);
    expectBox(importScene(folder.write("a.gltf", gltfOf(box.bytes, 5))), box, 0);
}

TEST(DracoTest, attributesThatTheFileDoesNotNameAreLeftOut)
{
    const TemporaryFolder folder;
    const PackedBox box(draco::MESH_EDGEBREAKER_ENCODING);
    Doc document = documentOf(box.bytes, {{"POSITION", box.attributes["POSITION"]}});
    QJsonObject primitive = document.root["meshes"].toArray()[0].toObject()["primitives"].toArray()[0].toObject();
    primitive["attributes"] = QJsonObject{{"POSITION", 0}};
    document.setPrimitive(primitive);
    const ImportedScene scene = importScene(folder.write("a.gltf", document.bytes()));
    EXPECT_EQ(scene.meshes.value(0).indices.size(), 36);
    EXPECT_TRUE(scene.meshes.value(0).colours.isEmpty());
}

TEST(DracoTest, plainDataComesFirst)
{
    const TemporaryFolder folder;
    Doc document;
    document.setSquare();
    QJsonObject primitive = document.root["meshes"].toArray()[0].toObject()["primitives"].toArray()[0].toObject();
    primitive["extensions"] =
        QJsonObject{{"KHR_draco_mesh_compression", QJsonObject{{"bufferView", 0}, {"attributes", QJsonObject()}}}};
    document.setPrimitive(primitive);
    const QString file = folder.write("a.gltf", document.bytes());
    const ImportedScene scene = importScene(file);
    EXPECT_EQ(scene.meshes.value(0).positions.size(), 4);
    EXPECT_EQ(scene.warnings,
        QStringList(file
            + ": mesh 0: its data cannot be decoded by KHR_draco_mesh_compression; what is there without it is drawn"));
    document.root["extensionsRequired"] = QJsonArray{"KHR_draco_mesh_compression"};
    EXPECT_EQ(refusal(folder.write("b.gltf", document.bytes())),
        "mesh 0: its data cannot be decoded by KHR_draco_mesh_compression; is it damaged?");
}

TEST(DracoTest, whatDoesNotFitTheDocumentRefusesTheFile)
{
    const TemporaryFolder folder;
    const PackedBox box(draco::MESH_EDGEBREAKER_ENCODING);
    const auto refused = [&](const Doc &document) { return refusal(folder.write("a.gltf", document.bytes())); };
    QJsonObject attributes = box.attributes;
    attributes["NORMAL"] = 77;
    EXPECT_EQ(refused(documentOf(box.bytes, attributes)),
        "mesh 0: accessor 1: KHR_draco_mesh_compression holds no data that fits it");
    attributes.remove("NORMAL");
    EXPECT_EQ(importScene(folder.write("a.gltf", documentOf(box.bytes, attributes).bytes())).meshes.size(), 1)
        << "zeros, as an accessor without data";
    attributes.remove("POSITION");
    EXPECT_EQ(
        refused(documentOf(box.bytes, attributes)), "mesh 0: KHR_draco_mesh_compression holds no positions of it");
}

TEST(DracoTest, damagedDataIsRefused)
{
    const TemporaryFolder folder;
    const QString damaged = "mesh 0: its data cannot be decoded by KHR_draco_mesh_compression; is it damaged?";
    for (const int method : {int(draco::MESH_SEQUENTIAL_ENCODING), int(draco::MESH_EDGEBREAKER_ENCODING)}) {
        const PackedBox box(method, 11);
        const Doc whole = documentOf(box.bytes, box.attributes);
        for (int size = 1; size < box.bytes.size(); size += 7)
            EXPECT_EQ(
                refusal(folder.write("a.gltf", documentOf(box.bytes.left(size), box.attributes).bytes())), damaged)
                << size;
        // Whatever a changed byte leads to, it is an end in good order.
        int refusals = 0;
        for (int at = 0; at < box.bytes.size(); ++at) {
            for (const int change : {0x01, 0x80, 0xff}) {
                QByteArray bytes = box.bytes;
                bytes[at] = char(bytes[at] ^ change);
                ImportedScene scene;
                QString error;
                const QString file = folder.write("b.gltf", documentOf(bytes, box.attributes).bytes());
                if (importModel(file, &scene, &error))
                    continue;
                ++refusals;
                EXPECT_TRUE(error.startsWith(file + ": ")) << qPrintable(error);
                EXPECT_FALSE(error.contains('\n')) << qPrintable(error);
            }
        }
        EXPECT_GT(refusals, 100);
    }
    EXPECT_EQ(refusal(folder.write("c.gltf", gltfOf("no such data at all"))), damaged);
}

TEST(DracoTest, verticesCountAgainstTheLimits)
{
    const TemporaryFolder folder;
    for (const int method : {int(draco::MESH_SEQUENTIAL_ENCODING), int(draco::MESH_EDGEBREAKER_ENCODING)}) {
        const PackedBox box(method);
        const QString file = folder.write("a.gltf", documentOf(box.bytes, box.attributes).bytes());
        ImportOptions options;
        options.limits.vertices = boxVertices;
        EXPECT_EQ(importScene(file, options).meshes.size(), 1);
        --options.limits.vertices;
        EXPECT_EQ(refusal(file, options), "it has more than the limit of 23 vertices");
    }
}

/// A few bytes that ask for all memory: the limits hold before the decoder makes room.
TEST(DracoTest, exaggeratedHeadersAreRefused)
{
    const TemporaryFolder folder;
    const QByteArray most = QByteArray("\xff\xff\xff\xff\x0f", 5); // 2^32 - 1
    const QByteArray faces = QByteArray("\x80\x80\x80\x80\x04", 5); // 2^30
    const QByteArray sequential = QByteArray("DRACO\2\2\1\0\0\0", 11);
    const QByteArray edgebreaker = QByteArray("DRACO\2\2\1\1\0\0", 11) + '\0';
    for (const QByteArray &bytes :
        {sequential + '\1' + most + QByteArray(100, '\0'), edgebreaker + most + '\4' + '\0' + QByteArray(100, '\0'),
            edgebreaker + '\x7f' + faces + '\0' + QByteArray(100, '\0')}) {
        const QString reason = refusal(folder.write("a.gltf", gltfOf(bytes)));
        EXPECT_TRUE(reason.startsWith("it has more than the limit of 8")) << qPrintable(reason);
    }
    // Each attribute with corners of its own costs as much as the triangles.
    EXPECT_EQ(refusal(folder.write("b.gltf", gltfOf(edgebreaker + '\x7f' + '\x7f' + '\xff' + QByteArray(100, '\0')))),
        "mesh 0: its data cannot be decoded by KHR_draco_mesh_compression; is it damaged?");
}

} // namespace Velmora::Kvz
