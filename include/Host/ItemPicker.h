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

/// Reads what ItemIdRenderPass drew at a pixel, without waiting for the GPU: request() starts a copy of the texels into a buffer,
/// and take() returns them once they have arrived, usually one or two frames later.
///
/// ```cpp
/// if (!picker.isPending())
///     picker.request(chain.exportedTexture("ids"), chain.exportedTexture("depth"), event->pos() * devicePixelRatioF());
/// // In each frame:
/// if (const auto picked = picker.take())
///     highlight(picked->item);
/// ```
///
/// A picker handles one request at a time. All functions but isPending() need a current context, the same for a request and its answer, or
/// one that shares objects with it. A picker deleted without that context leaves its buffer to the driver. Bindings are restored.
class KVZ_HOST_EXPORT ItemPicker
{
public:
    ItemPicker();
    ~ItemPicker();

    /// Requests a pixel; (0, 0) is at the upper left. Later draws into the images do not affect the answer. A `depth` of another
    /// size than `ids` is ignored, and so is null. False, and nothing is requested: while a request is pending, for a pixel outside
    /// the image, and if `ids` is null, multisampled or not GL_RG32UI.
    bool request(Texture *ids, Texture *depth, const QPoint &pixel);
    /// Whether a request has not been answered yet.
    bool isPending() const;
    /// The answer, if it has arrived; each answer is returned once. Does not wait.
    std::optional<PickedItem> take();
    /// Waits for the answer, for programs that draw no further frame. Empty if no request is pending.
    std::optional<PickedItem> wait();

private:
    Q_DISABLE_COPY(ItemPicker)

    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace Velmora::Kvz
