// SPDX-License-Identifier: MIT
#pragma once

#include "PictureOutput.h"
#include "ProgressBar.h"
#include "RenderCameras.h"
#include "RenderTarget.h"
#include "TimingTable.h"

#include <Chain/RenderChain.h>
#include <Chain/ResolvedChain.h>
#include <Chain/TiledPicture.h>
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

    /// Makes the context, and asks the driver whether it can run the chain and how much of a picture it can draw at a time. Does nothing
    /// the second time.
    QString start();
    /// Takes the place of the model before it. `floorMaterial` is the material of the floor that the program added; below 0: none.
    QString setModel(const ImportedScene &scene, const QString &name, int floorMaterial);
    /// Makes the chain such that its next frame is as a first one.
    QString prepareChain();
    /// Draws all frames of a picture, tile by tile, and hands the last of each on to its file. `all` gets the times of its passes too,
    /// where passes are timed.
    QString draw(const Picture &picture, const CameraPath &path, PictureOutput *output, ProgressBar *progress,
        TimingTable *times, TimingTable *all);

    /// The chain that draws at present; null before prepareChain(). Its shaders may be exchanged.
    RenderChain *chain() { return m_chain.get(); }
    QString renderer() const { return m_context->renderer(); }

private:
    QString chooseTiles();
    QString listTiles(int picture, const CameraPath &path, QVector<PictureTile> *tiles) const;
    QString drawFrames(const Picture &picture, const CameraPath &path, const PictureTile &tile, ProgressBar *progress,
        TimingTable *times, TimingTable *all);
    QString ensureTarget();
    void setCamera(const Camera &camera);
    void giveModel();

    const RenderOptions &m_options;
    const ResolvedChain &m_resolved;
    TiledPicture m_tiling;
    int m_tileSide = 0; ///< 0: the picture is drawn whole.
    QSize m_drawnSize; ///< Of what is drawn at a time.
    std::unique_ptr<HeadlessContext> m_context;
    std::unique_ptr<RenderTarget> m_target;
    QSharedPointer<GPUModel> m_model;
    int m_floorMaterial = -1;
    std::unique_ptr<RenderChain> m_chain;
    bool m_isFresh = true; ///< The chain has drawn no picture.
};

} // namespace Velmora::Kvz
