// SPDX-License-Identifier: MIT
#include "ManagedTextures.h"

#include "CurrentContext.h"
#include "ImageArrayPlan.h"
#include "ImageRows.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/FixedTextureUnits.h>
#include <GL/FramebufferObject.h>
#include <GL/GLExtensions.h>
#include <GL/UnpackState.h>

#include <GL/TrackedGL.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

constexpr unsigned char whiteTexel[4] = {255, 255, 255, 255};

/// A bind() that has not ended.
struct Binding
{
    const void *context;
    ManagedTextures *set;
};

/// Of this thread, the latest last.
std::vector<Binding> &bindings()
{
    thread_local std::vector<Binding> list;
    return list;
}

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
    // Where a driver is not told of all levels at once, it makes room for the first one twice.
    const bool hasStorage = hasGLExtension("GL_ARB_texture_storage");
    if (hasStorage)
        glTexStorage3D(GL_TEXTURE_2D_ARRAY, mipLevels(size), GL_RGBA8, size.width(), size.height(), layers);
    for (int level = 0; !hasStorage && level < mipLevels(size); ++level) {
        glTexImage3D(GL_TEXTURE_2D_ARRAY, level, GL_RGBA8, qMax(1, size.width() >> level),
            qMax(1, size.height() >> level), layers, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    }
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_WRAP_S, GL_REPEAT);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_WRAP_T, GL_REPEAT);
    return texture;
}

bool isAtLeast(const QSize &size, const QSize &other)
{
    return size.width() >= other.width() && size.height() >= other.height();
}

int glLimit(GLenum name)
{
    GLint limit = 0;
    glGetIntegerv(name, &limit);
    return limit;
}

QString inWords(const QSize &size)
{
    return QStringLiteral("%1 by %2").arg(size.width()).arg(size.height());
}

/// Says which images lost resolution to the limit of bytes. All of `images` are on the same places as those of the plan.
void reportShrunk(const QVector<ManagedImage> &images, const ImageArrayPlan &plan, int side, qint64 bytes)
{
    constexpr int most = 5;
    QStringList shrunk;
    int count = 0;
    for (int i = 0; i < images.size(); ++i) {
        const QSize from = images[i].image.size();
        const QSize to = plan.places[i].size;
        if (plan.places[i].array < 0 || from == to)
            continue;
        const QString name = images[i].name.isEmpty() ? QStringLiteral("one") : '"' + images[i].name + '"';
        if (std::max(from.width(), from.height()) > side && std::max(to.width(), to.height()) == side) {
            KVZ_WARNING(QStringLiteral("A material image (%1) of %2 is scaled down to %3, the driver's largest")
                            .arg(name, inWords(from), inWords(to)));
        } else if (++count <= most) {
            shrunk.append(QStringLiteral("%1 from %2 to %3").arg(name, inWords(from), inWords(to)));
        }
    }
    if (count == 0)
        return;
    if (count > most)
        shrunk.append(QStringLiteral("%1 more").arg(count - most));
    KVZ_WARNING(QStringLiteral("The material images of a model take more than %1 MiB; scaled down: %2")
                    .arg(double(bytes) / (1 << 20))
                    .arg(shrunk.join(QStringLiteral(", "))));
}

void reportNoPlace(const ManagedImage &image, int layers)
{
    KVZ_WARNING(QStringLiteral("A material image of %1 finds no place and shows as white: this driver keeps %2 images "
                               "of one size; merge some")
                    .arg(inWords(image.image.size()))
                    .arg(layers));
}

} // namespace

ManagedTextures::~ManagedTextures()
{
    std::vector<Binding> &all = bindings();
    all.erase(std::remove_if(all.begin(), all.end(), [this](const Binding &binding) { return binding.set == this; }),
        all.end());
}

