// SPDX-License-Identifier: MIT
#include <Core/Log.h>

#include <QtCore/QMessageLogger>

namespace Velmora::Kvz {

namespace {

QString baseName(const char *file)
{
    QString name = QString::fromUtf8(file);
    name.remove(0, name.lastIndexOf(QLatin1Char('/')) + 1);
    const int dot = name.indexOf(QLatin1Char('.'));
    return dot < 0 ? name : name.left(dot);
}

QByteArray placed(const char *file, int line, const QString &text)
{
    return QString(QLatin1String("[%1:%2] %3")).arg(baseName(file), QString::number(line), text).toUtf8();
}

} // namespace

void logDebug(const char *file, int line, const QString &text)
{
    QMessageLogger(nullptr, 0, nullptr).debug("%s", placed(file, line, text).constData());
}

void logDebug(const QString &text)
{
    QMessageLogger(nullptr, 0, nullptr).debug("%s", text.toUtf8().constData());
}

void logWarning(const char *file, int line, const QString &text)
{
    QMessageLogger(nullptr, 0, nullptr).warning("%s", placed(file, line, text).constData());
}

void logCritical(const char *file, int line, const QString &text)
{
    QMessageLogger(nullptr, 0, nullptr).critical("%s", placed(file, line, text).constData());
}

void logAssertion(const char *file, int line, const QString &condition, const QString &message)
{
    QString source = condition;
    source.replace(QLatin1String("\\%"), QLatin1String("%"));
    logCritical(file, line, QString(QLatin1String("[ !! ] Assertion '%1' failed: %2")).arg(source, message));
}

} // namespace Velmora::Kvz
