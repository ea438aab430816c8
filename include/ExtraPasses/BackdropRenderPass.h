// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QString>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;
class Texture;

/// Fills the frame with an image file: a background for what is laid over it. The image keeps its proportions, fills the viewport and
/// loses what stands out on two sides.
///
/// | Input | Name                  | Type    | Default | Null means                             |
/// |-------|-----------------------|---------|---------|----------------------------------------|
/// | 0     | Kvz_QRect_Viewport    | QRect   | invalid | 0 by 0 pixels                          |
/// | 1     | Kvz_QString_ImagePath | QString | invalid | no image                               |
///
/// | Output | Name                  | Value                                                                              |
/// |--------|-----------------------|------------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame | A pooled GL_RGBA8 texture of the viewport's size, colours multiplied by alpha. Null without an image. |
///
/// Every format that Qt reads will do. The file is read when its name changes; one beyond the driver's limit comes in at that size, and
/// one that cannot be read is no image, with one line in the log. Smaller pictures are filtered from mip levels. The depth test and
/// blending are off after a draw.
class KVZ_EXTRAPASSES_EXPORT BackdropRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, ImagePath };
    enum Output { Frame };

    BackdropRenderPass();
    ~BackdropRenderPass() override;

    void start(RenderCallbacks *callbacks) override;
    void teardownContextData(RenderCallbacks *callbacks) override;

private:
    void load(const QString &path);
    void draw(const QSize &size);

    QString m_path; ///< Of the file that was read last.
    std::unique_ptr<Texture> m_image; ///< Null where there is none.
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<FramebufferObject> m_framebuffer;
    QSharedPointer<DrawBuffers> m_screenQuad;
};

} // namespace Velmora::Kvz
