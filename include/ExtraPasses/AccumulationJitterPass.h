// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSize>
#include <QtGui/QMatrix4x4>

namespace Velmora::Kvz {

/// Shifts the projection so that the frames which AccumulationRenderPass averages are sampled evenly over each pixel. It draws
/// nothing and needs no context.
///
/// | Input | Name                            | Type       | Default | Null means                                      |
/// |-------|---------------------------------|------------|---------|-------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels: no shift                         |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity; the projection without jitter     |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix     | QMatrix4x4 | invalid | the identity                                    |
/// | 3     | Kvz_int_AccumulatedFrames       | int        | 32      | 32; after so many frames the sequence repeats   |
/// | 4     | Kvz_bool_Restart                | bool       | false   | false; true: the sequence begins with this frame |
///
/// | Output | Name                            | Value                                                                 |
/// |--------|---------------------------------|-----------------------------------------------------------------------|
/// | 0      | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4, the projection with the image shifted                     |
/// | 1      | Kvz_int_JitterIndex             | The number of the frame in the sequence, from 0 up.                   |
/// | 2      | Kvz_Vector2D_JitterAmount       | QVector2D, the shift in normalised device units: a pixel is 2 / width |
///
/// The first frame is not shifted: a still with one sample is that of the camera. The others follow the additive sequence of the
/// plastic number, whose first N points cover the pixel evenly for any N. It begins anew when the viewport, the projection or the
/// camera changes, as AccumulationRenderPass does.
///
/// Source: M. Roberts, "The Unreasonable Effectiveness of Quasirandom Sequences" (2018), sequence R2.
class KVZ_EXTRAPASSES_EXPORT AccumulationJitterPass : public RenderPassProxy
{
public:
    enum Input { Viewport, ProjectionMatrix, CameraMatrix, AccumulatedFrames, Restart };
    enum Output { ProjectionMatrixOut, JitterIndex, JitterAmount };

    AccumulationJitterPass();
    ~AccumulationJitterPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    QMatrix4x4 m_projection; ///< Of the last frame, like the next two.
    QMatrix4x4 m_camera;
    QSize m_size;
    int m_next = 0; ///< The number that the next frame has when nothing changes.
};

} // namespace Velmora::Kvz
