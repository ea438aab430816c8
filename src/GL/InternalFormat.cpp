// SPDX-License-Identifier: MIT
#include <GL/InternalFormat.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

struct FormatRow
{
    GLenum internalFormat;
    GLenum format;
    GLenum type;
    int bytes;
};

constexpr FormatRow formatTable[] = {
    {GL_RED, GL_RED, GL_UNSIGNED_BYTE, 1},
    {GL_RG, GL_RG, GL_UNSIGNED_BYTE, 2},
    {GL_RGB, GL_RGB, GL_UNSIGNED_BYTE, 3},
    {GL_RGBA, GL_RGBA, GL_UNSIGNED_BYTE, 4},
    {GL_R8, GL_RED, GL_UNSIGNED_BYTE, 1},
    {GL_RG8, GL_RG, GL_UNSIGNED_BYTE, 2},
    {GL_RGB8, GL_RGB, GL_UNSIGNED_BYTE, 3},
    {GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE, 4},
    {GL_SRGB8, GL_RGB, GL_UNSIGNED_BYTE, 3},
    {GL_SRGB8_ALPHA8, GL_RGBA, GL_UNSIGNED_BYTE, 4},
    {GL_R8_SNORM, GL_RED, GL_BYTE, 1},
    {GL_RG8_SNORM, GL_RG, GL_BYTE, 2},
    {GL_RGB8_SNORM, GL_RGB, GL_BYTE, 3},
    {GL_RGBA8_SNORM, GL_RGBA, GL_BYTE, 4},
    {GL_R16, GL_RED, GL_UNSIGNED_SHORT, 2},
    {GL_RG16, GL_RG, GL_UNSIGNED_SHORT, 4},
    {GL_RGB16, GL_RGB, GL_UNSIGNED_SHORT, 6},
    {GL_RGBA16, GL_RGBA, GL_UNSIGNED_SHORT, 8},
    {GL_RGB10_A2, GL_RGBA, GL_UNSIGNED_INT_2_10_10_10_REV, 4},
    {GL_RGB10_A2UI, GL_RGBA_INTEGER, GL_UNSIGNED_INT_2_10_10_10_REV, 4},
    {GL_R11F_G11F_B10F, GL_RGB, GL_UNSIGNED_INT_10F_11F_11F_REV, 4},
    {GL_RGB9_E5, GL_RGB, GL_UNSIGNED_INT_5_9_9_9_REV, 4},
    {GL_R16F, GL_RED, GL_HALF_FLOAT, 2},
    {GL_RG16F, GL_RG, GL_HALF_FLOAT, 4},
    {GL_RGB16F, GL_RGB, GL_HALF_FLOAT, 6},
    {GL_RGBA16F, GL_RGBA, GL_HALF_FLOAT, 8},
    {GL_R32F, GL_RED, GL_FLOAT, 4},
    {GL_RG32F, GL_RG, GL_FLOAT, 8},
    {GL_RGB32F, GL_RGB, GL_FLOAT, 12},
    {GL_RGBA32F, GL_RGBA, GL_FLOAT, 16},
    {GL_R8UI, GL_RED_INTEGER, GL_UNSIGNED_BYTE, 1},
    {GL_RG8UI, GL_RG_INTEGER, GL_UNSIGNED_BYTE, 2},
    {GL_RGB8UI, GL_RGB_INTEGER, GL_UNSIGNED_BYTE, 3},
    {GL_RGB8I, GL_RGB_INTEGER, GL_BYTE, 3},
    {GL_RGBA8UI, GL_RGBA_INTEGER, GL_UNSIGNED_BYTE, 4},
    {GL_R16UI, GL_RED_INTEGER, GL_UNSIGNED_SHORT, 2},
    {GL_RG16UI, GL_RG_INTEGER, GL_UNSIGNED_SHORT, 4},
    {GL_RGB16UI, GL_RGB_INTEGER, GL_UNSIGNED_SHORT, 6},
    {GL_RGB16I, GL_RGB_INTEGER, GL_SHORT, 6},
    {GL_RGBA16UI, GL_RGBA_INTEGER, GL_UNSIGNED_SHORT, 8},
    {GL_R32UI, GL_RED_INTEGER, GL_UNSIGNED_INT, 4},
    {GL_RG32UI, GL_RG_INTEGER, GL_UNSIGNED_INT, 8},
    {GL_RGB32UI, GL_RGB_INTEGER, GL_UNSIGNED_INT, 12},
    {GL_RGBA32UI, GL_RGBA_INTEGER, GL_UNSIGNED_INT, 16},
    {GL_R8I, GL_RED_INTEGER, GL_BYTE, 1},
    {GL_RG8I, GL_RG_INTEGER, GL_BYTE, 2},
    {GL_RGBA8I, GL_RGBA_INTEGER, GL_BYTE, 4},
    {GL_R16I, GL_RED_INTEGER, GL_SHORT, 2},
    {GL_RG16I, GL_RG_INTEGER, GL_SHORT, 4},
    {GL_RGBA16I, GL_RGBA_INTEGER, GL_SHORT, 8},
    {GL_R32I, GL_RED_INTEGER, GL_INT, 4},
    {GL_RG32I, GL_RG_INTEGER, GL_INT, 8},
    {GL_RGB32I, GL_RGB_INTEGER, GL_INT, 12},
    {GL_RGBA32I, GL_RGBA_INTEGER, GL_INT, 16},
    {GL_DEPTH_COMPONENT, GL_DEPTH_COMPONENT, GL_UNSIGNED_INT, 4},
    {GL_DEPTH_COMPONENT16, GL_DEPTH_COMPONENT, GL_UNSIGNED_SHORT, 2},
    {GL_DEPTH_COMPONENT24, GL_DEPTH_COMPONENT, GL_UNSIGNED_INT, 4},
    {GL_DEPTH_COMPONENT32, GL_DEPTH_COMPONENT, GL_UNSIGNED_INT, 4},
    {GL_DEPTH_COMPONENT32F, GL_DEPTH_COMPONENT, GL_FLOAT, 4},
    {GL_DEPTH_STENCIL, GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8, 4},
    {GL_DEPTH24_STENCIL8, GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8, 4},
    {GL_DEPTH32F_STENCIL8, GL_DEPTH_STENCIL, GL_FLOAT_32_UNSIGNED_INT_24_8_REV, 8},
};

