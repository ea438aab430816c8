// SPDX-License-Identifier: MIT
#include "TextureUnitAllocator.h"

#include "ContextRegistry.h"
#include "TextureUnitCount.h"

#include <Core/Log.h>
#include <GL/FixedTextureUnits.h>

#include <vector>

namespace Velmora::Kvz {

namespace {

/// By texture unit; grows with use.
struct UsedUnits
{
    std::vector<bool> isUsed;
};

} // namespace

int TextureUnitAllocator::acquire()
{
    const QSharedPointer<ContextRecord> record = ContextRegistry::current();
    std::vector<bool> &isUsed = record->resources.get<UsedUnits>().isUsed;
    const int kept = FixedTextureUnits::samplers().size();
    const size_t firstFixed = size_t(qMax(2, textureUnitCount() - kept));
    size_t unit = 1;
    while (unit < isUsed.size() && isUsed[unit])
        ++unit;
    if (unit >= firstFixed) {
        KVZ_WARNING(QStringLiteral("No texture unit is free: the driver offers %1, and %2 are kept for scene data")
                        .arg(textureUnitCount())
                        .arg(kept));
        return int(firstFixed) - 1;
    }
    if (unit >= isUsed.size())
        isUsed.resize(unit + 1);
    isUsed[unit] = true;
    return int(unit);
}

void TextureUnitAllocator::release(int unit)
{
    const QSharedPointer<ContextRecord> record = ContextRegistry::current();
    UsedUnits *const units = record ? record->resources.find<UsedUnits>() : nullptr;
    if (units && size_t(unit) < units->isUsed.size())
        units->isUsed[size_t(unit)] = false;
}

} // namespace Velmora::Kvz
