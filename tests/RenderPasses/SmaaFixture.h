// SPDX-License-Identifier: MIT
#pragma once

#include "BlurReference.h"
#include "SmaaReference.h"
#include "support/GLTest.h"
#include "support/PooledTextures.h"

#include <GL/FramebufferObject.h>
#include <RenderPasses/SMAARenderPass.h>

#include <QtCore/QRect>

#include <memory>
#include <string>

namespace Velmora::Kvz {

using Smaa = SMAARenderPass;

inline const QSize smaaFrameSize(321, 237);

/// The weights and the blend read between texels, at positions that a driver may round to 1/256, and store 8 bits.
inline constexpr double storedTolerance = 0.5 / 255.0 + 1.0 / 256.0;

/// The error of a value stored in 8 bits.
inline constexpr double byteTolerance = 0.51 / 255.0;

/// A rendered frame of boxes and spheres over a ground, with edges at all angles, thin and distant ones among them.
Image renderedFrame(const QSize &size);
/// Draws an image over the bound framebuffer.
void drawCopy(Texture *source);

/// The modes as log messages name them.
inline constexpr const char *modeNames[] = {"1x", "S2X", "T2X", "4X"};

inline bool isTemporal(int mode)
{
    return mode == Smaa::SmaaT2X || mode == Smaa::Smaa4X;
}

inline bool wantsSamples(int mode)
{
    return mode == Smaa::SmaaS2X || mode == Smaa::Smaa4X;
}

class SMAARenderPassTest : public GLTest
{
protected:
    std::unique_ptr<Smaa> pass = std::make_unique<Smaa>();
    PooledTextures pool;

    static void set(Smaa *smaa, int mode, Texture *frame, const QSize &size, Texture *velocity = nullptr,
        Texture *predicate = nullptr, bool hdr = true)
    {
        smaa->setInput(Smaa::Viewport, QRect(QPoint(), size));
        smaa->setInput(Smaa::SmaaMode, mode);
        smaa->setInput(Smaa::Frame, QVariant::fromValue(frame));
        smaa->setInput(Smaa::Velocity, QVariant::fromValue(velocity));
        smaa->setInput(Smaa::Predicate, predicate ? QVariant::fromValue(predicate) : QVariant());
        smaa->setInput(Smaa::RenderInHDR, hdr);
    }

    /// A pass with the programs of a mode built, so that its stages can be called one by one.
    void prepare(int mode, const QSize &size = smaaFrameSize, bool predication = false)
    {
        pass->setup(nullptr);
        const auto plain = makeTexture(filled(4, 4, QVector4D(0, 0, 0, 1)), GL_RGBA8);
        const auto still = makeTexture(Image(4, 4), GL_RGBA32F);
        const auto samples =
            wantsSamples(mode) ? makeMultisampleTexture(Image(size.width(), size.height()), GL_RGBA8, 2) : nullptr;
        set(pass.get(), mode, samples ? samples.get() : plain.get(), size, still.get(),
            predication ? still.get() : nullptr);
        pass->start(nullptr);
        log.takeDebug();
        glDisable(GL_STENCIL_TEST);
        glDisable(GL_BLEND);
        glDisable(GL_DEPTH_TEST);
        glViewport(0, 0, size.width(), size.height());
    }
    /// A linear, clamped texture with one reference, as the pass takes them.
    Texture *target(TextureFormat format = TextureFormat::LowDynamicRange, const QSize &size = smaaFrameSize)
    {
        Texture *const texture = pool.take(format, size.width(), size.height(), 1);
        AutoBinder binder(texture);
        for (GLenum filter : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER})
            glTexParameteri(GL_TEXTURE_2D, filter, GL_LINEAR);
        for (GLenum wrap : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T})
            glTexParameteri(GL_TEXTURE_2D, wrap, GL_CLAMP_TO_EDGE);
        return texture;
    }
    /// The same with content.
    Texture *linear(const Image &image, TextureFormat format = TextureFormat::LowDynamicRange)
    {
        Texture *const texture = target(format, QSize(image.width, image.height));
        AutoBinder binder(texture);
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, image.width, image.height, GL_RGBA, GL_FLOAT, image.data.constData());
        return texture;
    }
    static Texture *result(const Smaa &smaa) { return smaa.output(Smaa::FrameOut).value<Texture *>(); }
    Texture *result() const { return result(*pass); }

    void expectWeights(
        const Image &edges, const SmaaSlices &slices, const SmaaSettings &settings, int row, const std::string &name)
    {
        Texture *const edgeTexture = linear(edges);
        Texture *const stencil = target(TextureFormat::DepthStencil);
        {
            FramebufferObject framebuffer;
            AutoBinder binder(&framebuffer);
            framebuffer.attach(stencil, GL_DEPTH_STENCIL_ATTACHMENT, 0);
            framebuffer.setDrawBuffers();
            glStencilMask(0xff);
            glClearStencil(1);
            glClear(GL_STENCIL_BUFFER_BIT);
        }
        glEnable(GL_STENCIL_TEST);
        Texture *const weights = target();
        pass->blendingWeightCalculation(weights, edgeTexture, stencil, row);
        const Image image = readTexture(weights);
        const Image reference = smaaWeights(edges, slices, settings);
        const Deviation difference = deviation(name, image, reference);
        saveForViewing(image, QStringLiteral("smaa-weights-%1").arg(QString::fromStdString(name)));
        // Between adjacent distances the table's texels differ by up to a half.
        EXPECT_LE(difference.largest, storedTolerance) << name;
        int weighted = 0;
        for (int i = 0; i < reference.data.size(); ++i)
            weighted += reference.data[i] > 0 ? 1 : 0;
        EXPECT_GT(weighted, 400) << name << ": hardly anything to compare";
        for (Texture *texture : {edgeTexture, stencil, weights})
            TextureManager::Instance()->releaseTempTextureRef(texture, 1);
    }
};

} // namespace Velmora::Kvz
