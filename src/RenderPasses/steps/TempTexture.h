// SPDX-License-Identifier: MIT
#pragma once

#include <Core/NamedValue.h>
#include <GL/TextureFormat.h>

#include <QtCore/QSize>
#include <QtCore/QVariant>

namespace Velmora::Kvz {

class FramebufferObject;
class Texture;

/// Takes a texture from the pool and attaches it to the framebuffer, which must be bound, at level 0. Below 1 `samples` count
/// as one. The pass holds one reference until detachAndGiveBack().
Texture *attachTempTexture(
    FramebufferObject &framebuffer, unsigned int attachment, TextureFormat format, const QSize &size, int samples = 1);

/// Writes a pooled texture to an output and adds one reference for each of its declared users.
void handOn(NamedValue<QVariant> &output, int users, Texture *texture);

/// Gives back this pass's use of an input texture. Null, and a texture that the pool does not own, are ignored.
void giveBack(Texture *texture);

/// Detaches a pooled target and drops the pass's own reference to it.
void detachAndGiveBack(FramebufferObject &framebuffer, unsigned int attachment);

} // namespace Velmora::Kvz
