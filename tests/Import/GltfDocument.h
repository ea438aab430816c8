// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <initializer_list>

namespace Velmora::Kvz {

/// A glTF document to be put together piece by piece.
class GltfDocument
{
public:
    static constexpr int Byte = 5120, UnsignedByte = 5121, Short = 5122, UnsignedShort = 5123, UnsignedInt = 5125,
                         Float = 5126;

    /// Numbers as bytes.
    template <typename T> static QByteArray bytesOf(std::initializer_list<T> values)
    {
        return {reinterpret_cast<const char *>(values.begin()), int(values.size() * sizeof(T))};
    }

    int addView(const QByteArray &bytes, int stride = 0)
    {
        while (m_buffer.size() % 4 != 0)
            m_buffer.append('\0');
        QJsonObject view{{"buffer", 0}, {"byteOffset", m_buffer.size()}, {"byteLength", bytes.size()}};
        if (stride > 0)
            view["byteStride"] = stride;
        m_buffer += bytes;
        m_views.append(view);
        return m_views.size() - 1;
    }

    int addAccessor(const QByteArray &bytes, int componentType, int count, const char *type, bool isNormalized = false,
        int stride = 0)
    {
        m_accessors.append(QJsonObject{{"bufferView", addView(bytes, stride)}, {"componentType", componentType},
            {"count", count}, {"type", type}, {"normalized", isNormalized}});
        return m_accessors.size() - 1;
    }

    /// A square in the xy plane from (0, 0) to (1, 1), its corners counter-clockwise; texture coordinates with (0, 0) at the
    /// upper left. Returns attributes.
    QJsonObject square()
    {
        return {{"POSITION", addAccessor(bytesOf<float>({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0}), Float, 4, "VEC3")},
            {"TEXCOORD_0", addAccessor(bytesOf<float>({0, 1, 1, 1, 1, 0, 0, 0}), Float, 4, "VEC2")}};
    }
    int squareIndices() { return addAccessor(bytesOf<quint16>({0, 1, 2, 0, 2, 3}), UnsignedShort, 6, "SCALAR"); }

    /// Sets one mesh of one primitive.
    void setPrimitive(const QJsonObject &primitive)
    {
        root["meshes"] = QJsonArray{QJsonObject{{"primitives", QJsonArray{primitive}}}};
    }
    /// Sets a square with a material.
    void setSquare(const QJsonObject &material = QJsonObject())
    {
        setPrimitive({{"attributes", square()}, {"indices", squareIndices()}, {"material", 0}});
        root["materials"] = QJsonArray{material};
    }
    /// Sets the nodes of the scene; `roots` are those without a parent.
    void setNodes(const QJsonArray &nodes, const QJsonArray &roots)
    {
        root["nodes"] = nodes;
        root["scenes"] = QJsonArray{QJsonObject{{"nodes", roots}}};
        root["scene"] = 0;
    }

    QJsonArray &views() { return m_views; }
    QJsonArray &accessors() { return m_accessors; }
    const QByteArray &buffer() const { return m_buffer; }

    /// The document, its buffer at `uri` or, where that is empty, in its text.
    QByteArray bytes(const QString &uri = QString()) const
    {
        QJsonObject document = root;
        document["asset"] = QJsonObject{{"version", "2.0"}};
        if (!document.contains("buffers"))
            document["buffers"] = QJsonArray{QJsonObject{{"byteLength", m_buffer.size()},
                {"uri", uri.isEmpty() ? QString("data:application/octet-stream;base64," + m_buffer.toBase64()) : uri}}};
        document["bufferViews"] = m_views;
        document["accessors"] = m_accessors;
        if (!document.contains("nodes")) {
            document["nodes"] = QJsonArray{QJsonObject{{"mesh", 0}}};
            document["scenes"] = QJsonArray{QJsonObject{{"nodes", QJsonArray{0}}}};
        }
        return QJsonDocument(document).toJson(QJsonDocument::Compact);
    }

    QJsonObject root; ///< All but buffers, views and accessors.

private:
    QByteArray m_buffer;
    QJsonArray m_views;
    QJsonArray m_accessors;
};

} // namespace Velmora::Kvz
