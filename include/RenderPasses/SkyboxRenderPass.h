// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;
class Texture;

/// Fills what no geometry covers with surroundings: a cube map, a latitude-longitude panorama or a flat image.
///
/// | Input | Name                            | Type       | Default | Null means                                            |
/// |-------|---------------------------------|------------|---------|-------------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels                                         |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity                                          |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix     | QMatrix4x4 | invalid | the identity; it takes world space to camera space    |
/// | 3     | Kvz_KvzTexture*_Cubemap         | Texture*   | invalid | no cube map                                           |
/// | 4     | Kvz_KvzTexture*_LatLongMap      | Texture*   | invalid | no panorama; `directionToLatLong_Tavo` says how it lies |
/// | 5     | Kvz_KvzTexture*_Background      | Texture*   | invalid | no flat image; row 0 is its top row, and it is gamma-encoded |
/// | 6     | Kvz_KvzTexture*_Frame           | Texture*   | invalid | a new frame, cleared to opaque black                  |
/// | 7     | Kvz_KvzTexture*_Depth           | Texture*   | invalid | no stencil: the frame's alpha decides                 |
/// | 8     | Kvz_bool_RenderInHDR            | bool       | true    | false: a new frame is GL_RGBA8, not GL_RGBA16F        |
///
/// | Output | Name                  | Value                                                     |
/// |--------|-----------------------|-----------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame | The frame that came in, drawn into, or a new pooled one   |
///
/// Which pixels the surroundings take:
///
/// | Frame | Depth | Where                                                                                       |
/// |-------|-------|---------------------------------------------------------------------------------------------|
/// | any   | given | where its stencil is 0; the pixel is replaced                                               |
/// | given | null  | under what is there: colour x (1 - the frame's alpha) is added, alpha becomes the larger one |
/// | null  | null  | everywhere                                                                                  |
///
/// Of several sources the flat image takes precedence over the cube map, and that over the panorama. Without any, nothing is
/// drawn and nothing cleared. The frame and the depth image should have the viewport's size; the flat image is stretched to
/// it. Surroundings are infinitely far: the camera's position has no effect. Cube maps need mip levels.
///
/// The pass sets filters and wrap modes of the source and leaves them, and the stencil test or blending off, the depth test
/// off, the stencil's write mask 0 where there was a depth image, the blend equation's alpha at GL_MAX where it blended.
///
/// The programs are built by setup(), without which nothing is drawn.
class KVZ_RENDERPASSES_EXPORT SkyboxRenderPass : public RenderPassProxy
{
public:
    enum Input {
        Viewport,
        ProjectionMatrix,
        CameraMatrix,
        Cubemap,
        LatLongMap,
        Background,
        SourceFrame,
        Depth,
        RenderInHDR
    };
    enum Output { Frame };

    SkyboxRenderPass();
    ~SkyboxRenderPass() override;

    void setup(RenderCallbacks *callbacks) override;
    void start(RenderCallbacks *callbacks) override;

    /// Makes the framebuffer and the quad, in place of those that exist; start() calls it for its first frame and after
    /// release().
    void init();
    /// Deletes the framebuffer and drops the quad; start() calls it when the viewport changes its size. What is attached is
    /// detached and not given back. Without a framebuffer it does nothing.
    void release();

private:
    void draw(Texture *cubemap, Texture *latLongMap, Texture *background, bool hasFrame, bool hasDepth);

    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<FramebufferObject> m_framebuffer;
    std::unique_ptr<ShaderProgram> m_backgroundProgram;
    std::unique_ptr<ShaderProgram> m_latLongProgram;
    std::unique_ptr<ShaderProgram> m_cubemapProgram;
    int m_width = 0;
    int m_height = 0;
};

} // namespace Velmora::Kvz
