// SPDX-License-Identifier: MIT
#pragma once

#include "RenderOptions.h"

namespace Velmora::Kvz {

/// The cameras of all frames, framed together; one where it does not move. `points` are those of the scene.
QVector<Camera> camerasOf(const QVector<QVector3D> &points, const RenderOptions &options);

} // namespace Velmora::Kvz
