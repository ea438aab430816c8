// SPDX-License-Identifier: MIT
#pragma once

#include "RenderOptions.h"

#include <Import/ImportedScene.h>

namespace Velmora::Kvz {

/// Where a model is looked at from in the frames of its pictures.
class CameraPath
{
public:
    /// One for each camera of the options, on a scene of these points. False, with one line in `error`, when a camera of the
    /// file is asked for that the file does not have.
    static bool make(const QVector<QVector3D> &points, const QVector<ImportedCamera> &fileCameras,
        const RenderOptions &options, QVector<CameraPath> *paths, QString *error);

    /// In a frame of a picture: both count from 0.
    const Camera &at(int picture, int sample) const;
    /// Whether one of its cameras looks past all points.
    bool looksPast(const QVector<QVector3D> &points) const;

private:
    QVector<Camera> m_cameras; ///< One where it does not move.
    bool m_turnsFromPictureToPicture = false;
};

} // namespace Velmora::Kvz
