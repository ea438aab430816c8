// SPDX-License-Identifier: MIT
#pragma once

#include <RenderPasses/RenderPassProxy.h>

#include <QtCore/QByteArray>
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

/// Runs the host's GLSL: the host gives it sources and ports, and it is a pass without a class of its own.
///
/// | Input | Name               | Type  | Default | Null means                                                         |
/// |-------|--------------------|-------|---------|--------------------------------------------------------------------|
/// | 0     | Kvz_QRect_Viewport | QRect | invalid | the size of the first connected texture input, else 1 by 1 pixels  |
///
/// The host adds all further ports before the first frame; later ones are not supported. Names tie ports to the shaders:
///
/// | Port                                | Meaning                                                                    |
/// |-------------------------------------|----------------------------------------------------------------------------|
/// | input `Kvz_KvzTexture*_Foo`         | feeds the sampler `u_Foo`; null means transparent black                    |
/// | input `Kvz_KvzDrawBuffers*_Foo`     | what is drawn instead of a quad over the screen; null means the quad       |
/// | input of any other name             | sets the uniform of that whole name, for a value that is a bool, int, double, float, QRect, QSize, QColor, QMatrix4x4, QVector2D, QVector3D or QVector4D |
/// | output `Kvz_KvzTexture*_Bar`        | is written by the fragment output `o_Bar`                                  |
///
/// Outputs are pooled GL_RGBA8 textures, attached as colours 0, 1, … in the order of the ports. Their size is the
/// viewport's, or that of the first connected texture when the viewport has no width; its left and top are ignored. The
/// screen quad has `va_Vertex` (vec3, clip space) and `va_TexCoord` (vec2, 0 to 1).
///
/// Every connected texture gets linear filters and clamped edges, each frame, and keeps them. For a multisampled one, which
/// has no such state, an assertion is logged. Depth test and blending are off afterwards, and the GL
/// viewport is the target. Mistakes in the sources draw nothing.
class KVZ_RENDERPASSES_EXPORT ShaderRenderPass : public RenderPassProxy
{
public:
    /// How the fragment outputs meet what is in the targets.
    enum BlendMode : int {
        BlendNone = 0, ///< They replace it.
        BlendAlpha =
            1, ///< Source times one minus its alpha, plus target times the source's alpha. So is any other number.
        BlendAdditive = 2 ///< They are added to it.
    };

    ShaderRenderPass();
    ~ShaderRenderPass() override;

    void start(RenderCallbacks *callbacks) override;

    /// The sources of the stages. They have no effect once the program is built, by the first start(). The vertex stage is
    /// that of a screen quad and the fragment stage copies `u_Input`, until these are set; the other stages are left out
    /// while they are empty.
    void setVertexShaderSource(const QString &source);
    void setFragmentShaderSource(const QString &source);
    void setGeometryShaderSource(const QString &source);
    void setTessellationControlShaderSource(const QString &source);
    void setTessellationEvaluationShaderSource(const QString &source);

    /// The sources of the vertex and the fragment stage until others are set.
    static QString defaultVertexShaderSource();
    static QString defaultFragmentShaderSource();

    /// Whether the targets are cleared each frame, to the clear colour in force; on by default. Pooled targets hold what
    /// their last user left. A frame in which the size changes clears in any case.
    void setClear(bool clear);
    /// How the targets are blended; BlendNone by default.
    void setBlend(ShaderRenderPass::BlendMode blend);

    /// Sets the uniforms that inputs feed. start() calls it with the program bound, when the samplers are set. A subclass
    /// overrides it to set more.
    virtual void setUniforms();

protected:
    /// The program; null until the first start().
    ShaderProgram *program() const { return m_program.get(); }

private:
    void reflectPorts();
    void buildProgram();
    void applyBlendMode() const;

    QSharedPointer<DrawBuffers> m_screenQuad;
    std::unique_ptr<ShaderProgram> m_program;
    std::unique_ptr<FramebufferObject> m_framebuffer;
    Texture *m_fallback = nullptr; ///< The texture manager's.
    QString m_vertexSource;
    QString m_fragmentSource;
    QString m_geometrySource;
    QString m_tessellationControlSource;
    QString m_tessellationEvaluationSource;
    QSize m_size{0, 0};
    bool m_clear = true;
    BlendMode m_blend = BlendNone;
    QVector<int> m_textureInputs;
    QVector<int> m_textureOutputs;
    QVector<QByteArray> m_uniformNames; ///< One for each input.
    int m_geometryInput = -1;
};

} // namespace Velmora::Kvz
