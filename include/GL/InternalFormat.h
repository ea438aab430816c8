// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>
#include <GL/TextureFormat.h>

namespace Velmora::Kvz {

/// The pixel format that glTexImage2D needs for an internal format: GL_RGBA for GL_RGBA8 and GL_RGBA32F, GL_RED_INTEGER
/// for GL_R32UI, GL_DEPTH_COMPONENT for GL_DEPTH_COMPONENT32F. GL_RGBA for an unknown format.
KVZ_GL_EXPORT unsigned int formatFromInternalFormat(unsigned int internalFormat);

/// The pixel type that goes with an internal format: GL_UNSIGNED_BYTE, GL_FLOAT, GL_HALF_FLOAT, GL_UNSIGNED_INT,
/// GL_UNSIGNED_INT_24_8, …. GL_UNSIGNED_BYTE for an unknown format.
KVZ_GL_EXPORT unsigned int typeFromInternalFormat(unsigned int internalFormat);

/// Bytes per texel as drivers commonly store it; 4 for an unknown format.
KVZ_GL_EXPORT int bytesPerTexel(unsigned int internalFormat);

/// The internal format of a pool format; 0 for a number without a format.
KVZ_GL_EXPORT unsigned int internalFormatOf(TextureFormat format);

/// Whether the format holds depth, with or without stencil.
KVZ_GL_EXPORT bool isDepthFormat(unsigned int internalFormat);

/// Whether the format holds both depth and stencil.
KVZ_GL_EXPORT bool hasStencil(unsigned int internalFormat);

} // namespace Velmora::Kvz
