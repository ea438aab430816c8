// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSize>

#include <memory>

namespace Velmora::Kvz {

class SurfaceProgramVariants;
class TargetFramebuffer;

/// Draws a model into the images that LitDeferredRenderPass lights, with all that its materials say: vertex colours, images with
/// their own texture coordinates and wrap modes, masks, opacity, emission, and surfaces that are lit from both sides.
///
/// | Input | Name                            | Type       | Default | Null means     |
/// |-------|---------------------------------|------------|---------|----------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels  |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity   |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix     | QMatrix4x4 | invalid | the identity   |
/// | 3     | Kvz_KvzGPUModel*_Geometry       | GPUModel*  | invalid | cleared images |
///
/// | Output | Name                     | Value                                                                             |
/// |--------|--------------------------|-----------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Diffuse  | GL_RGBA8: base colour, clamped to 0 to 1, not multiplied by its opacity in alpha. |
/// | 1      | Kvz_KvzTexture*_Specular | GL_RGBA16F: specular colour, exponent in alpha.                                   |
/// | 2      | Kvz_KvzTexture*_Normal   | GL_RGBA16F: unit normal in camera space; number of the material, from 1 up, in alpha. |
/// | 3      | Kvz_KvzTexture*_Emission | GL_RGBA16F: light of the surface's own; in alpha 1 for unlit materials, else 0.   |
/// | 4      | Kvz_KvzTexture*_Depth    | GL_DEPTH_COMPONENT32F.                                                            |
/// | 5      | Kvz_KvzTexture*_Id       | GL_R32F: number of the triangle within its item, from 1 up; 0 for none.           |
///
/// Normals are turned to the visible side if the material is lit from both sides. Where nothing is, all images but
/// depth are zero. With setOpaqueOnly() the items with GPUModel::Transparent are left out, for chains that draw these
/// separately. The textures are the pass's own, of the viewport's size, and the next frame overwrites them; with an
/// empty viewport the outputs are empty. The depth test is off afterwards.
class KVZ_EXTRAPASSES_EXPORT SurfaceRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, ProjectionMatrix, CameraMatrix, Geometry };
    enum Output { Diffuse, Specular, Normal, Emission, Depth, Id };

    SurfaceRenderPass();
    ~SurfaceRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

    /// Whether items with GPUModel::Transparent are left out; false unless set.
    void setOpaqueOnly(bool isOpaqueOnly);
    /// Whether images are left out that a chain can do without, their outputs null: Id, and Emission while no item of the model emits
    /// light or is unlit. False unless set; a change makes all images anew.
    void setSparse(bool isSparse);

private:
    void resizeTargets(const QSize &size);

    std::unique_ptr<SurfaceProgramVariants> m_programs;
    std::unique_ptr<TargetFramebuffer> m_framebuffer;
    QSize m_size;
    bool m_isOpaqueOnly = false;
    bool m_isSparse = false;
    bool m_hasEmission = true; ///< Of the images as they are.
};

} // namespace Velmora::Kvz
