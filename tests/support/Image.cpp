// SPDX-License-Identifier: MIT
#include "Image.h"

#include <GL/AutoBinder.h>
#include <GL/FramebufferObject.h>
#include <GL/InternalFormat.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/ShaderProgram.h>

#include <QtCore/QDir>
#include <QtGui/QImage>

#include <epoxy/gl.h>

#include <cmath>
#include <limits>

namespace Velmora::Kvz {

namespace {

bool isIntegerFormat(GLenum format)
{
    return format == GL_RED_INTEGER || format == GL_RG_INTEGER || format == GL_RGB_INTEGER || format == GL_RGBA_INTEGER;
}

/// Reads the bound texture target, or one image of it when `slices` is above 1.
Image readBound(GLenum target, GLenum internalFormat, int width, int height, int slices, int slice)
{
    const bool depth = isDepthFormat(internalFormat);
    Image image(width, height, depth ? 1 : 4);
    const size_t count = size_t(image.data.size());
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    if (isIntegerFormat(formatFromInternalFormat(internalFormat))) {
        std::vector<GLuint> texels(count * size_t(slices));
        const bool isSigned = typeFromInternalFormat(internalFormat) == GL_INT;
        glGetTexImage(target, 0, GL_RGBA_INTEGER, isSigned ? GL_INT : GL_UNSIGNED_INT, texels.data());
        for (size_t i = 0; i < count; ++i) {
            const GLuint texel = texels[size_t(slice) * count + i];
            image.data[int(i)] = isSigned ? float(GLint(texel)) : float(texel);
        }
    } else {
        std::vector<float> texels(count * size_t(slices));
        glGetTexImage(target, 0, depth ? GL_DEPTH_COMPONENT : GL_RGBA, GL_FLOAT, texels.data());
        std::copy_n(texels.begin() + long(size_t(slice) * count), count, image.data.begin());
    }
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    return image;
}

} // namespace

Image::Image(int imageWidth, int imageHeight, int imageChannels)
    : width(imageWidth),
      height(imageHeight),
      channels(imageChannels),
      data(imageWidth * imageHeight * imageChannels, 0.0f)
{ }

QVector4D Image::pixel(int x, int y) const
{
    const float *texel = at(x, y);
    return QVector4D(texel[0], texel[1], texel[2], texel[3]);
}

void Image::setPixel(int x, int y, const QVector4D &value)
{
    float *texel = at(x, y);
    for (int i = 0; i < 4; ++i)
        texel[i] = value[i];
}

Image readTexture(const Texture *texture)
{
    AutoBinder binder(const_cast<Texture *>(texture));
    return readBound(
        texture->target(), GLenum(texture->internalFormat(0)), texture->width(0), texture->height(0), 1, 0);
}

Image readLayer(const Texture *texture, int layer)
{
    AutoBinder binder(const_cast<Texture *>(texture));
    GLint layers = 0;
    glGetTexLevelParameteriv(texture->target(), 0, GL_TEXTURE_DEPTH, &layers);
    return readBound(
        texture->target(), GLenum(texture->internalFormat(0)), texture->width(0), texture->height(0), layers, layer);
}

Image readFramebuffer(int x, int y, int width, int height)
{
    Image image(width, height);
    glReadPixels(x, y, width, height, GL_RGBA, GL_FLOAT, image.data.data());
    return image;
}

QVector<int> readStencil(Texture *texture)
{
    const int width = texture->width(0);
    const int height = texture->height(0);
    std::vector<GLubyte> texels(size_t(width) * size_t(height));
    FramebufferObject framebuffer;
    AutoBinder binder(&framebuffer);
    framebuffer.attach(texture, GL_DEPTH_STENCIL_ATTACHMENT, 0);
    framebuffer.setDrawBuffers();
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, width, height, GL_STENCIL_INDEX, GL_UNSIGNED_BYTE, texels.data());
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    QVector<int> values;
    for (GLubyte texel : texels)
        values.append(texel);
    return values;
}

std::unique_ptr<Texture> makeTexture(const Image &image, int internalFormat)
{
    auto texture = std::make_unique<Texture>(GL_TEXTURE_2D, internalFormat, image.width, image.height, 0, nullptr);
    AutoBinder binder(texture.get());
    const GLenum format = isDepthFormat(GLenum(internalFormat)) ? GL_DEPTH_COMPONENT
        : image.channels == 1                                   ? GL_RED
                                                                : GL_RGBA;
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    if (hasStencil(GLenum(internalFormat))) {
        std::vector<GLuint> packed;
        for (float depth : image.data)
            packed.push_back(GLuint(std::lround(double(depth) * 16777215.0)) << 8);
        glTexImage2D(GL_TEXTURE_2D, 0, internalFormat, image.width, image.height, 0, GL_DEPTH_STENCIL,
            GL_UNSIGNED_INT_24_8, packed.data());
    } else {
        glTexImage2D(
            GL_TEXTURE_2D, 0, internalFormat, image.width, image.height, 0, format, GL_FLOAT, image.data.constData());
    }
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    return texture;
}

