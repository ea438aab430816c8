// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QVector>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector2D>

namespace Velmora::Kvz {

/// How the image moves from frame to frame; offsets in pixels, x to the right, y upwards.
enum JitterMode : int {
    JitterOff = 0, ///< Not at all.
    JitterRandom = 1, ///< Four still frames after a reset, then at random by up to half a pixel.
    JitterAntiDiagonal = 2, ///< (0.25, -0.25) and (-0.25, 0.25) in turn.
    JitterDiagonal = 3 ///< (0.75, 0.75) and (0.25, 0.25) in turn.
};

/// Shifts the projection by a part of a pixel that differs from frame to frame, which gives temporal anti-aliasing new
/// samples. It draws nothing and needs no context. The passes that draw take its projection; those that compare the camera
/// with that of earlier frames take the one without jitter.
///
/// | Input | Name                            | Type       | Default | Null means                                      |
/// |-------|---------------------------------|------------|---------|-------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels, which gives no usable projection |
/// | 1     | Kvz_QMatrix4x4_CameraMatrix     | QMatrix4x4 | invalid | the identity                                    |
/// | 2     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity                                    |
/// | 3     | Kvz_bool_ResetTemporal          | bool       | true    | false                                           |
/// | 4     | Kvz_int_JitterMode              | int        | 0       | JitterOff; the values of JitterMode             |
///
/// | Output | Name                            | Value                                                                 |
/// |--------|---------------------------------|-----------------------------------------------------------------------|
/// | 0      | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4, the projection with the image shifted                     |
/// | 1      | Kvz_int_JitterIndex             | int, 0 and 1 in turn, in every mode                                   |
/// | 2      | Kvz_Vector2D_JitterAmount       | QVector2D, the shift in normalised device units: a pixel is 2 / width |
///
/// The frame is a reset when Kvz_bool_ResetTemporal is true, and when the viewport's size or any element of the two
/// matrices differs from that of the latest reset. A reset restarts the still frames of JitterRandom and leaves the index
/// alone. The random numbers are drand48()'s, which a host may seed.
class KVZ_RENDERPASSES_EXPORT CameraJitterPass : public RenderPassProxy
{
public:
    enum Input { Viewport, CameraMatrix, ProjectionMatrix, ResetTemporal, Mode };
    enum Output { ProjectionMatrixOut, JitterIndex, JitterAmount };

    CameraJitterPass();
    ~CameraJitterPass() override;

    void start(RenderCallbacks *callbacks) override;

    /// The offset in pixels at the current index, once for each frame: JitterRandom counts its still frames by these calls.
    /// An unknown mode gives (0, 0) and a failed assertion in the log.
    QVector2D getJitter(JitterMode mode);

private:
    bool hasChanged(const QMatrix4x4 &camera, const QMatrix4x4 &projection, const QSize &size) const;

    QMatrix4x4 m_previousProjection;
    QMatrix4x4 m_previousCamera;
    QSize m_previousSize{0, 0};
    int m_stillFrames = 0;
    int m_jitterIndex = -1;
    QVector<QVector2D> m_offsets; ///< Read by nothing: getJitter() has the offsets of every mode.
};

} // namespace Velmora::Kvz
