// SPDX-License-Identifier: MIT
#include "NodePose.h"

#include <algorithm>

namespace Velmora::Kvz {

namespace {

QQuaternion toQuaternion(const QVector4D &value)
{
    return QQuaternion(value.w(), value.toVector3D()).normalized();
}

QVector4D toVector(const QQuaternion &rotation)
{
    return QVector4D(rotation.vector(), rotation.scalar());
}

/// The value at a key; with CubicSpline the middle one of its three.
QVector4D keyValue(const ImportedAnimation::Channel &channel, int key)
{
    return channel.interpolation == ImportedAnimation::CubicSpline ? channel.values.value(3 * key + 1)
                                                                   : channel.values.value(key);
}

/// Hermite's form, with tangents in units per second, as glTF 2.0 defines it.
QVector4D splineValue(const ImportedAnimation::Channel &channel, int key, float t, float span)
{
    const QVector4D first = channel.values.value(3 * key + 1);
    const QVector4D outTangent = channel.values.value(3 * key + 2) * span;
    const QVector4D inTangent = channel.values.value(3 * key + 3) * span;
    const QVector4D second = channel.values.value(3 * key + 4);
    const float t2 = t * t;
    const float t3 = t2 * t;
    return first * (2 * t3 - 3 * t2 + 1) + outTangent * (t3 - 2 * t2 + t) + second * (3 * t2 - 2 * t3)
        + inTangent * (t3 - t2);
}

/// The number of the animation that the options name; -1 with a problem where there is none.
int chosenAnimation(const QString &name, const QVector<ImportedAnimation> &animations, QString *problem)
{
    if (name.isEmpty() && !animations.isEmpty())
        return 0;
    QStringList names;
    for (int i = 0; i < animations.size(); ++i) {
        if (animations[i].name == name)
            return i;
        names.append(QStringLiteral("\"%1\"").arg(animations[i].name));
    }
    bool isNumber = false;
    const int number = name.toInt(&isNumber);
    if (isNumber && number >= 0 && number < animations.size())
        return number;
    *problem = animations.isEmpty() ? QStringLiteral("has no animation")
                                    : QStringLiteral("has no animation \"%1\"; it has %2 (numbers from 0)")
                                          .arg(name, names.join(QStringLiteral(", ")));
    return -1;
}

} // namespace

QMatrix4x4 NodePose::matrix() const
{
    QMatrix4x4 result;
    result.translate(translation);
    result.rotate(rotation);
    result.scale(scale);
    return result;
}

QVector4D valueAt(const ImportedAnimation::Channel &channel, float time)
{
    const bool isRotation = channel.path == ImportedAnimation::Rotation;
    const auto after = std::upper_bound(channel.times.begin(), channel.times.end(), time);
    const int next = int(after - channel.times.begin());
    if (next == 0 || next == channel.times.size()) {
        const QVector4D value = keyValue(channel, next == 0 ? 0 : next - 1);
        return isRotation ? toVector(toQuaternion(value)) : value;
    }
    const float span = channel.times[next] - channel.times[next - 1];
    const float t = span > 0 ? (time - channel.times[next - 1]) / span : 0;
    const QVector4D first = keyValue(channel, next - 1);
    const QVector4D second = keyValue(channel, next);
    QVector4D value = first;
    if (channel.interpolation == ImportedAnimation::CubicSpline)
        value = splineValue(channel, next - 1, t, span);
    else if (channel.interpolation == ImportedAnimation::Linear && isRotation)
        return toVector(QQuaternion::slerp(toQuaternion(first), toQuaternion(second), t));
    else if (channel.interpolation == ImportedAnimation::Linear)
        value = first * (1 - t) + second * t;
    return isRotation ? toVector(toQuaternion(value)) : value;
}

bool poseNodes(const ImportOptions &options, const QVector<NodePose> &poses, ImportedScene *scene, QString *problem)
{
    if (options.animation.isEmpty() && !(options.time >= 0))
        return true;
    const int number = chosenAnimation(options.animation, scene->animations, problem);
    if (number < 0)
        return false;
    QVector<NodePose> posed = poses;
    QVector<bool> isPosed(poses.size());
    for (const ImportedAnimation::Channel &channel : qAsConst(scene->animations[number].channels)) {
        if (channel.node < 0 || channel.node >= posed.size() || channel.times.isEmpty())
            continue;
        const QVector4D value = valueAt(channel, float(std::max(options.time, 0.0)));
        NodePose &pose = posed[channel.node];
        isPosed[channel.node] = true;
        if (channel.path == ImportedAnimation::Translation)
            pose.translation = value.toVector3D();
        else if (channel.path == ImportedAnimation::Scale)
            pose.scale = value.toVector3D();
        else
            pose.rotation = toQuaternion(value);
    }
    for (int node = 0; node < posed.size(); ++node) {
        if (isPosed[node])
            scene->nodes[node].matrix = posed[node].matrix();
    }
    return true;
}

QVector<QMatrix4x4> worldMatrices(const QVector<ImportedNode> &nodes, const QMatrix4x4 &root)
{
    QVector<QMatrix4x4> world;
    world.reserve(nodes.size());
    for (const ImportedNode &node : nodes)
        world.append((node.parent < 0 ? root : world.at(node.parent)) * node.matrix);
    return world;
}

bool upMatrix(const QString &axis, QMatrix4x4 *matrix)
{
    const bool negative = axis.startsWith(QLatin1Char('-'));
    const QString name = (negative ? axis.mid(1) : axis).toLower();
    *matrix = QMatrix4x4();
    if (name == QLatin1String("z"))
        matrix->rotate(negative ? 90 : -90, 1, 0, 0);
    else if (name == QLatin1String("x"))
        matrix->rotate(negative ? -90 : 90, 0, 0, 1);
    else if (name == QLatin1String("y") && negative)
        matrix->rotate(180, 1, 0, 0);
    return name == QLatin1String("x") || name == QLatin1String("y") || name == QLatin1String("z");
}

} // namespace Velmora::Kvz
