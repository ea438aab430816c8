// SPDX-License-Identifier: MIT
#pragma once

#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/PooledTextures.h"

#include <GL/FramebufferObject.h>
#include <RenderPasses/TextureToScreenRenderPass.h>

#include <QtCore/QRect>

#include <memory>

namespace Velmora::Kvz {

using BlitRecorder = GLCallRecorder<&epoxy_glBlitFramebuffer>;

class TextureToScreenRenderPassTest : public GLTest
{
protected:
    using Pass = TextureToScreenRenderPass;

    /// A colour that no pass writes.
    inline static const QVector4D poison{-7, -8, -9, -10};

    /// A different colour in each texel, in shades that the eye can follow.
    static Image pattern(int width, int height)
    {
        Image image(width, height);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                image.setPixel(x, y,
                    QVector4D((float(x) + 0.5f) / float(width), (float(y) + 0.5f) / float(height),
                        float((x * 7 + y * 13) % 32) / 32.0f, 1.0f));
            }
        }
        return image;
    }

    /// A different depth in each texel.
    static Image depthPattern(int width, int height)
    {
        Image image(width, height, 1);
        for (int i = 0; i < width * height; ++i)
            image.data[i] = (float(i) + 0.5f) / float(width * height);
        return image;
    }

    static Image depthFilled(int width, int height, float depth)
    {
        Image image(width, height, 1);
        image.data.fill(depth);
        return image;
    }

    TextureToScreenRenderPass pass;
    PooledTextures pool;

    void setTexture(Pass::Input input, Texture *texture) { pass.setInput(input, QVariant::fromValue(texture)); }
    void setTexture(Pass::Input input, const std::unique_ptr<Texture> &texture) { setTexture(input, texture.get()); }
    void setFramebuffer(FramebufferObject *framebuffer)
    {
        pass.setInput(Pass::FramebufferOut, QVariant::fromValue(framebuffer));
    }
    std::unique_ptr<Texture> makeTarget(int width, int height) const
    {
        return makeTexture(filled(width, height, poison), GL_RGBA32F);
    }
    /// Records blits without executing them, for destinations without storage.
    static void withhold(BlitRecorder &blits)
    {
        blits.replacement = [](auto...) {};
    }
    static BlitRecorder::Call call(const QRect &source, const QRect &destination, GLenum filter)
    {
        return {source.left(), source.top(), source.left() + source.width(), source.top() + source.height(),
            destination.left(), destination.top(), destination.left() + destination.width(),
            destination.top() + destination.height(), GL_COLOR_BUFFER_BIT, filter};
    }
    static QVariant rectangles(std::initializer_list<QVariant> list) { return QVariantList(list); }
};

} // namespace Velmora::Kvz
