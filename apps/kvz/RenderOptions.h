// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/LightDescription.h>
#include <Host/Camera.h>

#include <QtCore/QSize>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>
#include <vector>

namespace Velmora::Kvz {

/// What the command line of `kvz render` asks for.
struct RenderOptions
{
    QString model;
    QString chain;
    QString output;
    QString captureFolder; // empty: no captures
    QSize size;
    int frames = 1;
    CameraView view;
    float orbit = 0; // degrees from frame to frame
    std::vector<LightDescription> lights; // empty: those of the chain
    bool floor = false;
    bool timings = false;
    bool watch = false;
};

/// Reads the command line. A value is the exit status of a command that is already done.
std::optional<int> readOptions(const QStringList &arguments, RenderOptions *options);

} // namespace Velmora::Kvz
