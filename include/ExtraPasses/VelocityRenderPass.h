// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QHash>
#include <QtCore/QPointer>
#include <QtCore/QSharedPointer>
#include <QtCore/QSize>
#include <QtGui/QMatrix4x4>

#include <array>
#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class GPUModel;
class ShaderProgram;
class Texture;

/// Writes how far each pixel moved on the screen since the frame that the pass last saw: what a temporal filter follows to find
/// a surface in that frame. The motion of the camera comes from the depth image and both frames' matrices; items of the model that
/// moved are drawn once more, with their previous matrices.
///
/// | Input | Name                            | Type       | Default | Null means                                          |
/// |-------|---------------------------------|------------|---------|-----------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels                                       |
/// | 1     | Kvz_KvzTexture*_Depth           | Texture*   | invalid | no result: the output is empty                      |
/// | 2     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity; the one that drew the depth image     |
/// | 3     | Kvz_QMatrix4x4_CameraMatrix     | QMatrix4x4 | invalid | the identity                                        |
/// | 4     | Kvz_KvzGPUModel*_Geometry       | GPUModel*  | invalid | nothing moves but the camera                        |
///
/// | Output | Name                     | Value                                                                    |
/// |--------|--------------------------|--------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Velocity | A pooled GL_RGBA16F texture of the viewport's size: the motion in r, g.  |
///
/// The motion is the current position minus the previous one, in texture coordinates: 1 is the whole width or height, y upwards.
/// With a jittered projection it includes the change of the jitter, as SMAARenderPass takes it when it has the jitter's
/// amount. Pixels without a surface move with the far plane. Where a point was behind the previous camera, the motion is (1, 1).
/// In the first frame nothing moves, and neither do the items of a model that was not there in the last one.
///
/// A frame in which the pass is skipped or has no depth is not seen. The motion of items in it is kept, so that the
/// next motion of items and camera alike is measured from the last frame that was seen. A frame in which the pass is
/// neither started nor skipped must not end with GPUModel::advanceFrame(), or that motion of items is lost.
///
/// A depth image of several samples is read at its first one. Depth test, blending,
/// culling, scissor and stencil test are off afterwards, and colours are written.
class KVZ_EXTRAPASSES_EXPORT VelocityRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, Depth, ProjectionMatrix, CameraMatrix, Geometry };
    enum Output { Velocity };

    VelocityRenderPass();
    ~VelocityRenderPass() override;

    void start(RenderCallbacks *callbacks) override;
    void skip(RenderCallbacks *callbacks) override;

    /// Forgets the frames that it has seen: nothing moves in the next one.
    void forgetPast();

private:
    bool wasSeen(const GPUModel *model) const;
    void rememberMotion(const GPUModel *model);
    void drawCameraMotion(Texture *depth, bool isMultisampled);
    void drawMovedItems(GPUModel *model, Texture *depth, bool isMultisampled, const QSize &size);
    void drawItemsFromLastSeen(GPUModel *model, ShaderProgram *program);

    QSharedPointer<DrawBuffers> m_screenQuad;
    std::array<std::unique_ptr<ShaderProgram>, 2> m_itemPrograms;
    std::array<std::unique_ptr<ShaderProgram>, 2> m_cameraPrograms; ///< For depth of one sample and of several.
    std::unique_ptr<FramebufferObject> m_framebuffer;
    QMatrix4x4 m_projection;
    QMatrix4x4 m_camera;
    QMatrix4x4 m_previousProjection;
    QMatrix4x4 m_previousCamera;
    bool m_hasPrevious = false;
    QPointer<DrawBuffers> m_seenGeometry; ///< Of the model in the last frame that was seen.
    QHash<int, QMatrix4x4> m_lastSeen; ///< Matrices then of the items that moved in frames that were not seen.
};

} // namespace Velmora::Kvz
