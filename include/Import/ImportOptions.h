// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

#include <QtCore/QString>

#include <functional>

namespace Velmora::Kvz {

/// What an import may cost. A limit of 0 or less is replaced by that of forFileSize().
///
/// The limits hold where a loader reads, between the steps of an import and before each image. A loader that computes
/// for long without reading is not interrupted: open untrusted files in a separate process.
struct KVZ_HOST_EXPORT ImportLimits
{
    qint64 bytes =
        0; ///< Read from the model file and the buffers and libraries that it names; images are counted apart.
    qint64 vertices = 0; ///< Of all meshes together, as the loader hands them out.
    double seconds = 0; ///< From the first byte to the finished scene.
    int imageSide = 0; ///< In pixels. A larger image is scaled to it while it is decoded, with a warning.

    /// Limits that leave room for every legitimate file of this many bytes: they grow with the file, and a small one
    /// has room to name large buffers and to be subdivided.
    static ImportLimits forFileSize(qint64 bytes);
};

/// How far an import is.
struct ImportProgress
{
    enum Step { File, Meshes, Images };
    Step step = File;
    int done = 0; ///< Per cent of the file, or the number of the mesh or image that is being read, from 1.
    int total = 100; ///< 100, or how many there are; 0: unknown.
};

/// How a model file is read.
struct ImportOptions
{
    ImportLimits limits;
    /// The axis of the file that points up: "x", "y", "z" or one of them with a minus. Empty: what the file says, else y.
    QString up;
    /// The animation that poses the nodes, by name or by number from 0. Empty: the first one if `time` is given, else none.
    QString animation;
    /// The moment of the animation, in seconds; outside its span the first or last pose stays. Below 0: 0 if an animation is
    /// given, else the nodes are not animated.
    double time = -1;
    /// The variant of materials (KHR_materials_variants), by its name. Empty: the materials of none. A name that the file does not
    /// have is refused.
    QString variant;
    /// The length of the longest side of the scene's bounds: the scene is scaled to it, as scaleInto() does. 0: it is not scaled.
    float scaleInto = 0;
    /// Whether a file without triangles is refused. Without, points and lines alone, cameras or an animation will do, and so
    /// does a file that has nothing at all.
    bool needsTriangles = true;
    /// Called on the importing thread as the import proceeds. Images are decoded when a material names them, so the steps alternate.
    /// Not all loaders report how much of the file they have read. Empty: no reports.
    std::function<void(const ImportProgress &)> progress;
};

} // namespace Velmora::Kvz
