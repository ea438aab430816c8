// SPDX-License-Identifier: MIT
#include "ModelInput.h"

#include "Console.h"
#include "ProgressBar.h"

#include <Import/ModelImporter.h>

#include <QtCore/QCoreApplication>
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

QString toString(const ImportProgress &progress)
{
    if (progress.step == ImportProgress::File)
        return QStringLiteral("%1 %").arg(progress.done);
    const QString what = progress.step == ImportProgress::Meshes ? QStringLiteral("mesh") : QStringLiteral("image");
    return progress.total > 0 ? QStringLiteral("%1 %2 of %3").arg(what).arg(progress.done).arg(progress.total)
                              : QStringLiteral("%1 %2").arg(what).arg(progress.done);
}

bool readFile(
    const QString &file, const QString &name, const ModelOptions &options, ImportedScene *scene, QString *error)
{
    bool isRead = false;
    {
        ActivityLine activity(QStringLiteral("reading %1, %2").arg(name, size(file)));
        ImportOptions import = options.import;
        import.progress = [&activity](const ImportProgress &progress) {
            activity.setStep(progress.step, toString(progress));
    };
    isRead = importModel(file, import, scene, error);
}
// A model of standard input has a file that nobody knows.
error->replace(file, name);
scene->warnings.replaceInStrings(file, name);
return isRead;
} // namespace

} // namespace Velmora::Kvz

QString displayName(const QString &model)
{
    return model == ModelOptions::standardStream ? QStringLiteral("standard input") : model;
}

bool readModel(const QString &model, const ModelOptions &options, ImportedScene *scene, QString *error)
{
    const QString name = displayName(model);
    if (model != ModelOptions::standardStream) {
        if (!readFile(model, name, options, scene, error))
            return false;
    } else {
        if (isatty(STDIN_FILENO)) {
            *error = QStringLiteral("standard input is a terminal; send a model into it, such as cat car.glb | %1 -")
                         .arg(QCoreApplication::arguments().constFirst());
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
    return true;
}

} // namespace Velmora::Kvz
