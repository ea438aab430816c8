// SPDX-License-Identifier: MIT
#include "ModelFiles.h"

#include <QtCore/QBuffer>
#include <QtCore/QJsonDocument>
#include <QtCore/QtEndian>

namespace Velmora::Kvz {

namespace {

template <typename T> void append(QByteArray *bytes, std::initializer_list<T> values)
{
    for (const T value : values) {
        const T little = qToLittleEndian(value);
        bytes->append(reinterpret_cast<const char *>(&little), int(sizeof(T)));
    }
}

/// The positions of four corners, their texture coordinates (v downwards, as in glTF), and six indices.
QByteArray squareBuffer()
{
    QByteArray buffer;
    append<float>(&buffer, {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0});
    append<float>(&buffer, {0, 1, 1, 1, 1, 0, 0, 0});
    append<quint16>(&buffer, {0, 1, 2, 0, 2, 3});
    return buffer;
}

QJsonObject accessor(int view, int componentType, int count, const char *type)
{
    return {{"bufferView", view}, {"componentType", componentType}, {"count", count}, {"type", type}};
}

} // namespace

QByteArray pngBytes(const QImage &image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "png");
    return bytes;
}

QImage plainImage(int width, int height, const QColor &color)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(color);
    return image;
}

QByteArray cubeObj()
{
    return "v -1 -1 -1\nv 1 -1 -1\nv 1 1 -1\nv -1 1 -1\n"
           "v -1 -1 1\nv 1 -1 1\nv 1 1 1\nv -1 1 1\n"
           "f 5 6 7 8\nf 2 1 4 3\nf 6 2 3 7\nf 1 5 8 4\nf 8 7 3 4\nf 1 2 6 5\n";
}

QJsonObject squareGltf(const QJsonArray &nodes, const QJsonObject &material, const QJsonObject &image)
{
    const QByteArray buffer = squareBuffer();
    QJsonArray roots;
    QVector<bool> isChild(nodes.size(), false);
    for (const QJsonValue &node : nodes) {
        for (const QJsonValue &child : node.toObject()["children"].toArray())
            isChild[child.toInt()] = true;
    }
    for (int i = 0; i < nodes.size(); ++i) {
        if (!isChild[i])
            roots.append(i);
    }
    const QJsonObject attributes{{"POSITION", 0}, {"TEXCOORD_0", 1}};
    QJsonObject positions = accessor(0, 5126, 4, "VEC3");
    positions["min"] = QJsonArray{0, 0, 0};
    positions["max"] = QJsonArray{1, 1, 0};
    QJsonObject document{
        {"asset", QJsonObject{{"version", "2.0"}}},
        {"scene", 0},
        {"scenes", QJsonArray{QJsonObject{{"nodes", roots}}}},
        {"nodes", nodes},
        {"meshes",
            QJsonArray{QJsonObject{
                {"primitives", QJsonArray{QJsonObject{{"attributes", attributes}, {"indices", 2}, {"material", 0}}}}}}},
        {"materials", QJsonArray{material}},
        {"buffers",
            QJsonArray{QJsonObject{{"byteLength", buffer.size()},
                {"uri", QString("data:application/octet-stream;base64," + buffer.toBase64())}}}},
        {"bufferViews",
            QJsonArray{QJsonObject{{"buffer", 0}, {"byteOffset", 0}, {"byteLength", 48}},
                QJsonObject{{"buffer", 0}, {"byteOffset", 48}, {"byteLength", 32}},
                QJsonObject{{"buffer", 0}, {"byteOffset", 80}, {"byteLength", 12}}}},
        {"accessors", QJsonArray{positions, accessor(1, 5126, 4, "VEC2"), accessor(2, 5123, 6, "SCALAR")}},
    };
    if (!image.isEmpty()) {
        document["images"] = QJsonArray{image};
        document["textures"] = QJsonArray{QJsonObject{{"source", 0}}};
    }
    return document;
}

QByteArray gltfBytes(const QJsonObject &document)
{
    return QJsonDocument(document).toJson(QJsonDocument::Compact);
}

QByteArray glbBytes(QJsonObject document, const QImage &image)
{
    QByteArray binary = squareBuffer();
    const QByteArray png = pngBytes(image);
    QJsonArray views = document["bufferViews"].toArray();
    views.append(QJsonObject{{"buffer", 0}, {"byteOffset", binary.size()}, {"byteLength", png.size()}});
    binary += png;
    binary.append(QByteArray(-binary.size() & 3, '\0'));
    document["bufferViews"] = views;
    document["buffers"] = QJsonArray{QJsonObject{{"byteLength", binary.size()}}};
    document["images"] = QJsonArray{QJsonObject{{"bufferView", views.size() - 1}, {"mimeType", "image/png"}}};
    document["textures"] = QJsonArray{QJsonObject{{"source", 0}}};
    QByteArray json = gltfBytes(document);
    json.append(QByteArray(-json.size() & 3, ' '));

    QByteArray glb("glTF");
    append<quint32>(&glb, {2, quint32(12 + 8 + json.size() + 8 + binary.size()), quint32(json.size())});
    glb += "JSON" + json;
    append<quint32>(&glb, {quint32(binary.size())});
    return glb + QByteArray("BIN\0", 4) + binary;
}

} // namespace Velmora::Kvz
