// SPDX-License-Identifier: MIT
#include <RenderPasses/TextureLoaderRenderPass.h>

#include "steps/ImageFile.h"

#include <GL/AutoBinder.h>
#include <GL/Texture.h>
#include <GL/UnpackState.h>

#include <GL/TrackedGL.h>

#include <algorithm>
#include <limits>

namespace Velmora::Kvz {

namespace {

/// What GL reads of an image's bits, taken as 32 for each texel.
qint64 bytesRead(const QImage &image)
{
    return qint64(4) * image.width() * image.height();
}

/// Whether GL has enough to read, or the bits can be padded: a QByteArray's size is an int, header included.
bool canBeUploaded(const QImage &image)
{
    constexpr qint64 largestPadded = std::numeric_limits<int>::max() - 64;
    return image.sizeInBytes() >= bytesRead(image) || bytesRead(image) <= largestPadded;
}

/// A copy of an image's bits, followed by zeros where GL would read more than there are.
QByteArray paddedBits(const QImage &image)
{
    QByteArray bits(int(bytesRead(image)), '\0');
    std::copy_n(image.constBits(), image.sizeInBytes(), bits.begin());
    return bits;
}

} // namespace

TextureLoaderRenderPass::TextureLoaderRenderPass()
{
    addInput(QStringLiteral("Kvz_QString_TexturePath"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Texture"));
}

TextureLoaderRenderPass::~TextureLoaderRenderPass() = default;

void TextureLoaderRenderPass::start(RenderCallbacks *)
{
    if (!m_texture) {
        m_texture = std::make_unique<Texture>(nullptr);
        m_texture->setTarget(GL_TEXTURE_2D);
    }
    const QString path = m_inputs[TexturePath].value.toString();
    if (path != m_path)
        load(path);
    m_outputs[LoadedTexture].value = QVariant::fromValue(m_texture.get());
}

void TextureLoaderRenderPass::load(const QString &path)
{
    QImage image;
    if (loadImageFile(path, &image) && canBeUploaded(image))
        image = image.mirrored(false, true);
    else
        image = oneTexel(Qt::white);
    // No conversion: the bits go up as they are, whatever the image's format.
    const bool hasEnough = image.sizeInBytes() >= bytesRead(image);
    const QByteArray padded = hasEnough ? QByteArray() : paddedBits(image);
    const void *const bits = hasEnough ? static_cast<const void *>(image.constBits()) : padded.constData();

    m_texture->setSize(0, GL_RGBA, image.width(), image.height(), 1);
    {
        UnpackState unpack;
        AutoBinder texture(m_texture.get());
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, image.width(), image.height(), 0, GL_BGRA, GL_UNSIGNED_BYTE, bits);
        glGenerateMipmap(m_texture->target());
    }
    m_texture->setReadOnly();
    m_path = path; // Even after a failure, so that it is not tried again.
}

} // namespace Velmora::Kvz
