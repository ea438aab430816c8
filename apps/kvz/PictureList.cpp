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
    return model == ModelOptions::standardStream ? QStringLiteral("stdin") : QFileInfo(model).completeBaseName();
}

/// The files, or the directories, of all pictures: each may have only one.
class Places
{
public:
    Places(const RenderOptions &options, const char *option, const QString &given, const NameTemplate &name)
        : m_options(options),
          m_option(QLatin1String(option)),
          m_given(given),
          m_name(name)
    { }

    /// The place of a picture. False when an earlier one has it.
    bool take(const Picture &picture, QString *place)
    {
        const CameraChoice &camera = m_options.cameras[picture.camera];
        *place = m_name.fileName(
            {modelName(m_options.models[picture.model]), NameTemplate::plain(camera.text), picture.frame});
        const QString path = QDir::cleanPath(QFileInfo(*place).absoluteFilePath());
        const auto taken = m_taken.find(path);
        if (taken != m_taken.end()) {
            m_problem = problem(*place, *taken, picture);
            return false;
        }
        m_taken.insert(path, picture);
        return true;
    }
    /// Why a place was refused, and what to do about it.
    QString problem() const { return m_problem; }

private:
    QString problem(const QString &place, const Picture &first, const Picture &second) const
    {
        QStringList missing;
        const auto miss = [&](bool differs, const char *name) {
            if (differs && !m_name.has(QLatin1String(name)))
                missing.append(QStringLiteral("{%1}").arg(QLatin1String(name)));
        };
        miss(m_options.models.size() > 1, "model");
        miss(m_options.cameras.size() > 1, "view");
        miss(m_options.frames > 1, "frame");
        const QString start = QStringLiteral("%1 %2: ").arg(m_option, m_given);
        if (!missing.isEmpty())
            return start
                + QStringLiteral("%1 pictures need names of their own; put %2 into it")
                      .arg(QString::number(m_options.pictureCount()), missing.join(QStringLiteral(" and ")));
        return start
            + QStringLiteral("%1 would hold both %2 and %3; render them in calls of their own")
                  .arg(place, sourceOf(first), sourceOf(second));
    }
    QString sourceOf(const Picture &picture) const
    {
        return QStringLiteral("%1 from %2")
            .arg(m_options.models[picture.model], m_options.cameras[picture.camera].text);
    }

    const RenderOptions &m_options;
    QString m_option;
    QString m_given;
    const NameTemplate &m_name;
    QHash<QString, Picture> m_taken; ///< By whole path.
    QString m_problem;
};

/// Why a picture cannot be written, in one line; empty when it should work.
QString writingProblem(const Picture &picture, const RenderOptions &options)
{
    const QString problem = options.writesToStandardOutput() ? QString() : imageFileProblem(picture.file);
    if (!problem.isEmpty())
        return QStringLiteral("%1: %2").arg(picture.file, problem);
    if (!picture.captureFolder.isEmpty() && !canMakeFolder(picture.captureFolder))
        return QStringLiteral("%1: the directory cannot be made").arg(picture.captureFolder);
    return {};
}

} // namespace

bool listPictures(const RenderOptions &options, QVector<Picture> *pictures, QString *error)
{
    QVector<Picture> list;
    Places files(options, "-o", options.output, options.outputName);
    Places folders(options, "--capture", options.captureFolder, options.captureName);
    for (int i = 0; i < options.pictureCount(); ++i) {
        Picture picture;
        picture.frame = i % options.frames;
        picture.camera = i / options.frames % options.cameras.size();
        picture.model = i / options.frames / options.cameras.size();
        const bool captures = !options.captureFolder.isEmpty();
        if (!files.take(picture, &picture.file) || (captures && !folders.take(picture, &picture.captureFolder))) {
            *error = files.problem() + folders.problem();
            return false;
        }
        list.append(picture);
    }
    for (const Picture &picture : qAsConst(list)) {
        *error = writingProblem(picture, options);
        if (!error->isEmpty())
            return false;
    }
    *pictures = list;
    return true;
}

} // namespace Velmora::Kvz
