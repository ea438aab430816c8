// SPDX-License-Identifier: MIT
#include "PortListing.h"

#include <Chain/PassInfo.h>
#include <Core/RenderPass.h>

#include <QtCore/QFile>
#include <QtCore/QRegularExpression>
#include <QtCore/QSize>
#include <QtGui/QColor>

#include <gtest/gtest.h>

namespace Velmora::Kvz {

namespace {

const QString columnGap = QStringLiteral("  ");

QString typeText(const PortInfo &port)
{
    return typeName(port.type).replace(QLatin1String(" *"), QLatin1String("*"));
}

/// With as many digits as distinguish it from its neighbours, and at least one after the point.
QString floatText(float value)
{
    QString text;
    for (int digits = 6; digits < 10 && (text.isEmpty() || text.toFloat() != value); ++digits)
        text = QString::number(double(value), 'g', digits);
    return text.contains(QLatin1Char('.')) ? text : text + QStringLiteral(".0");
}

} // namespace

QMap<QString, QStringList> portListing()
{
    QFile file(QStringLiteral(KVZ_PORT_LISTING));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << KVZ_PORT_LISTING;
    static const QRegularExpression gap(QStringLiteral(" {2,}"));
    QMap<QString, QStringList> listing;
    QString className;
    for (const QString &line : QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'))) {
        if (line.startsWith(QLatin1Char('#')) || line.isEmpty())
            continue;
        if (line.startsWith(QLatin1Char(' '))) {
            listing[className].append(line.trimmed().split(gap).join(columnGap));
        } else {
            className = line;
            EXPECT_FALSE(listing.contains(className)) << "listed twice: " << qPrintable(className);
            listing.insert(className, {});
        }
    }
    return listing;
}

QStringList portRows(const RenderPass &pass, const PassInfo &info)
{
    QStringList rows;
    const auto append = [&rows](const QStringList &columns) { rows.append(columns.join(columnGap)); };
    for (int i = 0; i < pass.numInputs(); ++i) {
        const QVariant value = pass.defaultValue(i);
        QString type = i < info.inputs.size() ? typeText(info.inputs[i]) : QString();
        if (value.isValid() && QLatin1String(value.typeName()) != type)
            type += QStringLiteral(" constructed as %1").arg(QLatin1String(value.typeName()));
        append({QStringLiteral("in"), QString::number(i), pass.inputName(i), type, defaultText(value)});
    }
    for (int i = 0; i < pass.numOutputs(); ++i) {
        const QString type = i < info.outputs.size() ? typeText(info.outputs[i]) : QString();
        append({QStringLiteral("out"), QString::number(i), pass.outputName(i), type});
    }
    return rows;
}

QString defaultText(const QVariant &value)
{
    switch (int(value.userType())) {
    case QMetaType::UnknownType:
        return QStringLiteral("-");
    case QMetaType::Float:
        return floatText(value.toFloat());
    case QMetaType::QSize: {
        const QSize size = value.toSize();
        return QStringLiteral("%1 by %2").arg(size.width()).arg(size.height());
    }
    case QMetaType::QColor: {
        const auto color = value.value<QColor>();
        const QString rgb = QStringLiteral("(%1, %2, %3").arg(color.red()).arg(color.green()).arg(color.blue());
        return color.alpha() == 255 ? rgb + QLatin1Char(')') : QStringLiteral("%1, %2)").arg(rgb).arg(color.alpha());
    }
    default:
        return value.toString();
    }
}

} // namespace Velmora::Kvz
