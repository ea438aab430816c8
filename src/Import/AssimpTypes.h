// SPDX-License-Identifier: MIT
#pragma once

#include <assimp/mesh.h>
#include <assimp/types.h>

#include <QtCore/QString>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector3D>

#include <algorithm>
#include <cmath>

struct aiMaterial;

// The values of assimp as those of Qt.
namespace Velmora::Kvz {

inline QString toQString(const aiString &text)
{
    return QString::fromUtf8(text.C_Str(), int(text.length));
}

inline QVector3D toQVector(const aiVector3D &vector)
{
    return {vector.x, vector.y, vector.z};
}

inline QMatrix4x4 toQMatrix(const aiMatrix4x4 &m)
{
    return {m.a1, m.a2, m.a3, m.a4, m.b1, m.b2, m.b3, m.b4, m.c1, m.c2, m.c3, m.c4, m.d1, m.d2, m.d3, m.d4};
}

inline bool isFinite(const QVector3D &vector)
{
    return std::isfinite(vector.x()) && std::isfinite(vector.y()) && std::isfinite(vector.z());
}

inline bool isFinite(const QMatrix4x4 &matrix)
{
    return std::all_of(
        matrix.constData(), matrix.constData() + 16, [](float element) { return std::isfinite(element); });
}

/// How messages call a mesh.
inline QString meshName(const aiMesh &mesh)
{
    return mesh.mName.length ? QStringLiteral("mesh \"%1\"").arg(toQString(mesh.mName)) : QStringLiteral("a mesh");
}

/// The two sets of texture coordinates that the textures of a material are read by: that of its base colour, and the first
/// other one that any of its textures asks for.
struct TextureSets
{
    int base = 0;
    int other = 1;
};

TextureSets textureSetsOf(const aiMaterial &material);

} // namespace Velmora::Kvz
