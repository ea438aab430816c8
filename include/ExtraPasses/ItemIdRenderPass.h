// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSize>

#include <memory>

namespace Velmora::Kvz {

class SurfaceProgramVariants;
class TargetFramebuffer;

/// Draws which item of a model, and which triangle of it, covers each pixel: what picking reads under the pointer, and what tells
/// the items of a picture apart.
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
/// The number of an item is that of GPUModel: what GPUModelBuilder::addItem() returned, the index in ImportedScene::items. So the two
/// numbers together are unique over the model, also where items share a mesh.
///
/// Holes of masks are not there: they show what lies behind. Transparent items count like others, whatever their opacity, unless
/// setOpaqueOnly() leaves the items with GPUModel::Transparent out; culled items are left out. Depths are those of SurfaceRenderPass with
/// the same inputs. The textures are the pass's own, of the viewport's size, and the next frame overwrites them; with an empty
/// viewport the outputs are empty. The depth test is off afterwards.
class KVZ_EXTRAPASSES_EXPORT ItemIdRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, ProjectionMatrix, CameraMatrix, Geometry };
    enum Output { ItemId, Depth, FalseColour };

    ItemIdRenderPass();
    ~ItemIdRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

    /// Whether items with GPUModel::Transparent are left out, so that what lies behind glass is picked; false unless set.
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
