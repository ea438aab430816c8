// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;

/// Turns a depth image into camera-space positions, for passes that measure distances in the scene. The projection can be
/// any that has an inverse: perspective, orthographic, off axis.
///
/// | Input | Name                            | Type       | Default | Null means                                               |
/// |-------|---------------------------------|------------|---------|----------------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels; only width and height count               |
/// | 1     | Kvz_KvzTexture*_Depth           | Texture*   | invalid | not allowed: the positions are those of depth 0          |
/// | 2     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity; the projection that wrote the depth        |
/// | 3     | Kvz_int_NumberMultisamples      | int        | invalid | 0; samples of the result, which is a plain image up to 1 |
///
/// | Output | Name                  | Value                                                                                |
/// |--------|-----------------------|--------------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame | A pooled GL_RGBA32F texture of the viewport's size: x, y, z in camera space, in units of the scene, and 1. The camera looks along -z. |
///
/// Where nothing was drawn, at a depth of 1, stands the point on the far plane. Of a multisampled depth image sample 0 is
/// read, at the pixel; a plain one is stretched over the viewport. The first frame decides for good which of the two. The
/// samples of the result do not depend on those of the depth.
///
/// Depth writes and the stencil test are off afterwards; the depth test stays as it is.
class KVZ_RENDERPASSES_EXPORT CameraSpaceZBufferRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, Depth, ProjectionMatrix, NumberMultisamples };
    enum Output { Frame };

    CameraSpaceZBufferRenderPass();
    ~CameraSpaceZBufferRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<ShaderProgram> m_program; ///< For the kind of depth image of the first frame.
    std::unique_ptr<FramebufferObject> m_framebuffer;
};

} // namespace Velmora::Kvz
