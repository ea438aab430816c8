// SPDX-License-Identifier: MIT
#pragma once

#include "ProgressBar.h"
#include "RenderCameras.h"
#include "RenderTarget.h"
#include "TimingTable.h"

#include <Chain/RenderChain.h>
#include <Chain/ResolvedChain.h>
#include <Host/HeadlessContext.h>
#include <Scene/GPUModel.h>

#include <QtCore/QSharedPointer>

#include <memory>

namespace Velmora::Kvz {

/// Draws the pictures of a call: one context, one target, and one chain for as long as that gives what a call of its own gives for
/// each picture. Functions that can fail return the reason in one line, or nothing.
class PictureRenderer
{
public:
    PictureRenderer(const RenderOptions &options, const ResolvedChain &resolved);
    ~PictureRenderer();

    /// Makes the context and the target, and asks the driver whether it can run the chain. Does nothing the second time.
    QString start();
    /// Takes the place of the model before it. `floorMaterial` is the material of the floor that the program added; below 0: none.
    QString setModel(const ImportedScene &scene, const QString &name, int floorMaterial);
    /// Makes the chain such that its next frame is as a first one.
    QString prepareChain();
    /// Draws all frames of a picture. `all` gets the times of its passes too, where passes are timed.
    QString draw(int picture, const CameraPath &path, bool captures, ProgressBar *progress, TimingTable *times,
        TimingTable *all);
    /// What was drawn, as a screen would show it.
    QImage image() { return m_options.hasTransparentBackground() ? m_target->pictureWithAlpha() : m_target->picture(); }

    /// The chain that draws at present; null before prepareChain(). Its shaders may be exchanged.
    RenderChain *chain() { return m_chain.get(); }
    QString renderer() const { return m_context->renderer(); }

private:
    void setCamera(const Camera &camera);
    void giveModel();

    const RenderOptions &m_options;
    const ResolvedChain &m_resolved;
    std::unique_ptr<HeadlessContext> m_context;
    std::unique_ptr<RenderTarget> m_target;
    QSharedPointer<GPUModel> m_model;
    int m_floorMaterial = -1;
    std::unique_ptr<RenderChain> m_chain;
    bool m_isFresh = true; ///< The chain has drawn no picture.
};

} // namespace Velmora::Kvz