const FormatRow &rowOf(GLenum internalFormat)
{
    static constexpr FormatRow unknown = {0, GL_RGBA, GL_UNSIGNED_BYTE, 4};
    for (const FormatRow &row : formatTable) {
        if (row.internalFormat == internalFormat)
            return row;
    }
    return unknown;
}

} // namespace

unsigned int formatFromInternalFormat(unsigned int internalFormat)
{
    return rowOf(internalFormat).format;
}

unsigned int typeFromInternalFormat(unsigned int internalFormat)
{
    return rowOf(internalFormat).type;
}

int bytesPerTexel(unsigned int internalFormat)
{
    return rowOf(internalFormat).bytes;
}

unsigned int internalFormatOf(TextureFormat format)
{
    switch (format) {
    case TextureFormat::LowDynamicRange:
    case TextureFormat::Velocity:
        return GL_RGBA8;
    case TextureFormat::ResolvedVelocity:
    case TextureFormat::HighDynamicRange:
        return GL_RGBA16F;
    case TextureFormat::Position:
        return GL_RGBA32F;
    case TextureFormat::DepthStencil:
        return GL_DEPTH24_STENCIL8;
    }
    return 0;
}

bool isDepthFormat(unsigned int internalFormat)
{
    const unsigned int format = formatFromInternalFormat(internalFormat);
    return format == GL_DEPTH_COMPONENT || format == GL_DEPTH_STENCIL;
}

bool hasStencil(unsigned int internalFormat)
{
    return formatFromInternalFormat(internalFormat) == GL_DEPTH_STENCIL;
}

} // namespace Velmora::Kvz
