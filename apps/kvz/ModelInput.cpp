// SPDX-License-Identifier: MIT
#include "ModelInput.h"

#include "Console.h"
#include "ProgressBar.h"

#include <Import/ModelImporter.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QLocale>
#include <QtCore/QTemporaryDir>

#include <unistd.h>

namespace Velmora::Kvz {

namespace {

/// Puts all of standard input into a file. The libraries that read models want one.
bool copyStandardInput(const QString &file, QString *error)
{
    QFile input;
    QFile output(file);
    if (!input.open(STDIN_FILENO, QIODevice::ReadOnly)) {
        *error = input.errorString();
        return false;
    }
    if (!output.open(QIODevice::WriteOnly)) {
        *error = output.errorString();
        return false;
    }
    QByteArray block(1 << 20, Qt::Uninitialized);
    qint64 length = 0;
    while ((length = input.read(block.data(), block.size())) > 0) {
        if (output.write(block.constData(), length) != length) {
            *error = output.errorString();
            return false;
        }
    }
    if (length < 0 || !output.flush()) {
        *error = length < 0 ? input.errorString() : output.errorString();
        return false;
    }
    if (output.size() == 0)
        *error = QStringLiteral("it is empty");
    return output.size() > 0;
}

QString size(const QString &file)
{
    return QLocale(QLocale::English).formattedDataSize(QFileInfo(file).size(), 1, QLocale::DataSizeTraditionalFormat);
}

bool readFile(
    const QString &file, const QString &name, const RenderOptions &options, ImportedScene *scene, QString *error)
{
    bool isRead = false;
    {
        const ActivityLine activity(QStringLiteral("reading %1, %2").arg(name, size(file)));
        isRead = importModel(file, options.import, scene, error);
    }
    // A model of standard input has a file that nobody knows.
    error->replace(file, name);
    for (QString warning : qAsConst(scene->warnings))
        warn(warning.replace(file, name));
    return isRead;
}

} // namespace

QString displayName(const QString &model)
{
    return model == RenderOptions::standardStream ? QStringLiteral("standard input") : model;
}

bool readModel(const QString &model, const RenderOptions &options, ImportedScene *scene, QString *error)
{
    const QString name = displayName(model);
    if (model != RenderOptions::standardStream) {
        if (!readFile(model, name, options, scene, error))
            return false;
    } else {
        if (isatty(STDIN_FILENO)) {
            *error = QStringLiteral(
                "standard input is a terminal; send a model into it, such as cat car.glb | kvz render -");
            return false;
        }
        const QTemporaryDir folder;
        const QString file = folder.filePath(QStringLiteral("model.") + options.format);
        QString problem = folder.errorString();
        if (!folder.isValid() || !copyStandardInput(file, &problem)) {
            *error = QStringLiteral("%1: %2").arg(name, problem);
            return false;
        }
        if (!readFile(file, name, options, scene, error))
            return false;
    }
    if (options.floor)
        addFloor(scene);
    return true;
}

} // namespace Velmora::Kvz
