// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Bindable.h>
#include <GL/BufferObject.h>
#include <GL/Texture.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QString>

namespace Velmora::Kvz {

/// A buffer that shaders read as texels, under a sampler name with a fixed texture unit: binding it needs no program.
class KVZ_GL_EXPORT BufferTexture : public Bindable
{
public:
    /// `sampler` is the name in GLSL, reserved through FixedTextureUnits; `internalFormat` is what a texel holds, such as
    /// GL_RGBA32F or GL_R32UI.
    BufferTexture(const QString &sampler, unsigned int internalFormat);
    /// Shares the content of another buffer texture under a second sampler: an upload to either shows in both.
    BufferTexture(const QString &sampler, const BufferTexture &content);
    ~BufferTexture() override;

    /// Replaces the content. An empty content is kept as one zero texel, so that it can be bound.
    void upload(const void *data, long size);
    /// Replaces bytes within the content.
    void uploadRange(const void *data, long offset, long size);
    BufferObject *buffer();
    long size() const;

    /// Binds to the sampler's unit and leaves the active unit alone.
    void bind() override;
    void unbind() override;

    /// Texels that a buffer texture can hold in the current context.
    static int maximumTexels();

private:
    struct Content
    {
        unsigned int internalFormat = 0;
        BufferObject buffer;
        Texture texture;
        bool attached = false;
    };

    QString m_sampler;
    QSharedPointer<Content> m_content;
    QVarLengthArray<int, 2> m_saved;
};

} // namespace Velmora::Kvz
