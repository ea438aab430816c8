// SPDX-License-Identifier: MIT
#pragma once

#include <Import/ImportOptions.h>
#include <Import/ImportedScene.h>

#include <QtGui/QQuaternion>

namespace Velmora::Kvz {

/// The parts of a node's matrix that animations change.
struct NodePose
{
    QVector3D translation;
    QQuaternion rotation;
    QVector3D scale{1, 1, 1};

    QMatrix4x4 matrix() const;
};

/// The value of a channel at a time; outside its times the first or last one. Rotations come out of unit length.
QVector4D valueAt(const ImportedAnimation::Channel &channel, float time);

/// Sets the matrices of a scene's nodes as the options ask for. `poses` are the parts of each node's matrix. False with a
/// problem for an animation that the scene does not have; then nothing changes.
bool poseNodes(const ImportOptions &options, const QVector<NodePose> &poses, ImportedScene *scene, QString *problem);

/// The matrix to the world of each node. `root` is that of nodes without a parent.
QVector<QMatrix4x4> worldMatrices(const QVector<ImportedNode> &nodes, const QMatrix4x4 &root);

/// Turns an axis, "x", "-y" and so on, to +y. False for what is no axis.
bool upMatrix(const QString &axis, QMatrix4x4 *matrix);

} // namespace Velmora::Kvz
