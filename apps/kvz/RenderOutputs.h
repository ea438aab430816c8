// SPDX-License-Identifier: MIT
#pragma once

#include "RenderOptions.h"

#include <Chain/RenderChain.h>

#include <QtGui/QImage>

namespace Velmora::Kvz {

/// Why there is no place for a picture and its captures, in one line; empty when there should be. Changes nothing on disk, so that
/// a failure leaves no empty directory.
QString outputProblem(const RenderOptions &options);

/// What is said where the memory for a picture is missing.
QString noMemory(const QSize &size);

/// Writes a picture and the captures that the chain has. Returns an exit status.
int writeResults(const QImage &picture, RenderChain *chain, const RenderOptions &options);

} // namespace Velmora::Kvz
