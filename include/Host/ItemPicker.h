// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

#include <QtCore/QPoint>

#include <memory>
#include <optional>

namespace Velmora::Kvz {

class Texture;

/// What covers a pixel.
struct PickedItem
{
    int item = -1; ///< Its number in the model, as GPUModel counts; -1: nothing is there.
    int triangle = -1; ///< The number of the triangle within the item, from 0; -1: nothing is there.
    float depth = 1; ///< Window depth from 0 to 1; 1 without a depth image too.

    bool isHit() const { return item >= 0; }
};

/// Reads what ItemIdRenderPass drew at a pixel without waiting for the GPU: request() has the texels copied into a buffer, and take()
/// gives them when they have arrived, usually a frame or two later.
///
/// ```cpp
/// if (!picker.isPending())
///     picker.request(chain.exportedTexture("ids"), chain.exportedTexture("depth"), event->pos() * devicePixelRatioF());
/// // In each frame:
/// if (const auto picked = picker.take())
///     highlight(picked->item);
/// ```
///
/// One request at a time: a picker for each pointer. All functions but isPending() need the context current that the first request had,
/// or one that shares its objects; so does the destructor, else the driver keeps a few bytes until the context ends. Bindings are restored.
class KVZ_HOST_EXPORT ItemPicker
{
public:
    ItemPicker();
    ~ItemPicker();

    /// Asks for a pixel, counted as in a picture: (0, 0) is at the upper left. The images must hold what is to be read when this is
    /// called; what is drawn into them later does not matter. `depth` can be null, and one of another size counts as null. False, and nothing is asked for, while a request is
    /// pending, for a pixel outside of the image, and for `ids` that are null or no GL_RG32UI image of one sample.
    bool request(Texture *ids, Texture *depth, const QPoint &pixel);
    /// Whether a request has not been answered yet.
    bool isPending() const;
    /// The answer, once: as soon as it has arrived, and nothing before. Does not wait.
    std::optional<PickedItem> take();
    /// The same, but waits for it: for tools that have no further frame. Nothing where no request is pending.
    std::optional<PickedItem> wait();

private:
    Q_DISABLE_COPY(ItemPicker)

    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace Velmora::Kvz
