// SPDX-License-Identifier: MIT
#include "PngEncoder.h"

#include <QtCore/QIODevice>

#include <png.h>

#include <csetjmp>

namespace Velmora::Kvz {

namespace {

constexpr int quickCompression = 3;

void writeBytes(png_structp png, png_bytep from, png_size_t count)
{
    auto *device = static_cast<QIODevice *>(png_get_io_ptr(png));
    if (device->write(reinterpret_cast<const char *>(from), qint64(count)) != qint64(count))
        png_error(png, "not written");
}

void flushNothing(png_structp)
{ }

void leave(png_structp png, png_const_charp)
{
    png_longjmp(png, 1);
}

void ignoreWarning(png_structp, png_const_charp)
{ }

} // namespace

// The frames between setjmp() and libpng's calls hold nothing that would have to be destroyed.

PngEncoder::PngEncoder(QIODevice *device)
    : m_png(png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, leave, ignoreWarning)),
      m_info(m_png ? png_create_info_struct(m_png) : nullptr)
{
    if (m_info)
        png_set_write_fn(m_png, device, writeBytes, flushNothing);
}

PngEncoder::~PngEncoder()
{
    png_destroy_write_struct(&m_png, &m_info);
}

bool PngEncoder::begin(const QSize &size, bool hasAlpha, int depth)
{
    if (!m_info || setjmp(png_jmpbuf(m_png)))
        return false;
    png_set_user_limits(m_png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_set_IHDR(m_png, m_info, png_uint_32(size.width()), png_uint_32(size.height()), depth,
        hasAlpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
        PNG_FILTER_TYPE_DEFAULT);
    png_set_sRGB_gAMA_and_cHRM(m_png, m_info, PNG_sRGB_INTENT_PERCEPTUAL);
    png_set_compression_level(m_png, quickCompression);
    png_write_info(m_png, m_info);
    if (depth == 16 && QSysInfo::ByteOrder == QSysInfo::LittleEndian)
        png_set_swap(m_png);
    return true;
}

bool PngEncoder::writeRow(const unsigned char *row)
{
    if (setjmp(png_jmpbuf(m_png)))
        return false;
    png_write_row(m_png, row);
    return true;
}

bool PngEncoder::end()
{
    if (setjmp(png_jmpbuf(m_png)))
        return false;
    png_write_end(m_png, m_info);
    return true;
}

} // namespace Velmora::Kvz
