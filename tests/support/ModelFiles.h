// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtGui/QImage>

namespace Velmora::Kvz {

/// An image in PNG format.
QByteArray pngBytes(const QImage &image);
/// An image of one colour.
QImage plainImage(int width, int height, const QColor &color);

/// A cube from -1 to 1 in OBJ format, made of quads, with positions only.
QByteArray cubeObj();

/// A glTF document with one square in the xy plane (corners and texture coordinates from 0 to 1) and one material, to
/// be changed as needed. Its buffer is embedded.
QJsonObject squareGltf(const QJsonArray &nodes, const QJsonObject &material, const QJsonObject &image = QJsonObject());
QByteArray gltfBytes(const QJsonObject &document);
/// The same document in GLB format, with `image` in its binary chunk.
QByteArray glbBytes(QJsonObject document, const QImage &image);

} // namespace Velmora::Kvz
