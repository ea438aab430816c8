// SPDX-License-Identifier: MIT
#include <RenderPasses/CubemapLoaderRenderPass.h>

#include "steps/ImageFile.h"

#include <GL/AutoBinder.h>
#include <GL/BufferObject.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/Texture.h>
#include <GL/UnpackState.h>

#include <GL/TrackedGL.h>

#include <cstring>

namespace Velmora::Kvz {

namespace {

void uploadFace(GLenum face, const QString &path)
{
    QImage image;
    if (!loadImageFile(path, &image))
        image = oneTexel(Qt::transparent);

    const QSharedPointer<BufferObject> pixels = OpenGLDeviceContext::current()->createBufferObject();
    pixels->setTarget(GL_PIXEL_UNPACK_BUFFER);
    AutoBinder buffer(pixels);
    glBufferData(pixels->target(), GLsizeiptr(image.sizeInBytes()), nullptr, GL_STATIC_DRAW);
    if (void *const target = pixels->map(GL_WRITE_ONLY)) {
        std::memcpy(target, image.constBits(), size_t(image.sizeInBytes()));
        pixels->unmap();
    }
    // Neither mirrored nor converted. GL refuses to read past the end of the buffer.
    glTexImage2D(face, 0, GL_RGBA, image.width(), image.height(), 0, GL_BGRA, GL_UNSIGNED_BYTE, nullptr);
}

} // namespace

CubemapLoaderRenderPass::CubemapLoaderRenderPass()
{
    addInput(QStringLiteral("Kvz_QString_CubemapPathPosX"), QVariant());
    addInput(QStringLiteral("Kvz_QString_CubemapPathNegX"), QVariant());
    addInput(QStringLiteral("Kvz_QString_CubemapPathPosY"), QVariant());
    addInput(QStringLiteral("Kvz_QString_CubemapPathNegY"), QVariant());
    addInput(QStringLiteral("Kvz_QString_CubemapPathPosZ"), QVariant());
    addInput(QStringLiteral("Kvz_QString_CubemapPathNegZ"), QVariant());
    addOutput(QStringLiteral("Kvz_KvzTexture*_Cubemap"));
}

CubemapLoaderRenderPass::~CubemapLoaderRenderPass()
{
    // The current cube map goes first.
    m_cubemaps.erase(keyOf(m_paths));
}

void CubemapLoaderRenderPass::start(RenderCallbacks *)
{
    Paths paths;
    for (int face = 0; face < faceCount; ++face)
        paths[size_t(face)] = m_inputs[face].value.toString();

    if (!m_texture || paths != m_paths) {
        m_paths = paths;
        std::unique_ptr<Texture> &cubemap = m_cubemaps[keyOf(m_paths)];
        if (!cubemap)
            cubemap = build();
        m_texture = cubemap.get();
    }
    m_outputs[Cubemap].value = QVariant::fromValue(m_texture);
}

/// The paths end to end, with nothing between them, on purpose.
QString CubemapLoaderRenderPass::keyOf(const Paths &paths)
{
    QString key;
    for (const QString &path : paths)
        key += path;
    return key;
}

std::unique_ptr<Texture> CubemapLoaderRenderPass::build() const
{
    auto texture = std::make_unique<Texture>(nullptr);
    texture->setTarget(GL_TEXTURE_CUBE_MAP);
    UnpackState unpack;
    AutoBinder binder(texture.get());
    for (const GLenum filter : {GL_TEXTURE_MAG_FILTER, GL_TEXTURE_MIN_FILTER})
        glTexParameteri(GL_TEXTURE_CUBE_MAP, filter, GL_LINEAR);
    for (const GLenum wrap : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T, GL_TEXTURE_WRAP_R})
        glTexParameteri(GL_TEXTURE_CUBE_MAP, wrap, GL_CLAMP_TO_EDGE);

    QHash<GLenum, QString> faces;
    for (int face = 0; face < faceCount; ++face)
        faces.insert(GL_TEXTURE_CUBE_MAP_POSITIVE_X + GLenum(face), m_paths[size_t(face)]);
    for (auto face = faces.cbegin(); face != faces.cend(); ++face)
        uploadFace(face.key(), face.value());
    glGenerateMipmap(texture->target());
    return texture;
}

} // namespace Velmora::Kvz