QVector<int> ManagedTextures::addAll(const QVector<ManagedImage> &images, qint64 bytes, int arrays)
{
    QVector<int> numbers; // of each image among those that differ
    QVector<ManagedImage> distinct;
    QVector<PlannedImage> planned;
    QHash<Key, int> known;
    for (const ManagedImage &image : images) {
        const Key key(image.image.cacheKey(), int(image.use));
        int number = image.image.isNull() ? -1 : known.value(key, distinct.size());
        numbers.append(number);
        if (number < 0)
            continue;
        if (number == distinct.size()) {
            known.insert(key, number);
            distinct.append(image);
            planned.append({image.image.size(), false});
        }
        planned[number].isNearest |= image.isNearest;
        distinct[number].isNearest |= image.isNearest;
    }

    const int side = glLimit(GL_MAX_TEXTURE_SIZE);
    const int layers = glLimit(GL_MAX_ARRAY_TEXTURE_LAYERS);
    const ImageArrayPlan plan = planImageArrays(planned, {arrays, side, layers, bytes});
    reportShrunk(distinct, plan, side, bytes);
    for (const ImageArrayPlan::Array &array : plan.arrays) {
        m_arrays.emplace_back();
        m_arrays.back().size = array.size;
        m_arrays.back().layers.resize(array.layers);
        grow(m_arrays.back(), array.layers);
    }
    for (int i = 0; i < distinct.size(); ++i) {
        const ImageArrayPlan::Place &place = plan.places[i];
        if (place.array < 0) {
            reportNoPlace(distinct[i], layers);
            continue;
        }
        const Key key(distinct[i].image.cacheKey(), int(distinct[i].use));
        Array &array = m_arrays[size_t(place.array)];
        store(array, place.layer, distinct[i]);
        array.layers[place.layer].key = key;
        m_handles.insert(key, 1 + place.array + arrayCount * place.layer);
    }

    QVector<int> handles;
    for (const int number : numbers) {
        const int handle =
            number < 0 ? 0 : m_handles.value(Key(distinct[number].image.cacheKey(), int(distinct[number].use)));
        handles.append(handle);
        if (handle > 0)
            ++m_arrays[size_t((handle - 1) % arrayCount)].layers[(handle - 1) / arrayCount].users;
    }
    return handles;
}

int ManagedTextures::add(const ManagedImage &image)
{
    if (image.image.isNull())
        return 0;
    const Key key(image.image.cacheKey(), int(image.use));
    if (const int handle = m_handles.value(key)) {
        ++m_arrays[size_t((handle - 1) % arrayCount)].layers[(handle - 1) / arrayCount].users;
        return handle;
    }
    const int side = glLimit(GL_MAX_TEXTURE_SIZE);
    const QSize own = image.image.size();
    QSize size = own;
    if (size.width() > side || size.height() > side)
        size.scale(side, side, Qt::KeepAspectRatio);

    const int arrayIndex = chooseArray(size);
    Array &array = m_arrays[size_t(arrayIndex)];
    if (size != own) {
        KVZ_WARNING(QStringLiteral("A material image of %1 is scaled down to %2, the driver's largest")
                        .arg(inWords(own), inWords(array.size)));
    } else if (!isAtLeast(array.size, size)) {
        KVZ_WARNING(QStringLiteral("A material image of %1 is resampled to %2; use at most %3 sizes, or let a "
                                   "GPUModelBuilder arrange them")
                        .arg(inWords(own), inWords(array.size))
                        .arg(int(arrayCount)));
    }
    const int layer = chooseLayer(array);
    if (layer < 0) {
        reportNoPlace(image, array.capacity);
        return 0;
    }
    store(array, layer, image);
    array.layers[layer] = {key, 1};
    const int handle = 1 + arrayIndex + arrayCount * layer;
    m_handles.insert(key, handle);
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
    if (const void *const context = currentContextHandle())
        bindings().push_back({context, this});
}

void ManagedTextures::unbind()
{
    std::vector<Binding> &all = bindings();
    const auto latest =
        std::find_if(all.rbegin(), all.rend(), [this, context = currentContextHandle()](const Binding &binding) {
            return binding.set == this && binding.context == context;
        });
    if (latest != all.rend())
        all.erase(std::next(latest).base());
}

