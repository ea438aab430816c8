// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QString>

#include <memory>

namespace Velmora::Kvz {

class Texture;

/// Loads an image file into a texture, and publishes that in every frame. The frame that brings a new path reads the file,
/// on the thread of start().
///
/// | Input | Name                     | Type    | Default | Null means                                                       |
/// |-------|--------------------------|---------|---------|------------------------------------------------------------------|
/// | 0     | Kvz_QString_TexturePath  | QString | invalid | the empty path; a file's path, in the resources with ":/" in front |
///
/// | Output | Name                    | Value                                                                           |
/// |--------|-------------------------|---------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Texture | A GL_TEXTURE_2D of format GL_RGBA with the image's size and all mip levels, row 0 its bottom row |
///
/// The texture is the pass's own, one object for all paths, read-only, not counted, deleted with the pass. It has no storage
/// until a path is set. Its filters and wrap modes are those of a new GL texture until a consumer sets others.
///
/// A path that is no file, or no image, gives one opaque white texel, and nothing is logged. A path is tried once: changes on disk
/// are not noticed until another path has been set in between.
///
/// The bits go to GL as QImage holds them, as GL_BGRA bytes, so images of 32 bits for each pixel come out right: colour PNGs
/// of 8 bits a channel, with alpha or without, and JPEGs. Others, such as grey and indexed images and those of 16 bits a
/// channel, come out scrambled; where they have too few bits, the rest is zeros. One that would need 2 GiB with these zeros
/// counts as no image.
class KVZ_RENDERPASSES_EXPORT TextureLoaderRenderPass : public RenderPassProxy
{
public:
    enum Input { TexturePath };
    enum Output { LoadedTexture };

    TextureLoaderRenderPass();
    ~TextureLoaderRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    void load(const QString &path);

    std::unique_ptr<Texture> m_texture;
    QString m_path; ///< The path loaded last.
};

} // namespace Velmora::Kvz
