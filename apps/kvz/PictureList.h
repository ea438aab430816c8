// SPDX-License-Identifier: MIT
#pragma once

#include "RenderOptions.h"

#include <QtCore/QVector>

namespace Velmora::Kvz {

/// One of the pictures of a call.
struct Picture
{
    int model = 0; ///< Index into RenderOptions::models.
    int camera = 0; ///< Index into RenderOptions::cameras.
    int frame = 0;
    QString file;
    QString captureFolder; ///< Empty: no captures.
};

/// All pictures of a call with their files: model by model, then camera by camera, then frame by frame. False, with one line in
/// `error`, where one file would hold several of them, or has no place on disk. Changes nothing on disk.
bool listPictures(const RenderOptions &options, QVector<Picture> *pictures, QString *error);

} // namespace Velmora::Kvz
