// SPDX-License-Identifier: MIT
#include <Chain/LightDescription.h>

#include <Host/NumberList.h>

#include <Chain/NearestNames.h>

#include <QtCore/QStringList>
#include <QtCore/QVector>
#include <QtCore/QtMath>

#include <cmath>

namespace Velmora::Kvz {

namespace {

using Light = ShadowMapManager::Light;

/// In the order of Light::Type.
const char *const typeNames[] = {"directional", "spot", "point"};

constexpr int maximumCascades = 16;

/// The shortest text that reads as the same number.
QString written(float number)
{
    QString text;
    for (int digits = 6; digits <= 9; ++digits) {
        text = QString::number(double(number), 'g', digits);
        if (text.toFloat() == number)
            break;
    }
    return text;
}

QString written(const QVector3D &point)
{
    return QStringLiteral("%1,%2,%3").arg(written(point.x()), written(point.y()), written(point.z()));
}

/// Reads the parts of a light that follow its type; an error says what is wrong with one.
class PartReader
{
public:
    explicit PartReader(LightDescription *light)
        : m_light(*light)
    { }

    QString read(const QString &part)
    {
        const int sign = part.indexOf(QLatin1Char('='));
        const QString key = part.left(sign);
        const QVector<float> n = numbers(part.mid(sign + 1));
        if (sign < 0)
            return readAngles(n);
        if (key == QLatin1String("position"))
            return readPoint(key, n, &m_light.hasPosition, &m_light.position);
        if (key == QLatin1String("target") && m_light.type == Light::Point)
            return QStringLiteral("point lights have no target");
        if (key == QLatin1String("target"))
            return readPoint(key, n, &m_light.hasTarget, &m_light.target);

        const float number = n.size() == 1 ? n[0] : NAN;
        if (key == QLatin1String("cone")) {
            if (m_light.type != Light::Spot)
                return QStringLiteral("only spot lights have a cone");
            m_light.coneAngle = number;
            return number > 0 && number < 180 ? QString()
                                              : QStringLiteral("cone must be above 0 and below 180 degrees");
        }
        if (key == QLatin1String("range")) {
            if (m_light.type == Light::Directional)
                return QStringLiteral("only spot and point lights have a range");
            m_light.range = number;
            return number > 0 ? QString() : QStringLiteral("range must be above 0");
        }
        if (key == QLatin1String("cascades")) {
            if (m_light.type != Light::Directional)
                return QStringLiteral("only directional lights have cascades");
            const bool serves = number >= 1 && number <= maximumCascades && number == std::floor(number);
            m_light.cascades = serves ? int(number) : 0;
            return serves ? QString() : QStringLiteral("cascades must be a whole number from 1 to 16");
        }
        if (key == QLatin1String("intensity")) {
            m_light.intensity = number;
            return number >= 0 ? QString() : QStringLiteral("intensity must be 0 or more");
        }
        if (key == QLatin1String("bias")) {
            m_light.depthBias = number;
            return number >= 0 ? QString() : QStringLiteral("bias must be 0 or more");
        }
        return QStringLiteral("unknown%1")
            .arg(nearestNamesHint(key,
                {QStringLiteral("bias"), QStringLiteral("cascades"), QStringLiteral("cone"),
                    QStringLiteral("intensity"), QStringLiteral("position"), QStringLiteral("range"),
                    QStringLiteral("target")}));
    }

private:
    QString readAngles(const QVector<float> &n)
    {
        if (n.size() != 2 && n.size() != 3)
            return QStringLiteral("expected AZIMUTH,ELEVATION[,DISTANCE] or KEY=VALUE");
        if (n[1] < -90 || n[1] > 90)
            return QStringLiteral("elevation must be from -90 to 90 degrees");
        if (n.size() == 3 && n[2] <= 0)
            return QStringLiteral("distance must be above 0");
        m_light.azimuth = n[0];
        m_light.elevation = n[1];
        if (n.size() == 3)
            m_light.distance = n[2];
        return {};
    }

    static QString readPoint(const QString &key, const QVector<float> &n, bool *has, QVector3D *point)
    {
        if (n.size() != 3)
            return QStringLiteral("%1 must be X,Y,Z").arg(key);
        *has = true;
        *point = QVector3D(n[0], n[1], n[2]);
        return {};
    }

    LightDescription &m_light;
};

} // namespace

bool LightDescription::fromString(const QString &text, LightDescription *light, QString *error)
{
    const QStringList parts = text.split(QLatin1Char(':'));
    LightDescription result;
    QStringList types;
    int type = -1;
    for (const char *name : typeNames) {
        types.append(QString::fromLatin1(name));
        if (parts.first() == types.last())
            type = types.size() - 1;
    }
    if (type < 0) {
        const bool isNear = !nearestNames(parts.first(), types).isEmpty();
        *error = QStringLiteral("\"%1\": expected directional, spot or point%2")
                     .arg(parts.first(), isNear ? nearestNamesHint(parts.first(), types) : QString());
        return false;
    }
    result.type = Light::Type(type);
    PartReader reader(&result);
    for (const QString &part : parts.mid(1)) {
        const QString problem = reader.read(part);
        if (!problem.isEmpty()) {
            *error = QStringLiteral("\"%1\": %2").arg(part, problem);
            return false;
        }
    }
    if (result.hasPosition && result.hasTarget && result.position == result.target) {
        *error = QStringLiteral("\"%1\": position and target are the same point").arg(text);
        return false;
    }
    *light = result;
    return true;
}

QString LightDescription::toString() const
{
    const LightDescription plain;
    QStringList parts{QString::fromLatin1(typeNames[type])};
    if (distance != plain.distance)
        parts.append(QStringLiteral("%1,%2,%3").arg(written(azimuth), written(elevation), written(distance)));
    else if (azimuth != plain.azimuth || elevation != plain.elevation)
        parts.append(QStringLiteral("%1,%2").arg(written(azimuth), written(elevation)));
    const auto add = [&](const char *key, const QString &value) {
        parts.append(QLatin1String(key) + QLatin1Char('=') + value);
    };
    if (hasPosition)
        add("position", written(position));
    if (hasTarget && type != Light::Point)
        add("target", written(target));
    if (type == Light::Spot && coneAngle != plain.coneAngle)
        add("cone", written(coneAngle));
    if (type != Light::Directional && range != plain.range)
        add("range", written(range));
    if (type == Light::Directional && cascades != plain.cascades)
        add("cascades", QString::number(cascades));
    if (intensity != plain.intensity)
        add("intensity", written(intensity));
    if (depthBias != plain.depthBias)
        add("bias", written(depthBias));
    return parts.join(QLatin1Char(':'));
}

void LightDescription::place(const QPair<QVector3D, QVector3D> &bounds, ShadowMapManager::Light *light) const
{
    const QVector3D centre = bounds.first / 2 + bounds.second / 2;
    const float size = (bounds.second - bounds.first).length();
    const float radius = size > 0 ? size / 2 : 0.5f;
    const QVector3D aim = hasTarget ? target : centre;
    const float around = qDegreesToRadians(azimuth);
    const float above = qDegreesToRadians(elevation);
    const QVector3D outwards(std::sin(around) * std::cos(above), std::sin(above), std::cos(around) * std::cos(above));

    light->type = type;
    light->position = hasPosition ? position : aim + outwards * (distance * radius);
    light->direction = aim - light->position;
    light->coneAngle = coneAngle;
    light->range = range > 0 ? range : 2 * ((centre - light->position).length() + radius);
    light->cascades = cascades;
    light->intensity = intensity;
    light->depthBias = depthBias;
}

} // namespace Velmora::Kvz
