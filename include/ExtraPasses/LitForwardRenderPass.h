// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSize>

#include <memory>

namespace Velmora::Kvz {

class SurfaceProgramVariants;
class TargetFramebuffer;

/// Draws a model and lights it from the camera, with all that its materials say: vertex colours, images with their own
/// texture coordinates and wrap modes, masks, opacity, emission, and surfaces that are lit from both sides.
///
/// | Input | Name                            | Type       | Default | Null means                |
/// |-------|---------------------------------|------------|---------|---------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels             |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity              |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix     | QMatrix4x4 | invalid | the identity              |
/// | 3     | Kvz_KvzGPUModel*_Geometry       | GPUModel*  | invalid | a cleared frame           |
/// | 4     | Kvz_float_HeadlightIntensity    | float      | 0.85    | 0.85; below 0 counts as 0 |
/// | 5     | Kvz_float_AmbientIntensity      | float      | 0.15    | 0.15; below 0 counts as 0 |
/// | 6     | Kvz_bool_FixedLight             | bool       | false   | false                     |
/// | 7     | Kvz_KvzTexture*_Background      | Texture*   | invalid | transparent black         |
///
/// | Output | Name                  | Value                                                                             |
/// |--------|-----------------------|-----------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame | GL_RGBA8: colour multiplied by opacity, opacity in alpha; the background where nothing is. |
/// | 1      | Kvz_KvzTexture*_Depth | GL_DEPTH_COMPONENT32F.                                                            |
/// | 2      | Kvz_KvzTexture*_Id    | GL_R32F: number of the triangle within its item, from 1 up; 0 for none. Null without setTriangleIds(). |
///
/// The headlight shines from the eye: surfaces reflect Lambert's term and Blinn's highlight (Blinn, "Models of light reflection for
/// computer synthesized pictures", 1977). The ambient share is a factor on the base colour. The fixed light takes the place of
/// both: it comes from the upper right behind the camera and is what ForwardRenderPass has. Unlit materials show their
/// base colour.
///
/// The nearest surface wins, even if it lets light through: nothing is blended, and the background is replaced. A background of another
/// size is stretched to the viewport's. With setOpaqueOnly() the items with
/// GPUModel::Transparent are left out, for chains that draw these separately. The textures are the pass's own, of the
/// viewport's size, and the next frame overwrites them; with an empty viewport the outputs are empty. The depth test is
/// off afterwards.
class KVZ_EXTRAPASSES_EXPORT LitForwardRenderPass : public RenderPassProxy
{
public:
    enum Input {
        Viewport,
        ProjectionMatrix,
        CameraMatrix,
        Geometry,
        HeadlightIntensity,
        AmbientIntensity,
        FixedLight,
        Background
    };
    enum Output { Frame, Depth, Id };

    LitForwardRenderPass();
    ~LitForwardRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

    /// Whether items with GPUModel::Transparent are left out; false unless set.
    void setOpaqueOnly(bool isOpaqueOnly);
    /// Whether triangles are numbered in an image of their own, which costs time; true unless set.
    void setTriangleIds(bool hasIds);

private:
    void resizeTargets(const QSize &size);
    void beginFrame(const QSize &size);

    std::unique_ptr<SurfaceProgramVariants> m_programs;
    std::unique_ptr<TargetFramebuffer> m_framebuffer;
    QSize m_size;
    bool m_isOpaqueOnly = false;
    bool m_hasIds = true;
};

} // namespace Velmora::Kvz
