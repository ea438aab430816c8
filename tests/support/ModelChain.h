// SPDX-License-Identifier: MIT
#pragma once

#include "Image.h"

#include <Chain/RenderChain.h>
#include <GL/FramebufferObject.h>
#include <Host/Camera.h>
#include <Import/ModelImporter.h>
#include <Scene/GPUModel.h>

namespace Velmora::Kvz {

/// A ready chain that draws a model into its own target, as `kvz render` does.
class ModelChain
{
public:
    /// Loads a ready chain; a chain with findings fails the test.
    ModelChain(const QString &chainName, const QSharedPointer<GPUModel> &model, const QSize &size);
    /// Takes any chain without errors.
    ModelChain(const ChainDescription &description, const QSharedPointer<GPUModel> &model, const QSize &size);

    /// Shows the whole model, between planes that fit it.
    void look(const CameraView &view);

    /// Renders a frame and returns these of its outputs.
    QVector<Image> render(const QVector<ChainOutput> &outputs = {});
    /// What the chain presented.
    Image picture() const { return readTexture(m_target.get()); }

    /// Renders frames, expecting that textures are reused, references balance and nothing is created after the first
    /// ones.
    void expectSteadyFrames();

    RenderChain chain;
    Camera camera; ///< Of the last look().

private:
    QSharedPointer<GPUModel> m_model;
    QSize m_size;
    std::unique_ptr<Texture> m_target;
    FramebufferObject m_framebuffer;
};

/// Renders a frame and returns these of its outputs; an output without a texture gives an empty image.
QVector<Image> renderOutputs(RenderChain *chain, const QVector<ChainOutput> &outputs);

/// Imports a model file, which must exist and load without warnings.
ImportedScene importScene(const QString &file);

} // namespace Velmora::Kvz
