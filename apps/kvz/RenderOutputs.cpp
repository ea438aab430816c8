// SPDX-License-Identifier: MIT
#include "RenderOutputs.h"

#include "Console.h"

#include <Host/ImageWriter.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>

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

QString noFolder(const QString &folder)
{
    return QStringLiteral("%1: the directory cannot be made").arg(folder);
}

/// Such as "02-geometry-Normal.png": place in the chain, pass, role of the port.
QString captureFile(const RenderChain &chain, const RenderChain::Capture &capture)
{
    QString name =
        QStringLiteral("%1-%2-%3.png")
            .arg(QString::number(chain.description().findPass(capture.pass) + 1).rightJustified(2, QLatin1Char('0')),
                capture.pass, capture.port.section(QLatin1Char('_'), -1));
    return name.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9._-]")), QStringLiteral("_"));
}

} // namespace

QString outputProblem(const RenderOptions &options)
{
    const QString problem = imageFileProblem(options.output);
    if (!problem.isEmpty())
        return QStringLiteral("%1: %2").arg(options.output, problem);
    if (!options.captureFolder.isEmpty() && !canMakeFolder(options.captureFolder))
        return noFolder(options.captureFolder);
    return {};
}

QString noMemory(const QSize &size)
{
    return QStringLiteral("--size %1x%2: there is no memory for the picture").arg(size.width()).arg(size.height());
}

int writeResults(const QImage &picture, RenderChain *chain, const RenderOptions &options)
{
    QString error;
    if (picture.isNull())
        return fail(noMemory(options.size));
    if (!options.captureFolder.isEmpty() && !QDir().mkpath(options.captureFolder))
        return fail(noFolder(options.captureFolder));
    for (const RenderChain::Capture &capture : chain->takeCaptures()) {
        const QString file = QDir(options.captureFolder).filePath(captureFile(*chain, capture));
        if (!capture.image.isNull() && !writeImage(capture.image, file, &error))
            return fail(error);
    }
    if (!writeImage(picture, options.output, &error))
        return fail(error);
    return Success;
}

} // namespace Velmora::Kvz
