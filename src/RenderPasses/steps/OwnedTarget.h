// SPDX-License-Identifier: MIT
#pragma once

#include <Core/NamedValue.h>

#include <QtCore/QSize>
#include <QtCore/QVariant>

namespace Velmora::Kvz {

class FramebufferObject;
class Texture;

/// Deletes what stands at an attachment of the framebuffer, which must be bound, and puts a new 2D texture there, both its
/// filters nearest. The size is in texels; `format` and `type` stand beside the internal format in glTexImage2D, whose data
/// is null. The framebuffer owns the texture from then on.
Texture *remakeTarget(FramebufferObject *framebuffer, unsigned int attachment, int internalFormat, const QSize &size,
    unsigned int format, unsigned int type);

/// Gives a 2D texture of the caller's, which has no storage yet, the same properties and puts it at an attachment where
/// nothing stands.
void attachTarget(FramebufferObject *framebuffer, unsigned int attachment, Texture *target, int internalFormat,
    const QSize &size, unsigned int format, unsigned int type);

/// Deletes the texture at an attachment, if there is one.
void deleteTarget(FramebufferObject *framebuffer, unsigned int attachment);

/// Writes what stands at an attachment, or a null `Texture*`, to an output. No reference is counted.
void publishTarget(NamedValue<QVariant> &output, const FramebufferObject *framebuffer, unsigned int attachment);

} // namespace Velmora::Kvz
