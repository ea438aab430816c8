// SPDX-License-Identifier: MIT
#include <GL/TextureManager.h>

#include "ContextRegistry.h"
#include "CurrentContext.h"
#include "ManagedTextures.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/InternalFormat.h>
#include <GL/UnpackState.h>

#include <QtGui/QImageReader>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

void setFilterAndWrap(GLenum target, GLint minFilter, GLint magFilter, GLint wrap)
{
    glTexParameteri(target, GL_TEXTURE_MIN_FILTER, minFilter);
    glTexParameteri(target, GL_TEXTURE_MAG_FILTER, magFilter);
    glTexParameteri(target, GL_TEXTURE_WRAP_S, wrap);
    glTexParameteri(target, GL_TEXTURE_WRAP_T, wrap);
}

/// Gives a pooled texture its storage. It is never immutable, since passes may respecify it.
void allocate(Texture *texture, GLenum internalFormat, int width, int height, int depth, int samples)
{
    texture->setSize(0, int(internalFormat), width, height, depth > 1 ? depth : 0);
    UnpackState unpack;
    AutoBinder binder(texture);
    const GLenum format = formatFromInternalFormat(internalFormat);
    const GLenum type = typeFromInternalFormat(internalFormat);
    switch (texture->target()) {
    case GL_TEXTURE_2D_MULTISAMPLE:
        glTexImage2DMultisample(GL_TEXTURE_2D_MULTISAMPLE, samples, internalFormat, width, height, GL_TRUE);
        break;
    case GL_TEXTURE_2D_ARRAY:
        glTexImage3D(GL_TEXTURE_2D_ARRAY, 0, GLint(internalFormat), width, height, depth, 0, format, type, nullptr);
        break;
    default:
        glTexImage2D(GL_TEXTURE_2D, 0, GLint(internalFormat), width, height, 0, format, type, nullptr);
    }
}

int supportedSamples(GLenum internalFormat, int samples)
{
    GLint maximum = 1;
    glGetIntegerv(
        isDepthFormat(internalFormat) ? GL_MAX_DEPTH_TEXTURE_SAMPLES : GL_MAX_COLOR_TEXTURE_SAMPLES, &maximum);
    return qBound(1, samples, qMax(1, maximum));
}

/// Channels from 0 to 1 as floats, rows from the bottom up.
QVector<float> channelsOf(const QImage &image, const TextureLoadOptions &options)
{
    const QImage rows = image.convertToFormat(QImage::Format_RGBA64).mirrored();
    QVector<float> channels;
    channels.reserve(rows.width() * rows.height() * 4);
    for (int y = 0; y < rows.height(); ++y) {
        const auto *line = reinterpret_cast<const quint16 *>(rows.constScanLine(y));
        for (int i = 0; i < rows.width() * 4; ++i)
            channels.append(float(line[i]) / 65535.0f * options.scale + options.offset);
    }
    return channels;
}

} // namespace

bool TextureLoadOptions::operator==(const TextureLoadOptions &other) const
{
    return offset == other.offset && scale == other.scale && linearFilter == other.linearFilter
        && mipMaps == other.mipMaps && repeat == other.repeat && maximumSize == other.maximumSize
        && format == other.format;
}

TextureManager *TextureManager::Instance()
{
    if (const QSharedPointer<ContextRecord> record = ContextRegistry::current())
        return &record->group->resources.get<TextureManager>();
    static TextureManager *const withoutContext = new TextureManager;
    return withoutContext;
}

TextureManager::TextureManager() = default;

TextureManager::~TextureManager() = default;

