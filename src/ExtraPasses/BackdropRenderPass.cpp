// SPDX-License-Identifier: MIT
#include <ExtraPasses/BackdropRenderPass.h>

#include "steps/InputRead.h"
#include "steps/LazyProgram.h"
#include "steps/ScreenQuad.h"
#include "steps/TempTexture.h"
#include "steps/Uniforms.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/DrawBuffers.h>
#include <GL/FramebufferObject.h>
#include <GL/ShaderProgram.h>
#include <GL/Texture.h>
#include <GL/UnpackState.h>

#include <QtGui/QImageReader>
#include <QtGui/QVector2D>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

const QString fragmentSource = QStringLiteral(R"(#version 150
uniform sampler2D u_Image;
uniform vec2 u_Share; // What is seen of the image's width and height, in its middle.
in vec2 vo_TexCoord;
out vec4 out_FragColor;

void main()
{
    out_FragColor = texture(u_Image, 0.5 + u_Share * (vo_TexCoord - 0.5));
}
)");

/// What is seen of an image's width and height where it fills a size and keeps its proportions.
QVector2D shareSeen(const QSizeF &image, const QSizeF &size)
{
    const double proportion = size.width() * image.height() / (size.height() * image.width());
    return proportion < 1 ? QVector2D(float(proportion), 1) : QVector2D(1, float(1 / proportion));
}

/// An image, bottom row first, with colours multiplied by alpha, at most `largest` texels on each side. Null, with a line in the log, where
/// there is none.
QImage readImage(const QString &path, int largest)
{
    QImageReader reader(path);
    reader.setDecideFormatFromContent(true);
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    if (size.width() > largest || size.height() > largest)
        reader.setScaledSize(size.scaled(largest, largest, Qt::KeepAspectRatio));
    const QImage image = reader.read();
    if (image.isNull()) {
        KVZ_WARNING(
            QStringLiteral("BackdropRenderPass: no image is read from \"%1\": %2").arg(path, reader.errorString()));
        return image;
    }
    return image.convertToFormat(QImage::Format_RGBA8888_Premultiplied).mirrored();
}

} // namespace

BackdropRenderPass::BackdropRenderPass()
{
    addInput(QStringLiteral("Kvz_QRect_Viewport"), QVariant());
    addInput(QStringLiteral("Kvz_QString_ImagePath"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Frame"));
}

BackdropRenderPass::~BackdropRenderPass() = default;

void BackdropRenderPass::start(RenderCallbacks *callbacks)
{
    const QSize size = inputValue<QRect>(m_inputs[Viewport]).size();
    const auto path = inputValue<QString>(m_inputs[ImagePath]);
    if (path != m_path)
        load(path);
    if (size.isEmpty() || !m_image) {
        skip(callbacks);
        return;
    }
    ensureFramebuffer(m_framebuffer);
    if (!m_program)
        m_program = buildProgram({QStringLiteral("out_FragColor")}, screenQuadVertexSource, fragmentSource);
    ensureScreenQuad(m_screenQuad, *m_program);

    AutoBinder framebuffer(m_framebuffer.get());
    Texture *const frame =
        attachTempTexture(*m_framebuffer, GL_COLOR_ATTACHMENT0, TextureFormat::LowDynamicRange, size);
    m_framebuffer->setDrawBuffers();
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glDisable(GL_SCISSOR_TEST);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glViewport(0, 0, size.width(), size.height());
    draw(size);
    handOn(m_outputs[Frame], m_numOutputUsers[Frame], frame);
    detachAndGiveBack(*m_framebuffer, GL_COLOR_ATTACHMENT0);
}

void BackdropRenderPass::teardownContextData(RenderCallbacks *)
{
    m_image.reset();
    m_path.clear();
    m_program.reset();
    m_framebuffer.reset();
    m_screenQuad.reset();
}

void BackdropRenderPass::load(const QString &path)
{
    m_path = path; // Even after a failure, so that it is not tried again.
    m_image.reset();
    if (path.isEmpty())
        return;
    GLint largest = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &largest);
    const QImage image = readImage(path, largest);
    if (image.isNull())
        return;
    m_image = std::make_unique<Texture>(nullptr);
    m_image->setTarget(GL_TEXTURE_2D);
    m_image->setSize(0, GL_RGBA8, image.width(), image.height(), 1);
    UnpackState unpack;
    AutoBinder texture(m_image.get());
    glTexImage2D(
        GL_TEXTURE_2D, 0, GL_RGBA8, image.width(), image.height(), 0, GL_RGBA, GL_UNSIGNED_BYTE, image.constBits());
    glGenerateMipmap(GL_TEXTURE_2D);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
}

void BackdropRenderPass::draw(const QSize &size)
{
    AutoBinder program(m_program.get());
    AutoBinder image(m_image.get());
    setSampler(*m_program, QStringLiteral("u_Image"), m_image.get());
    m_program->setUniform(QStringLiteral("u_Share"), shareSeen(QSizeF(m_image->width(0), m_image->height(0)), size));
    AutoBinder quad(m_screenQuad);
    m_screenQuad->draw();
}

} // namespace Velmora::Kvz
