// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>
#include <QtGui/QVector2D>

#include <array>
#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;
class Texture;

/// Smooths the edges of a finished frame: enhanced subpixel morphological antialiasing in its four modes.
///
/// Edges are found by luma in a gamma-encoded copy, the pattern that each belongs to gives the coverage of the pixels beside
/// it, and those pixels are mixed with their neighbours by it. S2X does so for both samples of a multisampled frame and
/// averages; T2X averages with the last frame, read where the surface was then; 4X does both.
///
/// After Jimenez, Echevarria, Sousa and Gutierrez, "SMAA: Enhanced Subpixel Morphological Antialiasing", Computer Graphics
/// Forum 31(2), 2012, with the ultra preset: threshold 0.05, 32 search steps, 16 diagonal ones, corner rounding 25.
///
/// | Input | Name                        | Type      | Default | Null means                                                 |
/// |-------|-----------------------------|-----------|---------|------------------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport          | QRect     | invalid | 0 by 0 pixels                                              |
/// | 1     | Kvz_KvzTexture*_Frame       | Texture*  | invalid | no output; the frame, colours linear                       |
/// | 2     | Kvz_int_SmaaMode            | int       | 2       | 0; a value of Mode                                         |
/// | 3     | Kvz_KvzTexture*_Predicate   | Texture*  | invalid | one threshold everywhere; an image, such as depth, whose steps of 0.01 and more in red mark likely edges |
/// | 4     | Kvz_KvzTexture*_Velocity    | Texture*  | invalid | nothing moves, with an assertion in T2X and 4X; current less last position in texture coordinates, in red and green |
/// | 5     | Kvz_int_JitterIndex         | int       | invalid | 0; the position in the camera's jitter, 0 or 1             |
/// | 6     | Kvz_bool_RenderInHDR        | bool      | true    | false                                                      |
/// | 7     | Kvz_Vector2D_JitterAmount   | QVector2D | invalid | (0, 0); the camera's jitter in normalised device units     |
///
/// | Output | Name                    | Value                                                                               |
/// |--------|-------------------------|-------------------------------------------------------------------------------------|
/// | 0      | Kvz_KvzTexture*_Frame   | A pooled texture of the viewport's size: GL_RGBA16F in HDR, else GL_RGBA8; null without a frame. Alpha is 1 in T2X and 4X. |
///
/// The area table holds for samples that lie at these places of a pixel, in texture coordinates:
///
/// | Mode | Jitter index | Sample 0       | Sample 1       |
/// |------|--------------|----------------|----------------|
/// | 1X   | any          | (0.5, 0.5)     |                |
/// | S2X  | any          | (0.75, 0.75)   | (0.25, 0.25)   |
/// | T2X  | 0            | (0.75, 0.75)   |                |
/// | T2X  | 1            | (0.25, 0.25)   |                |
/// | 4X   | 0            | (0.875, 0.625) | (0.375, 0.125) |
/// | 4X   | 1            | (0.625, 0.875) | (0.125, 0.375) |
///
/// SubsampleJitterPass places the sample of T2X, MultisampleForwardRenderPass those of S2X and 4X. The modes of
/// CameraJitterPass place it elsewhere: T2X runs with them, but leaves edges rougher.
///
/// With the jitter's amount on its port the velocity must be that between the pictures as they were drawn, which contains the
/// change of the jitter: the pass takes it out again. With a velocity that is free of jitter, leave the amount unset. A
/// configuration of 64 by 64 pixels, mode 2 and no predicate as a pass's very first never builds the programs, and the output
/// has no picture.
///
/// setup() must have run before the first start(): it makes the lookup tables. 1X and T2X resolve a multisampled frame first.
/// The frame keeps the linear filters that the pass sets.
class KVZ_RENDERPASSES_EXPORT SMAARenderPass : public RenderPassProxy
{
public:
    enum Input { Viewport, Frame, SmaaMode, Predicate, Velocity, JitterIndex, RenderInHDR, JitterAmount };
    enum Output { FrameOut };
    enum Mode : int {
        Smaa1X, ///< Morphological alone.
        SmaaS2X, ///< Of each of the two samples of a multisampled frame, averaged.
        SmaaT2X, ///< Resolved with the last frame.
        Smaa4X ///< Both.
    };

