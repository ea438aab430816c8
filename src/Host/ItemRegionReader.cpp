// SPDX-License-Identifier: MIT
#include <Host/ItemRegionReader.h>

#include <Host/PackState.h>

#include <GL/AutoBinder.h>
#include <GL/BufferObject.h>
#include <GL/FramebufferObject.h>
#include <GL/InternalFormat.h>
#include <GL/Texture.h>

#include <QtCore/QRect>

#include <GL/TrackedGL.h>

#include <cstring>

namespace Velmora::Kvz {

namespace {

/// Copies an area, counted from the lower left, of what is at an attachment to a place of the bound pack buffer.
void copyTexels(Texture *texture, GLenum attachment, const QRect &area, GLenum format, GLenum type, size_t offset)
{
    FramebufferObject framebuffer;
    const AutoBinder binder(&framebuffer);
    framebuffer.attach(texture, attachment, 0);
    const bool isColour = attachment == GL_COLOR_ATTACHMENT0;
    glDrawBuffer(isColour ? attachment : GL_NONE);
    glReadBuffer(isColour ? attachment : GL_NONE);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): OpenGL takes the offset as a pointer.
    glReadPixels(area.x(), area.y(), area.width(), area.height(), format, type, reinterpret_cast<void *>(offset));
}

bool isOfKind(const Texture *texture, bool (*isFormat)(unsigned int))
{
    return texture && texture->target() == GL_TEXTURE_2D && isFormat(unsigned(texture->internalFormat(0)));
}

QSize sizeOf(const Texture *texture)
{
    return QSize(texture->width(0), texture->height(0));
}

bool isItemIds(unsigned int internalFormat)
{
    return internalFormat == GL_RG32UI;
}

} // namespace

struct ItemRegionReader::Private
{
    std::unique_ptr<BufferObject> buffer;
    GLsync copied = nullptr; ///< Null: nothing is pending.
    GLObject owner{GLObject::Sharing::ShareGroup}; ///< Of the sync object.
    QRect area; ///< Of the request.
    bool hasDepth = false;

    ~Private() { forget(); }
    bool isAnswerable() const { return copied && owner.isKnownToCurrentContext(); }
    void forget();
    size_t texels() const { return size_t(area.width()) * size_t(area.height()); }
    std::optional<ItemRegion> answer();
};

/// Drops the request, if there is one.
void ItemRegionReader::Private::forget()
{
    if (isAnswerable())
        glDeleteSync(copied);
    copied = nullptr;
}

std::optional<ItemRegion> ItemRegionReader::Private::answer()
{
    forget();
    ItemRegion region;
    region.area = area;
    region.ids.resize(texels());
    region.depths.assign(texels(), 1.0f);
    if (const void *const bytes = buffer->map(GL_READ_ONLY)) {
        const size_t idBytes = texels() * sizeof(ItemRegion::Ids);
        std::memcpy(region.ids.data(), bytes, idBytes);
        if (hasDepth)
            std::memcpy(region.depths.data(), static_cast<const char *>(bytes) + idBytes, texels() * sizeof(float));
        buffer->unmap();
    }
    return region;
}

ItemRegionReader::ItemRegionReader()
    : d(std::make_unique<Private>())
{ }

ItemRegionReader::~ItemRegionReader() = default;

bool ItemRegionReader::request(Texture *ids, Texture *depth, const QRect &area)
{
    if (d->isAnswerable() || !isOfKind(ids, isItemIds))
        return false;
    const QSize size = sizeOf(ids);
    if (area.isEmpty() || !QRect(QPoint(), size).contains(area))
        return false;

    d->forget(); // What was asked for in a context that is gone.
    if (!d->buffer || !d->owner.isKnownToCurrentContext()) {
        d->buffer = std::make_unique<BufferObject>();
        d->buffer->setTarget(GL_PIXEL_PACK_BUFFER);
    }
    d->area = area;
    d->hasDepth = isOfKind(depth, isDepthFormat) && sizeOf(depth) == size;
    const size_t idBytes = d->texels() * sizeof(ItemRegion::Ids);
    d->buffer->uploadBytes(nullptr, long(idBytes + d->texels() * sizeof(float)), GL_STREAM_READ);
    const PackState pack(d->buffer->getBO());
    const QRect texels(QPoint(area.left(), size.height() - 1 - area.bottom()), area.size());
    copyTexels(ids, GL_COLOR_ATTACHMENT0, texels, GL_RG_INTEGER, GL_UNSIGNED_INT, 0);
    if (d->hasDepth)
        copyTexels(depth, GL_DEPTH_ATTACHMENT, texels, GL_DEPTH_COMPONENT, GL_FLOAT, idBytes);
    d->owner.claim();
    d->copied = glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
    return isPending();
}

bool ItemRegionReader::isPending() const
{
    return d->copied;
}

std::optional<ItemRegion> ItemRegionReader::take()
{
    if (!d->isAnswerable()) {
        d->forget();
        return std::nullopt;
    }
    // The flush has the copy begin, where nothing else does.
    if (glClientWaitSync(d->copied, GL_SYNC_FLUSH_COMMANDS_BIT, 0) == GL_TIMEOUT_EXPIRED)
        return std::nullopt;
    return d->answer();
}

std::optional<ItemRegion> ItemRegionReader::wait()
{
    if (!d->isAnswerable()) {
        d->forget();
        return std::nullopt;
    }
    return d->answer(); // Reading the buffer waits for what is written into it.
}

} // namespace Velmora::Kvz
