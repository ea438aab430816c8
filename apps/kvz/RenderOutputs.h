// SPDX-License-Identifier: MIT
#pragma once

#include "PictureList.h"
#include "TimingTable.h"

#include <Chain/RenderChain.h>

namespace Velmora::Kvz {

/// What is said where the memory for a picture is missing.
QString noMemory(const QSize &size);

/// Writes the captures that the chain has of the last frame. False, with one line in `error`, when it cannot.
bool writeCaptures(const Picture &picture, RenderChain *chain, QString *error);

/// Milliseconds that a picture took. What is done once for several pictures counts for the first of them.
struct PhaseTimes
{
    double load = 0; ///< Reading the model.
    double upload = 0; ///< Handing it to the driver.
    double draw = 0; ///< All frames, with the building of programs.
    double write = 0;
};

/// One line of JSON about a picture that is written.
QString describePicture(const Picture &picture, const RenderOptions &options, const PhaseTimes &times,
    const TimingTable &passes, const QString &renderer);

} // namespace Velmora::Kvz