ManagedTextures *ManagedTextures::bound()
{
    const std::vector<Binding> &all = bindings();
    const auto latest = std::find_if(all.rbegin(), all.rend(),
        [context = currentContextHandle()](const Binding &binding) { return binding.context == context; });
    return latest != all.rend() ? latest->set : nullptr;
}

Texture *ManagedTextures::array(int number)
{
    if (number >= int(m_arrays.size()) || !m_arrays[size_t(number)].texture)
        return nullptr;
    Array &array = m_arrays[size_t(number)];
    if (array.mipMapsStale) {
        AutoBinder binder(array.texture.get());
        glGenerateMipmap(GL_TEXTURE_2D_ARRAY);
        array.mipMapsStale = false;
    }
    return array.texture.get();
}

int ManagedTextures::chooseArray(const QSize &size)
{
    int unused = -1;
    int nearest = -1;
    const auto isBetter = [&](const Array &array, const Array &other) {
        const bool isEnough = isAtLeast(array.size, size);
        return isEnough != isAtLeast(other.size, size) ? isEnough
                                                       : distance(array.size, size) < distance(other.size, size);
    };
    for (int i = 0; i < int(m_arrays.size()); ++i) {
        const Array &array = m_arrays[size_t(i)];
        if (array.size == size)
            return i;
        if (!array.texture)
            unused = i;
        else if (nearest < 0 || isBetter(array, m_arrays[size_t(nearest)]))
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

void ManagedTextures::store(Array &array, int layer, const ManagedImage &image)
{
    UnpackState unpack;
    AutoBinder binder(array.texture.get());
    readRows(image.image, array.size, image.isNearest, [&](int first, int count, const uchar *bytes) {
        glTexSubImage3D(
            GL_TEXTURE_2D_ARRAY, 0, 0, first, layer, array.size.width(), count, 1, GL_RGBA, GL_UNSIGNED_BYTE, bytes);
    });
    array.mipMapsStale = true;
}

void ManagedTextureUnits::bind(ManagedTextures &images)
{
    GLint active = 0;
    glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
    SavedBinding saved;
    const int firstUnit = FixedTextureUnits::unitOf(managedTextureSampler(0));
    for (int i = 0; i < managedTextureArrays; ++i) {
        // Every active sampler of a program needs a texture of its type, also when no handle refers to it.
        Texture *const array = images.array(i);
        const unsigned int name = (array ? array : white())->textureID();
        glActiveTexture(GL_TEXTURE0 + GLenum(firstUnit - i));
        glGetIntegerv(GL_TEXTURE_BINDING_2D_ARRAY, &saved.textures[i]);
        glBindTexture(GL_TEXTURE_2D_ARRAY, name);
    }
    m_saved.append(saved);
    glActiveTexture(GLenum(active));
}

void ManagedTextureUnits::unbind()
{
    if (m_saved.isEmpty())
        return;
    GLint active = 0;
    glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
    const SavedBinding saved = m_saved.takeLast();
    const int firstUnit = FixedTextureUnits::unitOf(managedTextureSampler(0));
    for (int i = 0; i < managedTextureArrays; ++i) {
        glActiveTexture(GL_TEXTURE0 + GLenum(firstUnit - i));
        glBindTexture(GL_TEXTURE_2D_ARRAY, GLuint(saved.textures[i]));
    }
    glActiveTexture(GLenum(active));
}

Texture *ManagedTextureUnits::white()
{
    if (!m_white) {
        m_white = createArray(QSize(1, 1), 1);
        UnpackState unpack;
        AutoBinder binder(m_white.get());
        glTexSubImage3D(GL_TEXTURE_2D_ARRAY, 0, 0, 0, 0, 1, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, whiteTexel);
        // Drivers that run both sides of a branch read it in every pixel: one texel is the least they can be made to read.
        glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    }
    return m_white.get();
}

} // namespace Velmora::Kvz
