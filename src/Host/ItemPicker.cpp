// SPDX-License-Identifier: MIT
#include <Host/ItemPicker.h>

#include "PackState.h"

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

/// What is copied into the buffer.
struct Texels
{
    quint32 item = 0;
    quint32 triangle = 0;
    float depth = 1;
};

/// Copies a texel, counted from the lower left, of what is at an attachment to a place of the bound pack buffer.
void copyTexel(Texture *texture, GLenum attachment, const QPoint &texel, GLenum format, GLenum type, size_t offset)
{
    FramebufferObject framebuffer;
    const AutoBinder binder(&framebuffer);
    framebuffer.attach(texture, attachment, 0);
    const bool isColour = attachment == GL_COLOR_ATTACHMENT0;
    glDrawBuffer(isColour ? attachment : GL_NONE);
    glReadBuffer(isColour ? attachment : GL_NONE);
    glReadPixels(texel.x(), texel.y(), 1, 1, format, type, reinterpret_cast<void *>(offset));
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

struct ItemPicker::Private
{
    std::unique_ptr<BufferObject> buffer;
    GLsync copied = nullptr; ///< Null: nothing is pending.
    GLObject owner{GLObject::Sharing::ShareGroup}; ///< Of the sync object.

    ~Private() { forget(); }
    bool isAnswerable() const { return copied && owner.isKnownToCurrentContext(); }
    void forget();
    std::optional<PickedItem> answer();
};

/// Drops the request, if there is one.
void ItemPicker::Private::forget()
{
    if (isAnswerable())
        glDeleteSync(copied);
    copied = nullptr;
}

std::optional<PickedItem> ItemPicker::Private::answer()
{
    forget();
    Texels texels;
    if (const void *const bytes = buffer->map(GL_READ_ONLY)) {
        std::memcpy(&texels, bytes, sizeof texels);
        buffer->unmap();
    }
    if (texels.item == 0)
        return PickedItem();
    return PickedItem{int(texels.item) - 1, int(texels.triangle), texels.depth};
}

ItemPicker::ItemPicker()
    : d(std::make_unique<Private>())
{ }

ItemPicker::~ItemPicker() = default;

bool ItemPicker::request(Texture *ids, Texture *depth, const QPoint &pixel)
{
    if (d->isAnswerable() || !isOfKind(ids, isItemIds))
        return false;
    const QSize size = sizeOf(ids);
    if (!QRect(QPoint(), size).contains(pixel))
        return false;

    d->forget(); // What was asked for in a context that is gone.
    if (!d->buffer || !d->owner.isKnownToCurrentContext()) {
        d->buffer = std::make_unique<BufferObject>();
        d->buffer->setTarget(GL_PIXEL_PACK_BUFFER);
    }
    const Texels nothing;
    d->buffer->uploadBytes(&nothing, sizeof nothing, GL_STREAM_READ);
    const PackState pack(d->buffer->getBO());
    const QPoint texel(pixel.x(), size.height() - 1 - pixel.y());
    copyTexel(ids, GL_COLOR_ATTACHMENT0, texel, GL_RG_INTEGER, GL_UNSIGNED_INT, offsetof(Texels, item));
    if (isOfKind(depth, isDepthFormat) && sizeOf(depth) == size)
        copyTexel(depth, GL_DEPTH_ATTACHMENT, texel, GL_DEPTH_COMPONENT, GL_FLOAT, offsetof(Texels, depth));
    d->owner.claim();
    d->copied = glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
    return isPending();
}

bool ItemPicker::isPending() const
{
    return d->copied;
}

std::optional<PickedItem> ItemPicker::take()
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

std::optional<PickedItem> ItemPicker::wait()
{
    if (!d->isAnswerable()) {
        d->forget();
        return std::nullopt;
    }
    return d->answer(); // Reading the buffer waits for what is written into it.
}

} // namespace Velmora::Kvz
