// SPDX-License-Identifier: MIT
#include "RenderCameras.h"

namespace Velmora::Kvz {

QVector<Camera> camerasOf(const QVector<QVector3D> &points, const RenderOptions &options)
{
    if (options.orbit == 0)
        return {framePoints(points, options.view, options.size)};
    QVector<float> turns;
    for (int frame = 0; frame < options.frames; ++frame)
        turns.append(options.orbit * float(frame + 1 - options.frames));
    return frameTurntable(points, options.view, turns, options.size);
}

} // namespace Velmora::Kvz
