// SPDX-License-Identifier: MIT
#include <GL/FixedTextureUnits.h>

#include "SceneSamplers.h"
#include "TextureUnitCount.h"

namespace Velmora::Kvz {

namespace {

QStringList &reserved()
{
    static QStringList *const names = [] {
        auto *list = new QStringList;
        for (int i = 0; i < managedTextureArrays; ++i)
            list->append(managedTextureSampler(i));
        list->append(drawCommandsSampler());
        return list;
    }();
    return *names;
}

} // namespace

void FixedTextureUnits::reserve(const QString &sampler)
{
    if (!reserved().contains(sampler))
        reserved().append(sampler);
}

int FixedTextureUnits::unitOf(const QString &sampler)
{
    const int index = reserved().indexOf(sampler);
    return index < 0 ? -1 : textureUnitCount() - 1 - index;
}

QStringList FixedTextureUnits::samplers()
{
    return reserved();
}

} // namespace Velmora::Kvz