std::unique_ptr<Texture> makeMultisampleTexture(const Image &image, int internalFormat, int samples)
{
    auto texture =
        std::make_unique<Texture>(GL_TEXTURE_2D_MULTISAMPLE, internalFormat, image.width, image.height, 0, nullptr);
    {
        AutoBinder binder(texture.get());
        glTexImage2DMultisample(
            GL_TEXTURE_2D_MULTISAMPLE, samples, GLenum(internalFormat), image.width, image.height, GL_TRUE);
    }
    // Multisampled textures cannot be uploaded to, so the image is drawn into it.
    const std::unique_ptr<Texture> source = makeTexture(image, GL_RGBA32F);
    ShaderProgram program(nullptr);
    program.setFragDataLocations({QStringLiteral("out_Color")});
    program.addShader(GL_VERTEX_SHADER,
        QStringLiteral("#version 150\nin vec3 va_Vertex;\nvoid main() { gl_Position = vec4(va_Vertex, 1.0); }\n"),
        QString());
    program.addShader(GL_FRAGMENT_SHADER,
        QStringLiteral("#version 150\nuniform sampler2D u_Source;\nout vec4 out_Color;\n"
                       "void main() { out_Color = texelFetch(u_Source, ivec2(gl_FragCoord.xy), 0); }\n"),
        QString());
    program.compile();
    program.link();
    const QSharedPointer<DrawBuffers> quad = OpenGLDeviceContext::current()->createScreenQuad();
    FramebufferObject framebuffer;
    AutoBinder framebufferBinder(&framebuffer);
    framebuffer.attach(texture.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.setDrawBuffers();
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_BLEND);
    glDisable(GL_CULL_FACE);
    AutoBinder programBinder(&program);
    AutoBinder sourceBinder(source.get());
    program.setUniform(QStringLiteral("u_Source"), source->unit());
    AutoBinder quadBinder(quad);
    quad->draw();
    return texture;
}

Image filled(int width, int height, const QVector4D &color)
{
    Image image(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, color);
    }
    return image;
}

double maximumDifference(const Image &a, const Image &b)
{
    if (a.width != b.width || a.height != b.height || a.channels != b.channels)
        return 1e30;
    double difference = 0;
    for (int i = 0; i < a.data.size(); ++i) {
        const double d = std::abs(double(a.data[i]) - double(b.data[i]));
        difference = std::isnan(d) ? 1e30 : std::max(difference, d);
    }
    return difference;
}

double meanError(const Image &a, const Image &b)
{
    if (a.width != b.width || a.height != b.height || a.channels != b.channels)
        return std::numeric_limits<double>::quiet_NaN();
    double sum = 0;
    for (int y = 0; y < a.height; ++y) {
        for (int x = 0; x < a.width; ++x) {
            for (int i = 0; i < 3; ++i)
                sum += std::abs(double(a.at(x, y)[i]) - double(b.at(x, y)[i]));
        }
    }
    return 255 * sum / (3.0 * a.width * a.height);
}

int pixelsBeyond(const Image &a, const Image &b, double tolerance)
{
    if (a.width != b.width || a.height != b.height || a.channels != b.channels)
        return std::max(a.width * a.height, b.width * b.height);
    int count = 0;
    for (int i = 0; i < a.width * a.height; ++i) {
        bool isBeyond = false;
        for (int k = i * a.channels; k < (i + 1) * a.channels; ++k)
            isBeyond = isBeyond || !(std::abs(double(a.data[k]) - double(b.data[k])) <= tolerance);
        count += int(isBeyond);
    }
    return count;
}

void saveForViewing(const Image &image, const QString &name)
{
    const QString folder = qEnvironmentVariable("KVZ_TEST_IMAGES");
    if (folder.isEmpty())
        return;
    QImage picture(image.width, image.height, QImage::Format_RGBA8888);
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            const float *texel = image.at(x, y);
            const auto byte = [](float value) { return int(std::lround(qBound(0.0f, value, 1.0f) * 255.0f)); };
            const bool grey = image.channels == 1;
            picture.setPixelColor(x, image.height - 1 - y,
                QColor(
                    byte(texel[0]), byte(texel[grey ? 0 : 1]), byte(texel[grey ? 0 : 2]), grey ? 255 : byte(texel[3])));
        }
    }
    QDir().mkpath(folder);
    picture.save(QDir(folder).filePath(name + QStringLiteral(".png")));
}

} // namespace Velmora::Kvz
