// SPDX-License-Identifier: MIT
#include "ResolveMultisampled.h"

#include "TempTexture.h"

#include <GL/AutoBinder.h>
#include <GL/BlitTexture.h>
#include <GL/Texture.h>
#include <GL/TextureManager.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

bool isMultisampled(const Texture *texture)
{
    return texture->target() == GL_TEXTURE_2D_MULTISAMPLE;
}

Texture *resolveMultisampled(Texture *texture, TextureFormat format, const QSize &size)
{
    AutoBinder binder(texture);
    Texture *const resolved = TextureManager::Instance()->tempTexture(format, size.width(), size.height(), 1, 1);
    BlitTexture(texture, resolved, format, size.width(), size.height());
    giveBack(texture);
    return resolved;
}

} // namespace Velmora::Kvz
