// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

namespace Velmora::Kvz {

/// Marks which items of a model the passes after it draw, and passes the model on. It draws nothing.
///
/// | Input | Name                                | Type       | Default | Null means                                         |
/// |-------|-------------------------------------|------------|---------|----------------------------------------------------|
/// | 0     | Kvz_bool_FrustumCullingEnabledIn    | bool       | invalid | false                                              |
/// | 1     | Kvz_bool_VisibilityCullingEnabledIn | bool       | invalid | false                                              |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix         | QMatrix4x4 | invalid | the identity; it takes world space to camera space |
/// | 3     | Kvz_QMatrix4x4_ProjectionMatrix     | QMatrix4x4 | invalid | the identity                                       |
/// | 4     | Kvz_KvzGPUModel*_Geometry           | GPUModel*  | invalid | nothing is marked, and null is passed on           |
///
/// | Output | Name                      | Value           |
/// |--------|---------------------------|-----------------|
/// | 0      | Kvz_KvzGPUModel*_Geometry | The input model |
///
/// With either flag set, all marks of the model are removed first. Visibility culling then marks what the frame before
/// found hidden, and frustum culling what lies outside the camera's view; an item is drawn when both keep it. With neither
/// flag set, the marks stay as they are: a host that turns both off calls GPUModel::resetCulling() once.
class KVZ_RENDERPASSES_EXPORT CullingRenderPass : public RenderPassProxy
{
public:
    enum Input { FrustumCullingEnabled, VisibilityCullingEnabled, CameraMatrix, ProjectionMatrix, Geometry };
    enum Output { GeometryOut };

    CullingRenderPass();
    ~CullingRenderPass() override;

    void start(RenderCallbacks *callbacks) override;
};

} // namespace Velmora::Kvz
