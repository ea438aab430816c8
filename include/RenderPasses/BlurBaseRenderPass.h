// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QSize>
#include <QtCore/QString>
#include <QtCore/QVector>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;
class Texture;

/// The base of the passes that blur by a Gaussian in two draws, one along each axis: the kernel, the programs that are built
/// for it, and their basic GLSL. It has no ports, and hosts do not create it.
///
/// The kernel's standard deviation is the blur radius, in texels of the target. Neighbouring samples are folded into one
/// read between two texels, so a draw with `m_weights.size()` taps reads its image `2 * m_weights.size() - 1` times for
/// each pixel. It needs linear filters, which the passes set on every texture that they blur and leave set.
///
/// The folding is that of D. Rákos, "Efficient Gaussian blur with linear sampling" (2010).
class KVZ_RENDERPASSES_EXPORT BlurBaseRenderPass : public RenderPassProxy
{
public:
    ~BlurBaseRenderPass() override;

protected:
    /// A `stencilMask` other than 0 defines STENCIL_MASK in the programs. The kernel reaches `blurRadius * kernelExtent`
    /// texels to either side.
    BlurBaseRenderPass(float stencilMask, float blurRadius, float kernelExtent);

    /// Fills `m_weights` and `m_offsets` for the current radius. A radius of 0 or less gives one tap of weight 1.
    void calculateBlurWeights();
    /// A program, the caller's, of the base vertex source and this fragment source. The number of taps is part of it, so
    /// calculateBlurWeights() comes first. Whether it compiled is not checked.
    ShaderProgram *makeShaderProgram(const QString &fragmentSource) const;
    /// Blurs `u_Input` along `stepVec`. With STENCIL_MASK, pixels with an alpha of 0 or less stay as they are.
    static QString getBaseFragmentShaderSource();
    static QString getBaseVertexShaderSource();

    /// A target for a draw from the pool, GL_RGBA16F, of this size in pixels.
    static Texture *takeTarget(const QSize &size);
    /// Attaches the target of a draw to the framebuffer, which is bound, and clears it to the current clear colour.
    /// Depth test and depth writes go off.
    void attachAndClear(Texture *target);
    /// Sets the kernel's uniforms on a program that is bound.
    void setKernel(ShaderProgram &program) const;

    float m_blurRadius; ///< The radius that the kernel stands for.
    float m_kernelExtent;
    float m_stencilMask; ///< A flag: 0 or not.
    QSharedPointer<DrawBuffers> m_screenQuad;
    QVector<float> m_weights; ///< Of each tap, the centre first. The others count twice in a sum of 1.
    QVector<float> m_offsets; ///< Of each tap from the centre, in texels.
    QString m_samplesCountName = QStringLiteral("SAMPLES_COUNT");
    std::unique_ptr<ShaderProgram> m_shaderProgram;
    std::unique_ptr<FramebufferObject> m_framebuffer;
};

} // namespace Velmora::Kvz
