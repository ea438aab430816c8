// SPDX-License-Identifier: MIT
#pragma once

#include "Image.h"

#include <GL/AutoBinder.h>
#include <GL/TextureManager.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

/// Textures of the pool that a test holds; all references are given back at the end.
class PooledTextures
{
public:
    PooledTextures() = default;
    PooledTextures(const PooledTextures &) = delete;
    PooledTextures &operator=(const PooledTextures &) = delete;
    ~PooledTextures()
    {
        for (Texture *texture : qAsConst(m_textures))
            TextureManager::Instance()->releaseTempTextureRef(texture, references(texture));
    }

    /// A texture with this many references in total.
    Texture *take(TextureFormat format, int width, int height, int references, int samples = 1)
    {
        Texture *const texture = TextureManager::Instance()->tempTexture(format, width, height, 1, samples);
        TextureManager::Instance()->addTempTextureRef(texture, references - 1);
        m_textures.append(texture);
        return texture;
    }
    /// A single-sample texture with the image as content and nearest filters.
    Texture *take(TextureFormat format, const Image &image, int references)
    {
        Texture *const texture = take(format, image.width, image.height, references);
        AutoBinder binder(texture);
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, image.width, image.height,
            image.channels == 1 ? GL_DEPTH_COMPONENT : GL_RGBA, GL_FLOAT, image.data.constData());
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        return texture;
    }
    /// The references of a texture, including those of the test.
    static int references(const Texture *texture) { return TextureManager::Instance()->tempTextureRefs(texture); }
    /// The references of all textures of the pool.
    static int allReferences() { return TextureManager::Instance()->poolStatistics().references; }

private:
    QVector<Texture *> m_textures;
};

} // namespace Velmora::Kvz
