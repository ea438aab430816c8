// SPDX-License-Identifier: MIT
#include "PictureList.h"

#include <Host/ImageWriter.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QHash>

namespace Velmora::Kvz {

namespace {

/// Whether a directory is there or can be made. Looks only, so that a failure leaves no empty directory.
bool canMakeFolder(const QString &folder)
{
    QFileInfo nearest(QDir(folder).absolutePath());
    while (!nearest.exists() && !nearest.isRoot())
        nearest.setFile(nearest.path());
    return nearest.isDir() && nearest.isWritable();
}

/// The name of a model in the name of a picture.
QString modelName(const QString &model)
{
    return model == RenderOptions::standardStream ? QStringLiteral("stdin") : QFileInfo(model).completeBaseName();
}

/// Why two pictures meet in one file, or one directory, and what to do about it.
QString collision(const RenderOptions &options, const char *option, const QString &given, const NameTemplate &name,
    const QString &file, const Picture &first, const Picture &second)
{
    QStringList missing;
    const auto miss = [&](bool differs, const char *place) {
        if (differs && !name.has(QLatin1String(place)))
            missing.append(QStringLiteral("{%1}").arg(QLatin1String(place)));
    };
    miss(options.models.size() > 1, "model");
    miss(options.cameras.size() > 1, "view");
    miss(options.frames > 1, "frame");
    const QString start = QStringLiteral("%1 %2: ").arg(QLatin1String(option), given);
    if (!missing.isEmpty())
        return start
            + QStringLiteral("%1 pictures need names of their own; put %2 into it")
                  .arg(QString::number(options.pictureCount()), missing.join(QStringLiteral(" and ")));
    const auto source = [&](const Picture &picture) {
        return QStringLiteral("%1 from %2").arg(options.models[picture.model], options.cameras[picture.camera].text);
    };
    return start
        + QStringLiteral("%1 would hold both %2 and %3; render them in calls of their own")
              .arg(file, source(first), source(second));
}

} // namespace

bool listPictures(const RenderOptions &options, QVector<Picture> *pictures, QString *error)
{
    QVector<Picture> list;
    QHash<QString, int> files;
    QHash<QString, int> folders;
    for (int model = 0; model < options.models.size(); ++model) {
        for (int camera = 0; camera < options.cameras.size(); ++camera) {
            for (int frame = 0; frame < options.frames; ++frame) {
                const NameTemplate::Picture named{
                    modelName(options.models[model]), NameTemplate::plain(options.cameras[camera].text), frame};
                Picture picture{model, camera, frame, options.outputName.fileName(named), QString()};
                const QString file = QDir::cleanPath(QFileInfo(picture.file).absoluteFilePath());
                if (files.contains(file)) {
                    *error = collision(
                        options, "-o", options.output, options.outputName, picture.file, list[files[file]], picture);
                    return false;
                }
                files.insert(file, list.size());
                if (!options.captureFolder.isEmpty()) {
                    picture.captureFolder = options.captureName.fileName(named);
                    const QString folder = QDir::cleanPath(QFileInfo(picture.captureFolder).absoluteFilePath());
                    if (folders.contains(folder)) {
                        *error = collision(options, "--capture", options.captureFolder, options.captureName,
                            picture.captureFolder, list[folders[folder]], picture);
                        return false;
                    }
                    folders.insert(folder, list.size());
                }
                list.append(picture);
            }
        }
    }
    for (const Picture &picture : qAsConst(list)) {
        const QString problem = options.writesToStandardOutput() ? QString() : imageFileProblem(picture.file);
        if (!problem.isEmpty()) {
            *error = QStringLiteral("%1: %2").arg(picture.file, problem);
            return false;
        }
        if (!picture.captureFolder.isEmpty() && !canMakeFolder(picture.captureFolder)) {
            *error = QStringLiteral("%1: the directory cannot be made").arg(picture.captureFolder);
            return false;
        }
    }
    *pictures = list;
    return true;
}

} // namespace Velmora::Kvz
