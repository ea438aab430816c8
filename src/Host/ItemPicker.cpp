// SPDX-License-Identifier: MIT
#include <Host/ItemPicker.h>

#include <Host/ItemRegionReader.h>

namespace Velmora::Kvz {

namespace {

std::optional<PickedItem> pickedIn(const std::optional<ItemRegion> &region)
{
    if (!region)
        return std::nullopt;
    const ItemRegion::Ids &ids = region->ids.front();
    if (ids.item == 0)
        return PickedItem();
    return PickedItem{int(ids.item) - 1, int(ids.triangle), region->depths.front()};
}

} // namespace

struct ItemPicker::Private
{
    ItemRegionReader reader;
};

ItemPicker::ItemPicker()
    : d(std::make_unique<Private>())
{ }

ItemPicker::~ItemPicker() = default;

bool ItemPicker::request(Texture *ids, Texture *depth, const QPoint &pixel)
{
    return d->reader.request(ids, depth, QRect(pixel, QSize(1, 1)));
}

bool ItemPicker::isPending() const
{
    return d->reader.isPending();
}

std::optional<PickedItem> ItemPicker::take()
{
    return pickedIn(d->reader.take());
}

std::optional<PickedItem> ItemPicker::wait()
{
    return pickedIn(d->reader.wait());
}

} // namespace Velmora::Kvz