Texture *TextureManager::tempTexture(TextureFormat format, int width, int height, int depth, int samples)
{
    const GLenum internalFormat = internalFormatOf(format);
    if (!internalFormat || !currentContextHandle())
        return nullptr;
    width = qMax(0, width);
    height = qMax(0, height);
    depth = qMax(1, depth);
    samples = samples > 1 ? supportedSamples(internalFormat, samples) : 1;

    for (Entry &entry : m_pool) {
        if (entry.references > 0 || entry.format != format || entry.width != width || entry.height != height
            || entry.depth != depth || entry.samples != samples)
            continue;
        // A pass may have respecified a placeholder of one texel.
        if (width == 1 && height == 1 && !entry.texture->isStoredAs(internalFormat, width, height))
            allocate(entry.texture.get(), internalFormat, width, height, depth, samples);
        entry.references = 1;
        entry.holder = m_holderLabel;
        return entry.texture.get();
    }

    const GLenum target = samples > 1 ? GL_TEXTURE_2D_MULTISAMPLE : depth > 1 ? GL_TEXTURE_2D_ARRAY : GL_TEXTURE_2D;
    auto texture =
        std::make_unique<Texture>(target, int(internalFormat), width, height, depth > 1 ? depth : 0, nullptr);
    allocate(texture.get(), internalFormat, width, height, depth, samples);
    if (target != GL_TEXTURE_2D_MULTISAMPLE) {
        AutoBinder binder(texture.get());
        glTexParameteri(target, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
        glTexParameteri(target, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        // Filters read past the edges of frames; with a repeating wrap mode the opposite edge would show through.
        glTexParameteri(target, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        glTexParameteri(target, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    }
    m_pool.push_back({std::move(texture), format, width, height, depth, samples, 1, m_holderLabel});
    return m_pool.back().texture.get();
}

TextureManager::Entry *TextureManager::findEntry(const Texture *texture)
{
    const auto found = std::find_if(
        m_pool.begin(), m_pool.end(), [texture](const Entry &entry) { return entry.texture.get() == texture; });
    return texture && found != m_pool.end() ? &*found : nullptr;
}

const TextureManager::Entry *TextureManager::findEntry(const Texture *texture) const
{
    return const_cast<TextureManager *>(this)->findEntry(texture);
}

void TextureManager::addTempTextureRef(Texture *texture, int count)
{
    Entry *const entry = findEntry(texture);
    if (entry && count > 0)
        entry->references += count;
}

void TextureManager::releaseTempTextureRef(Texture *texture, int count)
{
    Entry *const entry = findEntry(texture);
    if (entry && count > 0)
        entry->references = qMax(0, entry->references - count);
}

void TextureManager::deleteUnusedTempTextures()
{
    m_pool.erase(std::remove_if(m_pool.begin(), m_pool.end(), [](const Entry &entry) { return entry.references == 0; }),
        m_pool.end());
}

Texture *TextureManager::colorTexture(const QColor &color)
{
    if (!currentContextHandle())
        return nullptr;
    QSharedPointer<Texture> &texture = m_colors[color.rgba()];
    if (!texture) {
        texture = QSharedPointer<Texture>(new Texture(GL_TEXTURE_2D, GL_RGBA8, 1, 1, 0, nullptr));
        const unsigned char texel[4] = {static_cast<unsigned char>(color.red()),
            static_cast<unsigned char>(color.green()), static_cast<unsigned char>(color.blue()),
            static_cast<unsigned char>(color.alpha())};
        UnpackState unpack;
        AutoBinder binder(texture.data());
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, texel);
        setFilterAndWrap(GL_TEXTURE_2D, GL_NEAREST, GL_NEAREST, GL_CLAMP_TO_EDGE);
    }
    return texture.data();
}

Texture *TextureManager::loadTexture(const QString &path, const TextureLoadOptions &options)
{
    if (path.isEmpty() || !currentContextHandle())
        return nullptr;
    for (const LoadedTexture &loaded : m_loaded) {
        if (loaded.path == path && loaded.options == options)
            return loaded.texture.get();
    }
    const GLenum internalFormat = internalFormatOf(TextureFormat(options.format));
    if (!internalFormat || isDepthFormat(internalFormat)) {
        KVZ_WARNING(QStringLiteral("Cannot load the image '%1': %2 is no colour format of the texture pool")
                        .arg(path)
                        .arg(options.format));
        return nullptr;
    }
    QImageReader reader(path);
    QImage image = reader.read();
    if (image.isNull()) {
        const QString message = QStringLiteral("Cannot load the image '%1': %2").arg(path, reader.errorString());
        // Passes ask in each frame.
        if (m_reported.value(path) != message)
            KVZ_WARNING(message);
        m_reported.insert(path, message);
        return nullptr;
    }
    GLint limit = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &limit);
    if (options.maximumSize > 0)
        limit = qMin(limit, options.maximumSize);
    if (image.width() > limit || image.height() > limit)
        image = image.scaled(limit, limit, Qt::KeepAspectRatio, Qt::SmoothTransformation);

    auto texture =
        std::make_unique<Texture>(GL_TEXTURE_2D, int(internalFormat), image.width(), image.height(), 0, nullptr);
    const QVector<float> channels = channelsOf(image, options);
    UnpackState unpack;
    AutoBinder binder(texture.get());
    glTexImage2D(GL_TEXTURE_2D, 0, GLint(internalFormat), image.width(), image.height(), 0, GL_RGBA, GL_FLOAT,
        channels.constData());
    const GLint magFilter = options.linearFilter ? GL_LINEAR : GL_NEAREST;
    const GLint mipFilter = options.linearFilter ? GL_LINEAR_MIPMAP_LINEAR : GL_NEAREST_MIPMAP_NEAREST;
    setFilterAndWrap(GL_TEXTURE_2D, options.mipMaps ? mipFilter : magFilter, magFilter,
        options.repeat ? GL_REPEAT : GL_CLAMP_TO_EDGE);
    if (options.mipMaps)
        glGenerateMipmap(GL_TEXTURE_2D);
    m_reported.remove(path);
    m_loaded.push_back({path, options, std::move(texture)});
    return m_loaded.back().texture.get();
}

void TextureManager::bindTextures(ShaderProgram *)
{
    if (!currentContextHandle())
        return;
    if (!m_managedUnits)
        m_managedUnits = std::make_unique<ManagedTextureUnits>();
    ManagedTextures *const bound = ManagedTextures::bound();
    m_managedUnits->bind(bound ? *bound : managed());
}

void TextureManager::unbindTextures(ShaderProgram *)
{
    if (m_managedUnits && currentContextHandle())
        m_managedUnits->unbind();
}

int TextureManager::addManagedTexture(const QImage &image, ImageUse use)
{
    return currentContextHandle() ? managed().add({image, use, false, QString()}) : 0;
}

void TextureManager::releaseManagedTexture(int handle)
{
    if (m_managed)
        m_managed->release(handle);
}

ManagedTextures &TextureManager::managed()
{
    if (!m_managed)
        m_managed = std::make_unique<ManagedTextures>();
    return *m_managed;
}

TextureManager::PoolStatistics TextureManager::poolStatistics() const
{
    PoolStatistics statistics;
    const QVector<PooledTexture> textures = pooledTextures();
    for (const PooledTexture &texture : textures) {
        statistics.bytes += texture.bytes;
        statistics.references += texture.references;
        ++(texture.references > 0 ? statistics.live : statistics.free);
    }
    return statistics;
}

QVector<TextureManager::PooledTexture> TextureManager::pooledTextures() const
{
    QVector<PooledTexture> textures;
    textures.reserve(int(m_pool.size()));
    for (const Entry &entry : m_pool) {
        const qint64 texels = qint64(entry.width) * entry.height * entry.depth * entry.samples;
        textures.append({entry.texture.get(), entry.format, entry.width, entry.height, entry.depth, entry.samples,
            entry.references, texels * bytesPerTexel(internalFormatOf(entry.format)), entry.holder});
    }
    return textures;
}

int TextureManager::tempTextureRefs(const Texture *texture) const
{
    const Entry *const entry = findEntry(texture);
    return entry ? entry->references : -1;
}

void TextureManager::setHolderLabel(const QString &label)
{
    m_holderLabel = label;
}

} // namespace Velmora::Kvz
