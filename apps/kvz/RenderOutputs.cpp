// SPDX-License-Identifier: MIT
#include "RenderOutputs.h"

#include "Console.h"
#include "ModelInput.h"

#include <Host/ImageWriter.h>

#include <QtCore/QDir>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QRegularExpression>

#include <cmath>

namespace Velmora::Kvz {

namespace {

/// Such as "02-geometry-Normal.png": place in the chain, pass, role of the port.
QString captureFile(const RenderChain &chain, const RenderChain::Capture &capture)
{
    QString name =
        QStringLiteral("%1-%2-%3.png")
            .arg(QString::number(chain.description().findPass(capture.pass) + 1).rightJustified(2, QLatin1Char('0')),
                capture.pass, capture.port.section(QLatin1Char('_'), -1));
    return name.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9._-]")), QStringLiteral("_"));
}

/// To the microsecond.
QJsonValue milliseconds(double value)
{
    return value < 0 ? QJsonValue() : QJsonValue(std::round(value * 1000) / 1000);
}

} // namespace

QString noMemory(const QSize &size)
{
    return QStringLiteral("--size %1x%2: there is no memory for the picture").arg(size.width()).arg(size.height());
}

bool writeCaptures(const Picture &picture, RenderChain *chain, QString *error)
{
    if (!picture.captureFolder.isEmpty() && !QDir().mkpath(picture.captureFolder)) {
        *error = QStringLiteral("%1: the directory cannot be made").arg(picture.captureFolder);
        return false;
    }
    for (const RenderChain::Capture &capture : chain->takeCaptures()) {
        const QString file = QDir(picture.captureFolder).filePath(captureFile(*chain, capture));
        if (!capture.image.isNull() && !writeImage(capture.image, file, error))
            return false;
    }
    return true;
}

QString describePicture(const Picture &picture, const RenderOptions &options, const PhaseTimes &times,
    const TimingTable &passes, const QString &renderer)
{
    QJsonObject line{
        {QStringLiteral("file"), picture.file},
        {QStringLiteral("model"), displayName(options.models[picture.model])},
        {QStringLiteral("view"), options.cameras[picture.camera].text},
        {QStringLiteral("frame"), picture.frame},
        {QStringLiteral("width"), options.size.width()},
        {QStringLiteral("height"), options.size.height()},
        {QStringLiteral("chain"), options.chain},
        {QStringLiteral("samples"), options.samples},
        {QStringLiteral("renderer"), renderer},
        {QStringLiteral("milliseconds"),
            QJsonObject{
                {QStringLiteral("load"), milliseconds(times.load)},
                {QStringLiteral("upload"), milliseconds(times.upload)},
                {QStringLiteral("draw"), milliseconds(times.draw)},
                {QStringLiteral("write"), milliseconds(times.write)},
            }},
        {QStringLiteral("warnings"), QJsonArray::fromStringList(warnings())},
    };
    if (options.timings) {
        QJsonArray rows;
        for (const TimingTable::Medians &pass : passes.medians()) {
            QJsonObject row{{QStringLiteral("pass"), pass.pass}, {QStringLiteral("gpu"), milliseconds(pass.gpu)},
                {QStringLiteral("cpu"), milliseconds(pass.cpu)}};
            if (pass.rests)
                row.insert(QStringLiteral("rests"), true);
            rows.append(row);
        }
        line.insert(QStringLiteral("passes"), rows);
    }
    return QString::fromUtf8(QJsonDocument(line).toJson(QJsonDocument::Compact));
}

} // namespace Velmora::Kvz
