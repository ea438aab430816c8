// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QVector>

#include <functional>

namespace Velmora::Kvz {

/// A format whose loading is measured, with a model of a given number of triangles in it: a ball with bumps.
struct MeasuredFormat
{
    const char *name;
    const char *suffix;
    bool isIndexed; ///< Files of it share vertices as they are read.
    std::function<QByteArray(int triangles)> write;
};

QVector<MeasuredFormat> measuredFormats();
/// The number of triangles that a model of so many has: rows and columns are whole.
int trianglesOf(int wanted);

/// Reads a file by assimp alone, with the flags that an import asks for; where that is wanted with a weld and an order for the vertex
/// cache by meshoptimizer. Ends the process where it fails.
void importBare(const QString &file, bool isWelded);

/// What a task takes.
struct Cost
{
    double milliseconds = 0; ///< By the clock.
    double processorMilliseconds = 0;
    double megabytes = 0; ///< At peak.
};

/// The cost of a task in a process of its own: the best of three. Ends the process where the task fails.
Cost costOf(const std::function<void()> &task);

} // namespace Velmora::Kvz
