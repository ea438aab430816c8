// SPDX-License-Identifier: MIT
#include "ManagedTextures.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/FixedTextureUnits.h>
#include <GL/FramebufferObject.h>
#include <GL/UnpackState.h>

#include <epoxy/gl.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

constexpr unsigned char whiteTexel[4] = {255, 255, 255, 255};

int mipLevels(const QSize &size)
{
    return 1 + int(std::floor(std::log2(qMax(size.width(), size.height()))));
}

/// How far two sizes lie apart: octaves of width plus octaves of height.
double distance(const QSize &a, const QSize &b)
{
    return std::abs(std::log2(double(a.width()) / b.width())) + std::abs(std::log2(double(a.height()) / b.height()));
}

std::unique_ptr<Texture> createArray(const QSize &size, int layers)
{
    auto texture =
        std::make_unique<Texture>(GL_TEXTURE_2D_ARRAY, GL_RGBA8, size.width(), size.height(), layers, nullptr);
    UnpackState unpack;
    AutoBinder binder(texture.get());
    for (int level = 0; level < mipLevels(size); ++level) {
        glTexImage3D(GL_TEXTURE_2D_ARRAY, level, GL_RGBA8, qMax(1, size.width() >> level),
            qMax(1, size.height() >> level), layers, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    }
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_WRAP_S, GL_REPEAT);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_WRAP_T, GL_REPEAT);
    return texture;
}

} // namespace

int ManagedTextures::add(const QImage &image)
{
    if (image.isNull())
        return 0;
    if (const int handle = m_handles.value(image.cacheKey())) {
        ++m_arrays[size_t((handle - 1) % arrayCount)].layers[(handle - 1) / arrayCount].users;
        return handle;
    }
    GLint maximumSize = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &maximumSize);
    QSize size = image.size();
    if (size.width() > maximumSize || size.height() > maximumSize)
        size.scale(maximumSize, maximumSize, Qt::KeepAspectRatio);

    const int arrayIndex = chooseArray(size);
    Array &array = m_arrays[size_t(arrayIndex)];
    if (size != image.size()) {
        KVZ_WARNING(QStringLiteral("A material image of %1 by %2 is scaled down to %3 by %4, the driver's largest")
                        .arg(image.width())
                        .arg(image.height())
                        .arg(array.size.width())
                        .arg(array.size.height()));
    } else if (array.size != size) {
        KVZ_WARNING(QStringLiteral("A material image of %1 by %2 is resampled to %3 by %4; use at most %5 sizes")
                        .arg(image.width())
                        .arg(image.height())
                        .arg(array.size.width())
                        .arg(array.size.height())
                        .arg(int(arrayCount)));
    }
    const int layer = chooseLayer(array);
    if (layer < 0) {
        KVZ_WARNING(
            QStringLiteral("A material image of %1 by %2 finds no place and shows as white: this driver keeps %3 "
                           "images of one size; merge some")
                .arg(image.width())
                .arg(image.height())
                .arg(array.capacity));
        return 0;
    }
    store(array, layer, image);
    array.layers[layer] = {image.cacheKey(), 1};
    const int handle = 1 + arrayIndex + arrayCount * layer;
    m_handles.insert(image.cacheKey(), handle);
    return handle;
}

void ManagedTextures::release(int handle)
{
    const int arrayIndex = (handle - 1) % arrayCount;
    const int layerIndex = (handle - 1) / arrayCount;
    if (handle < 1 || arrayIndex >= int(m_arrays.size()))
        return;
    Array &array = m_arrays[size_t(arrayIndex)];
    if (layerIndex >= array.layers.size() || array.layers[layerIndex].users == 0)
        return;
    Layer &layer = array.layers[layerIndex];
    if (--layer.users > 0)
        return;
    m_handles.remove(layer.key);
    // An array that nobody uses frees its memory, and its place is open to another size.
    for (const Layer &other : qAsConst(array.layers)) {
        if (other.users > 0)
            return;
    }
    array = Array();
}

