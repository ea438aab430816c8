// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSize>

#include <memory>

namespace Velmora::Kvz {

class SurfaceProgramVariants;
class TargetFramebuffer;

/// Draws which item of a model, and which of its triangles, covers each pixel: for picking, and for masks of single items.
///
/// | Input | Name                            | Type       | Default | Null means     |
/// |-------|---------------------------------|------------|---------|----------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels  |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity   |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix     | QMatrix4x4 | invalid | the identity   |
/// | 3     | Kvz_KvzGPUModel*_Geometry       | GPUModel*  | invalid | cleared images |
///
/// | Output | Name                        | Value                                                                           |
/// |--------|-----------------------------|---------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_ItemId      | GL_RG32UI: number of the item plus 1 in red, 0 for none; number of the triangle within the item, from 0, in green. |
/// | 1      | Kvz_KvzTexture*_Depth       | GL_DEPTH_COMPONENT32F: window depth from 0 to 1, 1 for none.                    |
/// | 2      | Kvz_KvzTexture*_FalseColour | GL_RGBA8: a hue for each item, a shade for each triangle, alpha 1; zeros for none. Empty unless setFalseColours(). |
///
/// Items are numbered as in GPUModel: by what GPUModelBuilder::addItem() returned, which for an imported file is the index in
/// ImportedScene::items. The two numbers together are therefore unique within the model, even if items share a mesh.
///
/// Masks cut holes, through which the items behind are seen. Transparent items are drawn like opaque ones, whatever their opacity;
/// setOpaqueOnly() leaves out those with GPUModel::Transparent. Culled items are left out. Depths equal those of SurfaceRenderPass
/// with the same inputs. The textures are the pass's own, of the viewport's size, and the next frame overwrites them; with an empty
/// viewport the outputs are empty. The depth test is off afterwards.
class KVZ_EXTRAPASSES_EXPORT ItemIdRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, ProjectionMatrix, CameraMatrix, Geometry };
    enum Output { ItemId, Depth, FalseColour };

    ItemIdRenderPass();
    ~ItemIdRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

    /// Whether items with GPUModel::Transparent are left out, so that one picks through glass; false unless set.
    void setOpaqueOnly(bool isOpaqueOnly);
    /// Whether there is a false-colour image as well; false unless set. A change recreates the programs and the images.
    void setFalseColours(bool hasFalseColours);

private:
    void resizeTargets(const QSize &size);

    std::unique_ptr<SurfaceProgramVariants> m_programs;
    std::unique_ptr<TargetFramebuffer> m_framebuffer;
    QSize m_size;
    bool m_isOpaqueOnly = false;
    bool m_hasFalseColours = false;
};

} // namespace Velmora::Kvz
