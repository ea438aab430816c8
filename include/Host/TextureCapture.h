// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>
#include <Host/TextureDisplay.h>

#include <QtGui/QImage>
#include <QtGui/QMatrix4x4>

#include <vector>

namespace Velmora::Kvz {

class Texture;

/// Reads level 0 of a texture back as a picture, top row first, in Format_RGBA8888 (alpha as the texels hold it, not
/// premultiplied). Multisampled textures are resolved, depth included. `projection` is the one that a depth image was drawn
/// with; with the identity, depth is shown as it is stored.
///
/// A 2D array becomes a contact sheet: its first `layers` layers, or all of them for 0 and for more than it has, in rows from
/// the upper left, with as many per row as makes the sheet square or wide, and captureGap() transparent pixels in between.
/// The range of depths is stretched separately in each layer.
///
/// Null for a null texture, `TextureDisplay::Hidden` and `ListLength`, an empty texture, a target other than 2D, 2D
/// multisampled and 2D array, and when there is no memory. Needs a current context; bindings are restored.
KVZ_HOST_EXPORT QImage captureTexture(
    Texture *texture, TextureDisplay display, const QMatrix4x4 &projection = QMatrix4x4(), int layers = 0);

/// The texels of an image as numbers, top row first. Move it: it may be large.
struct TexelImage
{
    int width = 0;
    int height = 0;
    int channels = 0; ///< 1 to 4.
    std::vector<float> floats; ///< Those of each texel side by side; empty where the image holds integers.
    std::vector<quint32> integers; ///< The same, where it does.

    bool isNull() const { return floats.empty() && integers.empty(); }
};

/// Reads level 0 of a texture back as it is: colours as the texels hold them, depth as it is stored, as one channel. Multisampled textures
/// are resolved. Null for a null texture, an empty one, a target other than 2D and 2D multisampled, several samples of integers, and when
/// there is no memory. Needs a current context; bindings are restored.
KVZ_HOST_EXPORT TexelImage captureTexels(Texture *texture);

/// Turns depth as it is stored into the distance from the plane of the camera, by the projection that it was drawn with; where there is nothing
/// (1), into infinity. Of an image of one channel; others stay as they are.
KVZ_HOST_EXPORT void distancesFromDepth(TexelImage *depth, const QMatrix4x4 &projection);

/// Pixels between the layers of a contact sheet.
constexpr int captureGap()
{
    return 2;
}

/// Shows how long the lists of VisibilityBufferRenderPass are: a colour for each length 0, 1, 2 to 3, 4 to 7, 8 to 15, 16 to
/// 31, 32 to 50, and above, from black through blue, green, yellow and orange to white; magenta for a list that leads to a
/// node for which there was no room. `nodeWidth` is the number of nodes in a row of `nodes`.
///
/// Null for null textures, a width below 1, empty textures, and when there is no memory. Reads only the rows of nodes that
/// are in use. Needs a current context; bindings are restored.
KVZ_HOST_EXPORT QImage captureListLengths(Texture *heads, Texture *nodes, int nodeWidth);

} // namespace Velmora::Kvz
