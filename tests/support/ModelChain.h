// SPDX-License-Identifier: MIT
#pragma once

#include "Image.h"

#include <Chain/RenderChain.h>
#include <GL/FramebufferObject.h>
#include <Host/Camera.h>
#include <Import/ModelImporter.h>
#include <Scene/GPUModel.h>

namespace Velmora::Kvz {

/// A ready chain that draws a model into a picture of its own, as `kvz render` does.
class ModelChain
{
public:
    /// Loads a ready chain; a chain with findings fails the test.
    ModelChain(const QString &chainName, const QSharedPointer<GPUModel> &model, const QSize &size);
    /// Takes any chain without errors.
    ModelChain(const ChainDescription &description, const QSharedPointer<GPUModel> &model, const QSize &size);

    /// Looks at the model as a whole, between planes that fit it.
    void look(const CameraView &view);

    /// Renders a frame and gives these outputs of it.
    QVector<Image> render(const QVector<ChainOutput> &outputs = {});
    /// What the chain presented.
    Image picture() const { return readTexture(m_target.get()); }

    /// Renders frames, expecting that textures are reused, references balance and nothing is made after the first ones.
    void expectSteadyFrames();

    RenderChain chain;
    Camera camera; ///< Of the last look().

private:
    QSharedPointer<GPUModel> m_model;
    QSize m_size;
    std::unique_ptr<Texture> m_target;
    FramebufferObject m_framebuffer;
};

/// Renders a frame and gives these outputs of it; where there is none, an empty image.
QVector<Image> renderOutputs(RenderChain *chain, const QVector<ChainOutput> &outputs);

/// A model file, which must be there and without warnings.
ImportedScene importScene(const QString &file);

} // namespace Velmora::Kvz
