// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtGui/QImage>

namespace Velmora::Kvz {

/// A picture as PNG.
QByteArray pngBytes(const QImage &image);
/// A picture of one colour.
QImage plainImage(int width, int height, const QColor &color);

/// A cube from -1 to 1 in OBJ form, of quads, with positions alone.
QByteArray cubeObj();

/// A glTF document of one square in the xy plane (corners 0 and 1, texture coordinates alike) with one material, to be
/// changed at will. Its buffer is part of the document.
QJsonObject squareGltf(const QJsonArray &nodes, const QJsonObject &material, const QJsonObject &image = QJsonObject());
QByteArray gltfBytes(const QJsonObject &document);
/// The same document as a GLB, with `image` in its binary part.
QByteArray glbBytes(QJsonObject document, const QImage &image);

} // namespace Velmora::Kvz
