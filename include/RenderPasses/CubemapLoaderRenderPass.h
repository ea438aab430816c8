// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QString>

#include <array>
#include <map>
#include <memory>

namespace Velmora::Kvz {

class Texture;

/// Builds a cube map from six image files, and publishes it in every frame. Each cube map that was built is kept, so going
/// back to an earlier set of paths reads no file. The frame that brings a new path reads all six files, on the thread of
/// start().
///
/// | Input | Name                        | Type    | Default | Null means                                     |
/// |-------|-----------------------------|---------|---------|------------------------------------------------|
/// | 0     | Kvz_QString_CubemapPathPosX | QString | invalid | the empty path; the file of the face towards +x |
/// | 1     | Kvz_QString_CubemapPathNegX | QString | invalid | the empty path; towards -x                      |
/// | 2     | Kvz_QString_CubemapPathPosY | QString | invalid | the empty path; towards +y                      |
/// | 3     | Kvz_QString_CubemapPathNegY | QString | invalid | the empty path; towards -y                      |
/// | 4     | Kvz_QString_CubemapPathPosZ | QString | invalid | the empty path; towards +z                      |
/// | 5     | Kvz_QString_CubemapPathNegZ | QString | invalid | the empty path; towards -z                      |
///
/// | Output | Name                    | Value                                                                             |
/// |--------|-------------------------|-----------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Cubemap | A GL_TEXTURE_CUBE_MAP of format GL_RGBA, linear filters, clamped to its edges, with mip levels |
///
/// The textures are the pass's own, not counted, deleted with the pass. There is no limit to how many it keeps.
///
/// The rows of a file go to its face as they are, the top row first, which is how OpenGL lays out cube maps: looking along
/// -z with +y up, a face's top row is up, and its columns run from right to left, since faces are pictures of the outside of
/// the cube. The top row of the face towards +y lies at -z, that of the face towards -y at +z.
///
/// A face whose path is no file, or no image, is one transparent black texel, and nothing is logged. OpenGL samples a cube
/// map only when its six faces are squares of one size, else it gives black; the pass does not check.
///
/// The bits go to GL as QImage holds them, as GL_BGRA bytes, so images of 32 bits for each pixel come out right. For an
/// image with fewer bits GL refuses the face with GL_INVALID_OPERATION.
class KVZ_RENDERPASSES_EXPORT CubemapLoaderRenderPass : public RenderPassProxy
{
public:
    enum Input { PathPosX, PathNegX, PathPosY, PathNegY, PathPosZ, PathNegZ };
    enum Output { Cubemap };

    CubemapLoaderRenderPass();
    ~CubemapLoaderRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    static constexpr int faceCount = 6;
    using Paths = std::array<QString, faceCount>; ///< In the order of the inputs.

    static QString keyOf(const Paths &paths);
    std::unique_ptr<Texture> build() const;

    std::map<QString, std::unique_ptr<Texture>> m_cubemaps; ///< All that were built, by keyOf() their paths.
    Texture *m_texture = nullptr; ///< That of m_paths.
    Paths m_paths;
};

} // namespace Velmora::Kvz
