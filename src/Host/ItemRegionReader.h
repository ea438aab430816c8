// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QRect>

#include <memory>
#include <optional>
#include <vector>

namespace Velmora::Kvz {

class Texture;

/// What ItemIdRenderPass drew in a part of a picture, rows from the bottom up.
struct ItemRegion
{
    /// A texel as it is copied.
    struct Ids
    {
        unsigned int item; ///< Its number plus 1; 0: nothing is there.
        unsigned int triangle;
    };

    QRect area; ///< Pixels of the picture, from the upper left.
    std::vector<Ids> ids;
    std::vector<float> depths; ///< Parallel to the ids; 1 where there is no depth image.

    /// Index of a pixel of the picture that lies in the area.
    size_t indexOf(const QPoint &pixel) const
    {
        return size_t(area.bottom() - pixel.y()) * size_t(area.width()) + size_t(pixel.x() - area.left());
    }
};

/// Copies a part of such images into a buffer, and returns it once it has arrived, without waiting for the GPU. One request at a time; the
/// contexts as for ItemPicker.
class ItemRegionReader
{
public:
    ItemRegionReader();
    ~ItemRegionReader();

    /// As ItemPicker::request(), for an area that lies in the image as a whole.
    bool request(Texture *ids, Texture *depth, const QRect &area);
    bool isPending() const;
    std::optional<ItemRegion> take();
    std::optional<ItemRegion> wait();

private:
    Q_DISABLE_COPY(ItemRegionReader)

    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace Velmora::Kvz
