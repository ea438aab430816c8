// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>
#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QSize>
#include <QtGui/QVector2D>

#include <array>
#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;
class Texture;

/// Smooths the edges of a finished frame whose alpha is to be kept: of a cut-out that is laid over a page or a colour later.
///
/// The frame has display values multiplied by their alpha, as ToneMapRenderPass gives them. An edge is where luma or alpha
/// changes, whichever changes more, so a silhouette is smoothed also where the surface is as dark as the void behind it. All
/// four channels are mixed alike, so a smoothed pixel is the mixture of its neighbours over any background.
///
/// | Input | Name                        | Type      | Default | Null means                                                    |
/// |-------|-----------------------------|-----------|---------|---------------------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport          | QRect     | invalid | 0 by 0 pixels                                                 |
/// | 1     | Kvz_KvzTexture*_Frame       | Texture*  | invalid | no output; display values, multiplied by alpha                |
/// | 2     | Kvz_KvzTexture*_SecondFrame | Texture*  | invalid | the second sample of a multisampled frame, in S2x and 4x      |
/// | 3     | Kvz_KvzTexture*_Velocity    | Texture*  | invalid | nothing moves; current less last position, in texture coordinates, for T2x and 4x |
/// | 4     | Kvz_int_JitterIndex         | int       | invalid | 0; the position in the camera's jitter, 0 or 1, for T2x and 4x |
/// | 5     | Kvz_Vector2D_JitterAmount   | QVector2D | invalid | (0, 0); the camera's jitter in normalised device units, where the velocity includes it |
/// | 6     | Kvz_bool_RenderInHDR        | bool      | false   | false; true: half floats instead of 8 bits                    |
///
/// | Output | Name                  | Value                                                                              |
/// |--------|-----------------------|------------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame | A pooled texture of the viewport's size, GL_RGBA8, or GL_RGBA16F in HDR; null without a frame. |
///
/// **Modes.** `Fxaa` takes one draw. The others find the shapes of edges: `Smaa1x` in one frame; `SmaaS2x` in two samples of one, which
/// are averaged; `SmaaT2x` in one sample of this frame and of the last one, read where the surface was then; `Smaa4x` does both. The
/// samples lie at these places of a pixel, in texture coordinates:
///
/// | Mode | Jitter index | Frame          | Second frame   |
/// |------|--------------|----------------|----------------|
/// | S2x  | any          | (0.75, 0.75)   | (0.25, 0.25)   |
/// | T2x  | 0            | (0.75, 0.75)   |                |
/// | T2x  | 1            | (0.25, 0.25)   |                |
/// | 4x   | 0            | (0.875, 0.625) | (0.375, 0.125) |
/// | 4x   | 1            | (0.625, 0.875) | (0.125, 0.375) |
///
/// In S2x and 4x a frame of several samples gives both, its first two; one of a single sample without a second frame counts as both,
/// with one log line. In the other modes a multisampled frame is refused with one log line.
///
/// Sources: T. Lottes, "FXAA" 3.11 (2011), preset 29, subpixel 0.75, threshold 0.125 and at least 0.0312; J. Jimenez et al., "SMAA:
/// Enhanced Subpixel Morphological Antialiasing" (Computer Graphics Forum 31(2), 2012) with the ultra preset. What is ours is where
/// edges are seen.
class KVZ_EXTRAPASSES_EXPORT CutoutAntiAliasingRenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, FrameIn, SecondFrame, Velocity, JitterIndex, JitterAmount, RenderInHDR };
    enum Output { Frame };
    enum class Mode : int { Fxaa, Smaa1x, SmaaS2x, SmaaT2x, Smaa4x };

    CutoutAntiAliasingRenderPass();
    ~CutoutAntiAliasingRenderPass() override;

    void start(RenderCallbacks *callbacks) override;
    void teardownContextData(RenderCallbacks *callbacks) override;

    /// `Mode::Smaa1x` until then.
    void setMode(Mode mode);
    /// Gives the last frame back, so that the next one is resolved with itself.
    void forgetPast();

private:
    bool isTemporal() const;
    bool hasTwoSamples() const;
    void prepare();
    bool takeSamples(Texture *frame, std::array<Texture *, 2> *samples);
    void drawFxaa(Texture *target, Texture *frame);
    void smooth(Texture *target, Texture *speeds, Texture *frame, Texture *velocity, int sample);
    void findEdges(Texture *edges, Texture *stencil, Texture *frame);
    void weigh(Texture *weights, Texture *edges, Texture *stencil, int sample);
    void blend(Texture *target, Texture *speeds, Texture *frame, Texture *weights, Texture *velocity, bool isSecond);
    void resolve(Texture *target, Texture *current, Texture *speeds, Texture *velocity);
    void draw(const ShaderProgram &program) const;

    Mode m_mode = Mode::Smaa1x;
    Mode m_builtMode = Mode::Smaa1x; ///< Of the programs, like the size.
    QSize m_size;
    bool m_hasWarned = false;
    std::unique_ptr<FramebufferObject> m_framebuffer;
    std::unique_ptr<Texture> m_areaTexture;
    std::unique_ptr<Texture> m_searchTexture;
    std::unique_ptr<ShaderProgram> m_fxaaProgram;
    std::unique_ptr<ShaderProgram> m_edgeProgram;
    std::unique_ptr<ShaderProgram> m_weightProgram;
    std::unique_ptr<ShaderProgram> m_blendProgram;
    std::unique_ptr<ShaderProgram> m_resolveProgram;
    std::unique_ptr<ShaderProgram> m_separateProgram;
    QSharedPointer<DrawBuffers> m_screenQuad;
    Texture *m_previous = nullptr; ///< The last frame before its resolve; holds one reference, like the next.
    Texture *m_previousSpeeds = nullptr;
    QVector2D m_previousJitter;
};

} // namespace Velmora::Kvz