void ManagedTextures::bind()
{
    GLint active = 0;
    glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
    SavedBinding saved;
    const int firstUnit = FixedTextureUnits::unitOf(managedTextureSampler(0));
    for (int i = 0; i < arrayCount; ++i) {
        const unsigned int name = nameFor(i);
        glActiveTexture(GL_TEXTURE0 + GLenum(firstUnit - i));
        glGetIntegerv(GL_TEXTURE_BINDING_2D_ARRAY, &saved.textures[i]);
        glBindTexture(GL_TEXTURE_2D_ARRAY, name);
        if (i < int(m_arrays.size()) && m_arrays[size_t(i)].mipMapsStale) {
            glGenerateMipmap(GL_TEXTURE_2D_ARRAY);
            m_arrays[size_t(i)].mipMapsStale = false;
        }
    }
    m_saved.append(saved);
    glActiveTexture(GLenum(active));
}

void ManagedTextures::unbind()
{
    if (m_saved.isEmpty())
        return;
    GLint active = 0;
    glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
    const SavedBinding saved = m_saved.takeLast();
    const int firstUnit = FixedTextureUnits::unitOf(managedTextureSampler(0));
    for (int i = 0; i < arrayCount; ++i) {
        glActiveTexture(GL_TEXTURE0 + GLenum(firstUnit - i));
        glBindTexture(GL_TEXTURE_2D_ARRAY, GLuint(saved.textures[i]));
    }
    glActiveTexture(GLenum(active));
}

int ManagedTextures::chooseArray(const QSize &size)
{
    int unused = -1;
    int nearest = -1;
    for (int i = 0; i < int(m_arrays.size()); ++i) {
        const Array &array = m_arrays[size_t(i)];
        if (array.size == size)
            return i;
        if (!array.texture)
            unused = i;
        else if (nearest < 0 || distance(array.size, size) < distance(m_arrays[size_t(nearest)].size, size))
            nearest = i;
    }
    if (unused < 0 && m_arrays.size() < size_t(arrayCount)) {
        m_arrays.emplace_back();
        unused = int(m_arrays.size()) - 1;
    }
    if (unused < 0)
        return nearest;
    m_arrays[size_t(unused)].size = size;
    return unused;
}

int ManagedTextures::chooseLayer(Array &array)
{
    for (int i = 0; i < array.layers.size(); ++i) {
        if (array.layers[i].users == 0)
            return i;
    }
    if (array.layers.size() == array.capacity) {
        GLint limit = 0;
        glGetIntegerv(GL_MAX_ARRAY_TEXTURE_LAYERS, &limit);
        if (array.capacity >= limit)
            return -1;
        grow(array, qBound(1, array.capacity * 2, limit));
    }
    array.layers.append(Layer());
    return array.layers.size() - 1;
}

void ManagedTextures::grow(Array &array, int capacity)
{
    std::unique_ptr<Texture> grown = createArray(array.size, capacity);
    if (array.texture) {
        FramebufferObject source;
        AutoBinder sourceBinder(&source);
        AutoBinder grownBinder(grown.get());
        for (int layer = 0; layer < array.layers.size(); ++layer) {
            source.attach3D(array.texture.get(), GL_COLOR_ATTACHMENT0, layer, 0);
            glReadBuffer(GL_COLOR_ATTACHMENT0);
            glCopyTexSubImage3D(GL_TEXTURE_2D_ARRAY, 0, 0, 0, layer, 0, 0, array.size.width(), array.size.height());
        }
    }
    array.texture = std::move(grown);
    array.capacity = capacity;
    array.mipMapsStale = true;
}

void ManagedTextures::store(Array &array, int layer, const QImage &image)
{
    QImage rows =
        image.size() == array.size ? image : image.scaled(array.size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    rows = rows.convertToFormat(QImage::Format_RGBA8888).mirrored();
    UnpackState unpack;
    AutoBinder binder(array.texture.get());
    glTexSubImage3D(GL_TEXTURE_2D_ARRAY, 0, 0, 0, layer, array.size.width(), array.size.height(), 1, GL_RGBA,
        GL_UNSIGNED_BYTE, rows.constBits());
    array.mipMapsStale = true;
}

unsigned int ManagedTextures::nameFor(int array)
{
    if (array < int(m_arrays.size()) && m_arrays[size_t(array)].texture)
        return m_arrays[size_t(array)].texture->textureID();
    // Every active sampler of a program needs a texture of its type, also when no handle refers to it.
    if (!m_white) {
        m_white = createArray(QSize(1, 1), 1);
        UnpackState unpack;
        AutoBinder binder(m_white.get());
        glTexSubImage3D(GL_TEXTURE_2D_ARRAY, 0, 0, 0, 0, 1, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, whiteTexel);
    }
    return m_white->textureID();
}

} // namespace Velmora::Kvz
