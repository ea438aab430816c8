// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Camera.h>
#include <Host/Export.h>

#include <QtCore/QRect>
#include <QtCore/QString>
#include <QtCore/QVector>

namespace Velmora::Kvz {

class RenderChain;
class ResolvedChain;

/// A part of a picture that is drawn by itself. Pixels of the whole, the origin at the lower left.
struct PictureTile
{
    QRect shown; ///< What it adds to the picture.
    QRect drawn; ///< That and what filters read around it, within the picture.
};

/// A picture that a chain draws in tiles: one beyond the driver's limit, or one that would take too much memory.
///
/// ```cpp
/// TiledPicture picture(resolved, QSize(30000, 20000));
/// for (const PictureTile &tile : picture.tiles(1024, {camera}, sceneSide)) {
///     picture.begin(&chain, tile);
///     picture.setWholeCamera(&chain, camera);
///     const Camera part = picture.cameraOf(camera, tile);
///     chain.setCamera(part.cameraMatrix, part.projectionMatrix);
///     chain.renderFrame(); // Draws tile.drawn.size() pixels; those of tile.shown begin at tile.shown.topLeft() - tile.drawn.topLeft().
/// }
/// ```
///
/// The tiles together are the whole picture within one step of 8 bits: lights, shadow maps, scene bounds and clipping planes are those
/// of the whole, gradients go on from tile to tile, and the noise of passes with an input `Kvz_Vector2D_PatternOrigin` follows the
/// pixels of the whole. The exception are pixels whose centre lies within the rasteriser's last digit (1/256 of a pixel on most drivers) of an
/// edge of a triangle: vertices are rounded anew in each tile, so such a pixel may show the other side of the edge.
class KVZ_HOST_EXPORT TiledPicture
{
public:
    /// Of this size in pixels. The chain must live as long as this.
    TiledPicture(const ResolvedChain &chain, const QSize &size);

    /// Why the chain cannot draw a part of a picture by itself, in one line that names the pass; empty where it can. A pass
    /// that measures or stretches something over its whole picture cannot.
    QString problem() const;
    /// The tiles of at most `side` by `side` pixels, at least 16, in rows from the top, each from left to right; those that the
    /// lower left corner of the picture has are whole. The cameras are all that draw into the picture, of the whole; `sceneSide` is the longest
    /// side of the scene's bounds.
    QVector<PictureTile> tiles(int side, const QVector<Camera> &cameras, float sceneSide) const;
    /// Has a chain of the same description draw a tile next: sets its viewport and the values that go with the part, and ends every past.
    void begin(RenderChain *chain, const PictureTile &tile) const;
    /// Gives the camera of the whole to passes that serve the whole picture, such as shadow maps, which fit what it sees.
    void setWholeCamera(RenderChain *chain, const Camera &whole) const;
    /// The part of a camera of the whole that draws a tile.
    Camera cameraOf(const Camera &whole, const PictureTile &tile) const;

private:
    int margin(const QVector<Camera> &cameras, float sceneSide) const;
    int grid() const;

    const ResolvedChain &m_chain;
    QSize m_size;
};

} // namespace Velmora::Kvz
