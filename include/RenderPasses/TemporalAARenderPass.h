// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QSize>
#include <QtGui/QMatrix4x4>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;
class Texture;

/// Refines a still image: the running mean of the frames since camera, projection or size last changed, kept in one texture.
/// Jittered frames average out into an anti-aliased image. Nothing is reprojected: any change of view starts over.
///
/// | Input | Name                            | Type       | Default | Null means                                      |
/// |-------|---------------------------------|------------|---------|-------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels                                   |
/// | 1     | Kvz_KvzTexture*_Frame           | Texture*   | invalid | a black result; null with ResetTemporal         |
/// | 2     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity; the projection without jitter     |
/// | 3     | Kvz_QMatrix4x4_CameraMatrix     | QMatrix4x4 | invalid | the identity                                    |
/// | 4     | Kvz_bool_ResetTemporal          | bool       | true    | false                                           |
/// | 5     | Kvz_Float_ViewportScale         | float      | 1.0     | 0                                               |
/// | 6     | Kvz_Bool_ViewportScale_Enable   | bool       | true    | false: the scale is 1                           |
///
/// | Output | Name                  | Value                                                                              |
/// |--------|-----------------------|------------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame | The mean, GL_RGBA8, viewport / scale pixels; the input with Kvz_bool_ResetTemporal |
///
/// While Kvz_bool_ResetTemporal is true the frame passes through, and that is the port's default. The first frame after a
/// change is drawn as it is, the second replaces it, and the mean is of the second and those after it. It never ends, but in 8
/// bits later frames no longer show.
///
/// The texture comes from the pool and stays with the pass, which draws into it in the next frame: it goes out with fresh
/// references each time. Depth test and blending are off afterwards, depth writes on.
class KVZ_RENDERPASSES_EXPORT TemporalAARenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, Frame, ProjectionMatrix, CameraMatrix, ResetTemporal, ViewportScale, ViewportScaleEnable };
    enum Output { FrameOut };

    TemporalAARenderPass();
    ~TemporalAARenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    void passThrough(Texture *frame);
    /// Takes an accumulation texture of the present size when there is none of it. The framebuffer is unbound afterwards.
    void ensureAccumulation(bool isResized);
    void restartMean();
    void continueMean();
    void drawFrame(Texture *frame);

    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<FramebufferObject> m_framebuffer; ///< Holds the accumulation texture between frames.
    QMatrix4x4 m_previousProjection;
    QMatrix4x4 m_previousCamera;
    QSize m_size{0, 0}; ///< Of the accumulation texture.
    int m_frameCount = 0; ///< Frames in the mean, less one.
};

} // namespace Velmora::Kvz
