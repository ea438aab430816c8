// SPDX-License-Identifier: MIT
#include <RenderPasses/TextureLoaderRenderPass.h>

#include "steps/ImageFile.h"

#include <GL/AutoBinder.h>
#include <GL/Texture.h>
#include <GL/UnpackState.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

/// The bits of an image, followed by zeros where GL would read more than there are.
QByteArray bitsFor32BitTexels(const QImage &image)
{
    const qint64 needed = qint64(4) * image.width() * image.height();
    QByteArray bits(reinterpret_cast<const char *>(image.constBits()), int(image.sizeInBytes()));
    if (bits.size() < needed)
        bits.append(int(needed - bits.size()), '\0');
    return bits;
}

} // namespace

TextureLoaderRenderPass::TextureLoaderRenderPass()
{
    addInput(QStringLiteral("Kvz_QString_TexturePath"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Texture"));
}

TextureLoaderRenderPass::~TextureLoaderRenderPass()
{
    delete m_texture;
}

void TextureLoaderRenderPass::start(RenderCallbacks *)
{
    if (!m_texture) {
        m_texture = new Texture(nullptr);
        m_texture->setTarget(GL_TEXTURE_2D);
    }
    const QString path = m_inputs[TexturePath].value.toString();
    if (path != m_path)
        load(path);
    m_outputs[LoadedTexture].value = QVariant::fromValue(m_texture);
}

void TextureLoaderRenderPass::load(const QString &path)
{
    QImage image;
    if (loadImageFile(path, &image))
        image = image.mirrored(false, true);
    else
        image = oneTexel(Qt::white);

    m_texture->setSize(0, GL_RGBA, image.width(), image.height(), 1);
    {
        UnpackState unpack;
        AutoBinder texture(m_texture);
        // No conversion: the bits go up as they are, whatever the image's format.
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, image.width(), image.height(), 0, GL_BGRA, GL_UNSIGNED_BYTE,
            bitsFor32BitTexels(image).constData());
        glGenerateMipmap(m_texture->target());
    }
    m_texture->setReadOnly();
    m_path = path; // Also after a failure, which is not tried again.
}

} // namespace Velmora::Kvz
