// SPDX-License-Identifier: MIT
#pragma once

#include <Core/RenderPassHelper.h>
#include <RenderPasses/Export.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QSize>

#include <memory>
#include <vector>

namespace Velmora::Kvz {

class DrawBuffers;
class ShaderProgram;
class TargetFramebuffer;
class Texture;

/// Shades the lists of VisibilityBufferRenderPass, which VisibilitySortRenderPass has sorted, into an image: walks each
/// pixel's list from front to back, rebuilds position, normal and texture coordinates from the model's own vertices, lights
/// them by one light fixed to the camera, and composites until an opaque fragment ends the walk.
///
/// | Input | Name                            | Type       | Default | Null means                                         |
/// |-------|---------------------------------|------------|---------|----------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport              | QRect      | invalid | 0 by 0 pixels                                      |
/// | 1     | Kvz_QMatrix4x4_ProjectionMatrix | QMatrix4x4 | invalid | the identity                                       |
/// | 2     | Kvz_QMatrix4x4_CameraMatrix     | QMatrix4x4 | invalid | the identity; it takes world space to camera space |
/// | 3     | Kvz_KvzTexture*_HeadPointers    | Texture*   | invalid | must be fed when there is a model                  |
/// | 4     | Kvz_KvzTexture*_NodeBuffer      | Texture*   | invalid | must be fed when there is a model                  |
/// | 5     | Kvz_int_NodeBufferWidth         | int        | invalid | 0                                                  |
/// | 6     | Kvz_KvzGPUModel*_Geometry       | GPUModel*  | invalid | a cleared image                                    |
///
/// | Output | Name                  | Value                                                             |
/// |--------|-----------------------|-------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame | GL_RGBA with 8 bits a channel: colour, and in alpha what share of |
/// |        |                       | the light from behind the lists comes through                     |
///
/// Matrices and model must be those that the lists were recorded with. With colour and alpha both starting at 0 and 1, each
/// fragment of colour c and opacity a changes them by four statements: `rgb = mix(rgb, c, a)`, `A = a + (1 - a) * A`,
/// `rgb = A * a * c + rgb`, `A = (1 - a) * A`. So a colour counts twice, and an opaque fragment replaces what lies in front
/// of it: record transparent items alone, and lay the result over the opaque frame F as `rgb + A * F`.
///
/// A pixel without fragments keeps the clear colour that the pass finds. With an alpha of 1 there the same formula serves
/// all pixels.
///
/// The image is the pass's own, overwritten by the next frame and deleted by a change of size; null until a viewport gives it
/// a size. The buffers of vertices are those of the first model that the pass saw, whatever model comes later: make a new
/// pass for new geometry. Materials and matrices are those of the present model. So is whether corners go by indices: with
/// an indexed model after a first one that has none, every index reads as 0, and with one that has none after an indexed
/// first one, the first one's vertices are taken in a row; either picture is wrong, but nothing else is.
///
/// The pass draws with the GL viewport that it finds, so set that to the size of the port's rectangle; blending and culling
/// stay as they are. skip() makes the output invalid and gives nothing back.
class KVZ_RENDERPASSES_EXPORT VisibilityDeferredRenderPass : public RenderPassHelper
{
public:
    enum Input { Viewport, ProjectionMatrix, CameraMatrix, HeadPointers, NodeBuffer, NodeBufferWidth, Geometry };
    enum Output { Frame };

    VisibilityDeferredRenderPass();
    ~VisibilityDeferredRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

private:
    void makeBufferTextures(const DrawBuffers *geometry);

    // Deleted from the last to the first.
    QSharedPointer<DrawBuffers> m_screenQuad;
    /// Of vertices, texture coordinates, normals and, if there are any, indices.
    std::vector<std::unique_ptr<Texture>> m_bufferTextures;
    std::unique_ptr<Texture> m_fallbackTexture; ///< Never made, on purpose: both inputs are required.
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<TargetFramebuffer> m_framebuffer;
    QSize m_size{0, 0};
};

} // namespace Velmora::Kvz
