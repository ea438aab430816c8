// SPDX-License-Identifier: MIT
#pragma once

#include "ModelOptions.h"
#include "NameTemplate.h"
#include "OutputOptions.h"

#include <Chain/ChainLook.h>
#include <Chain/LightDescription.h>
#include <Host/Camera.h>

#include <QtCore/QSize>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>
#include <QtGui/QColor>

#include <optional>
#include <vector>

namespace Velmora::Kvz {

/// What one --camera asks for: a view, or a camera of the model file.
struct CameraChoice
{
    QString text; ///< As it was given.
    CameraView view; ///< Where `fileCamera` is empty.
    QString fileCamera; ///< Name or number of a camera of the file.
};

/// What the command line of `kvz render` asks for.
struct RenderOptions
{
    QStringList models;
    ModelOptions reading;
    bool floor = false;
    qint64 imageBudget = 0; ///< In bytes.

    QString chain;
    QStringList settings; ///< PASS.PORT=VALUE
    std::vector<LightDescription> lights; ///< Each kind replaces the chain's lights of that kind.
    std::optional<QColor> background; ///< Transparent for none; without one the chain's own.
    ChainLook look;

    bool hasTransparentBackground() const { return background && background->alpha() < 255; }

    QString output;
    NameTemplate outputName;
    QString captureFolder; ///< empty: no captures
    NameTemplate captureName;
    QSize size;
    OutputOptions written;
    QVector<CameraChoice> cameras; ///< At least one.
    int frames = 1; ///< Pictures of each model from each camera.
    int samples = 1; ///< Frames that go into each of them.
    float orbit = 0; ///< Degrees from picture to picture, or from sample to sample.
    bool turnsFromPictureToPicture = false;

    bool timings = false;
    bool watch = false;
    bool quiet = false;
    bool json = false;

    /// Whether a camera or light stands at a place in the model's own units.
    bool hasPlaces() const;
    bool writesToStandardOutput() const { return output == ModelOptions::standardStream; }
    int pictureCount() const { return models.size() * cameras.size() * frames; }
};

/// Reads the command line. A value is the exit status of a command that is already done.
std::optional<int> readOptions(const QStringList &arguments, RenderOptions *options);

} // namespace Velmora::Kvz
