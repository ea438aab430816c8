// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/PassInfo.h>
#include <Host/TextureCapture.h>

#include <QtCore/QString>
#include <QtGui/QImage>

namespace Velmora::Kvz {

/// A picture of one output of a pass.
struct PassCapture
{
    QString pass;
    QString port;
    QImage
        image; ///< As captureTexture() gives it; null when the output held no picture, and where texels were asked for.
    /// As captureTexels() gives them, depth as distances from the camera's plane; null where no texels were asked for or there are none.
    TexelImage texels;
    TextureKind kind = TextureKind::Any; ///< What the image holds.
};

/// Times of one pass in milliseconds. Means are over all frames since they were reset.
struct PassTiming
{
    QString pass;
    int frames = 0; ///< Frames with a CPU time.
    double cpuLast = 0;
    double cpuMean = 0;
    int gpuFrames = 0; ///< Frames with a GPU time; 0 when the driver has no timer.
    double gpuLast = 0;
    double gpuMean = 0;
    bool rests = false; ///< In the last frame nothing had changed since it ran, and it was not started.
};

} // namespace Velmora::Kvz
