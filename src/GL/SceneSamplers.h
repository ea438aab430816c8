// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Velmora::Kvz {

/// The array textures that hold the images of materials.
constexpr int managedTextureArrays = 6;

/// The sampler of one of them, by number from 0.
inline QString managedTextureSampler(int number)
{
    return QStringLiteral("kvz_ManagedTextures%1").arg(number);
}

/// The sampler of a drawable's indirect commands.
inline QString drawCommandsSampler()
{
    return QStringLiteral("kvz_DrawCommands");
}

} // namespace Velmora::Kvz
