// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

namespace Velmora::Kvz {

/// Shifts the projection so that a frame of one sample for each pixel is sampled where mode T2x of SMAARenderPass takes it to
/// be: at (0.75, 0.75) of each pixel at index 0, at (0.25, 0.25) at index 1. The index comes from CameraJitterPass, whose own
/// offsets lie on other diagonals or half a pixel beside these. It draws nothing and needs no context.
///
/// | Input | Name                            | Type       | Default | Null means                                      |
/// |-------|---------------------------------|------------|---------|-------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels, which gives no usable projection |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity; the projection without jitter     |
/// | 2     | Kvz_int_JitterIndex             | int        | invalid | no shift                                        |
///
/// | Output | Name                            | Value                                                                 |
/// |--------|---------------------------------|-----------------------------------------------------------------------|
/// | 0      | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4, the projection with the image shifted                     |
/// | 1      | Kvz_Vector2D_JitterAmount       | QVector2D, the shift in normalised device units: a pixel is 2 / width |
class KVZ_EXTRAPASSES_EXPORT SubsampleJitterPass : public RenderPassProxy
{
public:
    enum Input { Viewport, ProjectionMatrix, JitterIndex };
    enum Output { ProjectionMatrixOut, JitterAmount };

    SubsampleJitterPass();
    ~SubsampleJitterPass() override;

    void start(RenderCallbacks *callbacks) override;
};

} // namespace Velmora::Kvz
