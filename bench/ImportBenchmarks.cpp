// SPDX-License-Identifier: MIT
// Loads models of a given number of triangles, ours beside assimp alone with the same flags and beside assimp with a weld and an
// order for the vertex cache by meshoptimizer, each in a process of its own. Prints milliseconds of processor time for a
// million triangles, the best of three, and peak memory.
//
//   kvz-import-bench [TRIANGLES] [FORMAT...]      default: 1000000, all formats
#include "support/LoadCost.h"

#include <Import/ModelImporter.h>

#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace Velmora::Kvz;

namespace {

void importOurs(const QString &file)
{
    ImportedScene scene;
    QString error;
    if (!importModel(file, &scene, &error)) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        std::_Exit(1);
    }
}

/// Whether a format is among the arguments, or there are none.
bool isWanted(const char *format, int argc, char **argv)
{
    bool result = argc <= 2;
    for (int i = 2; i < argc; ++i)
        result |= std::strcmp(argv[i], format) == 0;
    return result;
}

} // namespace

int main(int argc, char **argv)
{
    const int wanted = argc > 1 ? std::atoi(argv[1]) : 1000000;
    QTemporaryDir folder;
    if (wanted <= 0 || !folder.isValid()) {
        std::fprintf(stderr, "usage: kvz-import-bench [TRIANGLES] [FORMAT...]\n");
        return 2;
    }
    const QVector<MeasuredFormat> formats = measuredFormats();
    for (const MeasuredFormat &format : formats) { // written by children, whose memory does not count for the loads
        if (!isWanted(format.name, argc, argv))
            continue;
        const pid_t child = fork();
        if (child == 0) {
            QFile file(
                folder.filePath(QStringLiteral("%1.%2").arg(QLatin1String(format.name), QLatin1String(format.suffix))));
            const QByteArray bytes = format.write(wanted);
            std::_Exit(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() ? 0 : 1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (status != 0)
            return 1;
    }
    const int triangles = trianglesOf(wanted);
    std::printf(
        "%d triangles; ms of processor time for a million, peak MB; bytes: for each triangle, beyond assimp alone\n",
        triangles);
    std::printf("%-12s %8s %8s %8s %6s %8s %8s %6s\n", "format", "ours", "assimp", "welded", "ratio", "our MB",
        "its MB", "bytes");
    for (const MeasuredFormat &format : formats) {
        if (!isWanted(format.name, argc, argv))
            continue;
        const QString file =
            folder.filePath(QStringLiteral("%1.%2").arg(QLatin1String(format.name), QLatin1String(format.suffix)));
        const Cost ours = costOf([&] { importOurs(file); });
        const Cost bare = costOf([&] { importBare(file, false); });
        const Cost welded = format.isIndexed ? bare : costOf([&] { importBare(file, true); });
        const double scale = 1e6 / triangles;
        std::printf("%-12s %8.0f %8.0f %8.0f %6.2f %8.0f %8.0f %6.0f\n", format.name,
            ours.processorMilliseconds * scale, bare.processorMilliseconds * scale,
            welded.processorMilliseconds * scale, ours.processorMilliseconds / welded.processorMilliseconds,
            ours.megabytes, bare.megabytes, (ours.megabytes - bare.megabytes) * 1024 * 1024 / triangles);
        std::fflush(stdout);
    }
    return 0;
}
