// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;
class Texture;

/// Puts a cross-fade of two image files behind a rendered frame, and fades one material, the floor, into them. A material id
/// for each pixel says what is background.
///
/// | Input | Name                     | Type     | Default | Null means                                                   |
/// |-------|--------------------------|----------|---------|--------------------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport       | QRect    | invalid | 0 by 0 pixels                                                |
/// | 1     | Kvz_KvzTexture*_Frame    | Texture* | invalid | opaque black geometry; there is no substitute                |
/// | 2     | Kvz_KvzTexture*_Depth    | Texture* | invalid | a temporary one; it is attached and neither tested nor written |
/// | 3     | Kvz_string_FadeImageUrl1 | QString  | invalid | the empty path: opaque black                                 |
/// | 4     | Kvz_string_FadeImageUrl2 | QString  | invalid | the empty path: opaque black                                 |
/// | 5     | Kvz_float_FadeRatio      | float    | invalid | 0; the factor on the first image                             |
/// | 6     | Kvz_float_FadeRatio2     | float    | invalid | 0; the factor on the second image                            |
/// | 7     | Kvz_KvzTexture*_Normal   | Texture* | invalid | a temporary one, whose content is undefined                  |
/// | 8     | Kvz_int_FloorMaterialId  | int      | -1      | 0; below 0 no material is the floor                          |
/// | 9     | Kvz_float_FadeRatioFloor | float    | invalid | 0: only the images show on the floor; 1: only the frame      |
///
/// | Output | Name                  | Value                                            |
/// |--------|-----------------------|--------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame | A pooled GL_RGBA16F texture of the viewport's size |
///
/// The material id is the absolute integer part of the alpha of `Normal`, less 1: alpha 0 is background, alpha n or -n is
/// material n - 1. With B = image 1 * FadeRatio + image 2 * FadeRatio2, all four channels alike, a pixel is
/// - B where there is no geometry,
/// - frame * FadeRatioFloor + B * (1 - FadeRatioFloor) where the material is the floor,
/// - the frame elsewhere.
///
/// The ratios are free; for a cross-fade they sum to 1. Images are stretched over the viewport, whose left and top are
/// ignored, and are read through TextureManager::loadTexture(), so their colours are kept as they are.
///
/// Each image is loaded once: a path that is set later has no effect. A file that cannot be read is tried again in each
/// frame, and TextureManager logs one line for it.
class KVZ_RENDERPASSES_EXPORT BackgroundImageRenderPass : public RenderPassProxy
{
public:
    enum Input {
        Viewport,
        SourceFrame,
        Depth,
        FadeImageUrl1,
        FadeImageUrl2,
        FadeRatio,
        FadeRatio2,
        Normal,
        FloorMaterialId,
        FadeRatioFloor
    };
    enum Output { Frame };

    BackgroundImageRenderPass();
    ~BackgroundImageRenderPass() override;

    /// Makes the program and the quad; start() calls it where the host did not.
    void setup(RenderCallbacks *callbacks) override;
    void start(RenderCallbacks *callbacks) override;
    /// Does nothing: the images stay.
    void teardown(RenderCallbacks *callbacks) override;

private:
    void draw(Texture *frame, Texture *normal);

    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<ShaderProgram> m_shaderProgram;
    std::unique_ptr<FramebufferObject> m_framebuffer;
    Texture *m_image1 = nullptr; ///< The texture manager's, like the second.
    Texture *m_image2 = nullptr;
    int m_width = 0;
    int m_height = 0;
};

} // namespace Velmora::Kvz
