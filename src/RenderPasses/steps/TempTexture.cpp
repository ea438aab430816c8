// SPDX-License-Identifier: MIT
#include "TempTexture.h"

#include <GL/FramebufferObject.h>
#include <GL/TextureManager.h>

namespace Velmora::Kvz {

Texture *attachTempTexture(
    FramebufferObject &framebuffer, unsigned int attachment, TextureFormat format, const QSize &size, int samples)
{
    Texture *const texture = TextureManager::Instance()->tempTexture(format, size.width(), size.height(), 1, samples);
    framebuffer.attach(texture, attachment, 0);
    return texture;
}

void handOn(NamedValue<QVariant> &output, int users, Texture *texture)
{
    output.value = QVariant::fromValue(texture);
    TextureManager::Instance()->addTempTextureRef(texture, users);
}

void giveBack(Texture *texture)
{
    TextureManager::Instance()->releaseTempTextureRef(texture, 1);
}

void detachAndGiveBack(FramebufferObject &framebuffer, unsigned int attachment)
{
    giveBack(framebuffer.detach(attachment));
}

} // namespace Velmora::Kvz
