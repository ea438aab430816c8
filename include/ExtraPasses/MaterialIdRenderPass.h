// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSize>

#include <memory>

namespace Velmora::Kvz {

class ShaderProgram;
class TargetFramebuffer;

/// Draws a model into an image of normals and material ids, which BackgroundImageRenderPass reads, and a depth-stencil image
/// with it.
///
/// | Input | Name                            | Type       | Default | Null means                                         |
/// |-------|---------------------------------|------------|---------|----------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels                                      |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity                                       |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix     | QMatrix4x4 | invalid | the identity; it takes world space to camera space |
/// | 3     | Kvz_KvzGPUModel*_Geometry       | GPUModel*  | invalid | cleared images                                     |
///
/// | Output | Name                   | Value                                                                        |
/// |--------|------------------------|------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Normal | GL_RGBA32F, unit normals in camera space; material id plus 1 in alpha; 0 for none |
/// | 1      | Kvz_KvzTexture*_Depth  | GL_DEPTH24_STENCIL8, window depth from 0 to 1; stencil 1 where the model covers a pixel, else 0 |
///
/// The material id of an item is the number of its material: what GPUModelBuilder::addMaterial() returned, the index in
/// ImportedScene::materials. Rows of a bound InstanceDataCollection of the plan "OBJMaterial" give others, by their field
/// `getMaterialId`.
///
/// All items count, transparent ones too; culled items are left out. The outputs are the pass's own textures of the
/// viewport's size, overwritten by the next frame and deleted by a change of size; null until a viewport gives them one.
///
/// Afterwards the depth test, its writes and all stencil bits are on, the stencil test, blending and face culling off, and
/// the GL viewport is the image.
class KVZ_EXTRAPASSES_EXPORT MaterialIdRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, ProjectionMatrix, CameraMatrix, Geometry };
    enum Output { Normal, Depth };

    MaterialIdRenderPass();
    ~MaterialIdRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<TargetFramebuffer> m_framebuffer;
    QSize m_size{0, 0};
};

} // namespace Velmora::Kvz
