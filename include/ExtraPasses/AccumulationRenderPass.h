// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
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

/// Refines a still picture: the mean of the frames since the view last changed, in full floats, until there are as many as asked
/// for. Then the picture is done, and stays.
///
/// | Input | Name                            | Type       | Default | Null means                                          |
/// |-------|---------------------------------|------------|---------|-----------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels                                       |
/// | 1     | Kvz_KvzTexture*_Frame           | Texture*   | invalid | the mean stays as it is                             |
/// | 2     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity; the projection without jitter         |
/// | 3     | Kvz_QMatrix4x4_CameraMatrix     | QMatrix4x4 | invalid | the identity                                        |
/// | 4     | Kvz_int_AccumulatedFrames       | int        | 32      | 32; below 1 counts as 1                             |
/// | 5     | Kvz_bool_Restart                | bool       | false   | false; true: the mean begins with this frame        |
///
/// | Output | Name                      | Value                                                                              |
/// |--------|---------------------------|------------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame     | A pooled GL_RGBA32F texture of the viewport's size: the mean. Null before the first frame. |
/// | 1      | Kvz_int_FramesInMean      | How many frames are in it.                                                          |
/// | 2      | Kvz_bool_IsDone           | Whether they are as many as asked for.                                              |
///
/// All four channels are averaged alike, so frames must be multiplied by their alpha. AccumulationJitterPass gives each frame its
/// place in the pixel. The mean begins anew when the viewport, the projection or the camera changes, and where a chain says that
/// what is seen has changed. Each frame has the same weight, to the precision of 24 bits. A frame of another size is stretched.
/// The pass keeps the texture that it hands on.
class KVZ_EXTRAPASSES_EXPORT AccumulationRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, FrameIn, ProjectionMatrix, CameraMatrix, AccumulatedFrames, Restart };
    enum Output { Frame, FramesInMean, IsDone };

    AccumulationRenderPass();
    ~AccumulationRenderPass() override;

    void start(RenderCallbacks *callbacks) override;
    void teardownContextData(RenderCallbacks *callbacks) override;

private:
    void add(Texture *frame);

    QMatrix4x4 m_projection; ///< Of the last frame, like the next two.
    QMatrix4x4 m_camera;
    QSize m_size;
    int m_frames = 0; ///< In the mean.
    Texture *m_mean = nullptr; ///< Holds one reference.
    std::unique_ptr<FramebufferObject> m_framebuffer;
    std::unique_ptr<ShaderProgram> m_program;
    QSharedPointer<DrawBuffers> m_screenQuad;
};

} // namespace Velmora::Kvz