    SMAARenderPass();
    ~SMAARenderPass() override;

    /// Makes what is still missing of the lookup tables and the empty programs.
    void setup(RenderCallbacks *callbacks) override;
    void start(RenderCallbacks *callbacks) override;

    /// Gives the last frame back and forgets its jitter, as if the pass had never run, but keeps the programs. For hosts, where the
    /// last frame shows something else than the next one will; the pass itself never calls it.
    void forgetHistory();

    /// \name Stages
    /// start() calls them; targets have the viewport's size.
    /// @{
    /// Builds the programs for the size, mode and predication in force.
    void init();
    /// Gives the last frame back and replaces all programs by empty ones.
    void release();
    /// The row of the subsample table for a pass (0 or 1, the sample's number) and a position in the jitter.
    int getSubSampleIndex(int pass, int jitterIndex);
    /// Writes sample 0 and sample 1 of a multisampled frame.
    void doMultiSampleSeparation(Texture *frame, Texture *target0, Texture *target1);
    /// Writes `input` to the power of 1 / `gamma`, clamped to 0 to 1; alpha as it is.
    void applyGamma(Texture *input, Texture *output, float gamma);
    /// Writes edges to the left (red) and below (green) of pixels, and 1 to the stencil there. `predicate` can be null.
    void edgeDetection(Texture *edges, Texture *stencil, Texture *input, Texture *predicate);
    /// Writes how much of its neighbours a pixel takes, where the stencil is 1.
    void blendingWeightCalculation(Texture *weights, Texture *edges, Texture *stencil, int subsampleIndex);
    /// Adds `colour`, mixed by the weights, to the target: both by the blend factor. T2X and 4X note each pixel's speed in
    /// alpha and write `packedVelocity`; in the other modes it and `velocity` are not looked at.
    void neighbourhoodBlending(
        Texture *target, Texture *colour, Texture *weights, Texture *velocity, Texture *packedVelocity);
    /// Writes the mean of `current` and the last frame. From then on `current` and `packedVelocity` are the last frame's, and
    /// their references the pass's.
    void doTemporalResolve(
        Texture *target, Texture *current, Texture *velocity, Texture *packedVelocity, QVector2D jitter);
    /// From the gamma-encoded copy to the blending, for one pass, 0 or 1. A pass of 1 is averaged with what the target holds.
    void doSmaa1x(
        Texture *target, Texture *packedVelocity, Texture *input, Texture *predicate, Texture *velocity, int pass);
    /// @}

private:
    bool isTemporal() const;
    void dropHistory();
    void clearTarget(Texture *target);
    void draw(const ShaderProgram &program) const;
    void createPrograms();
    void deletePrograms();
    std::array<std::unique_ptr<ShaderProgram> *, 6> programs();

    int m_width = 64;
    int m_height = 64;
    int m_mode = SmaaT2X;
    bool m_predication = false;
    std::unique_ptr<FramebufferObject> m_framebuffer; ///< Separation, gamma, edges, weights, resolve.
    std::unique_ptr<FramebufferObject> m_blendFramebuffer; ///< Clearing the target, neighbourhood blending.
    std::unique_ptr<Texture> m_areaTexture;
    std::unique_ptr<Texture> m_searchTexture;
    std::unique_ptr<ShaderProgram> m_edgeProgram;
    std::unique_ptr<ShaderProgram> m_weightProgram;
    std::unique_ptr<ShaderProgram> m_blendProgram;
    std::unique_ptr<ShaderProgram> m_resolveProgram;
    std::unique_ptr<ShaderProgram> m_separateProgram;
    std::unique_ptr<ShaderProgram> m_gammaProgram;
    QSharedPointer<DrawBuffers> m_screenQuad;
    Texture *m_previousColour = nullptr; ///< The last frame before its resolve; holds one reference, like the next.
    Texture *m_previousPackedVelocity = nullptr;
    float m_blendFactor = 1.0f;
    QVector2D m_previousJitter;
};

} // namespace Velmora::Kvz
