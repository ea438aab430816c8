// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QSet>

#include <vector>

struct aiScene;

namespace Velmora::Kvz {

/// Which faces of an OBJ file are flat: those behind "s off" or "s 0". Assimp does not read smoothing groups. Faces of all other groups
/// count as one, and so do those of a file that says nothing: they are smooth but for sharp edges.
class ObjSmoothing
{
public:
    /// An "s" line with this value.
    void setGroup(const QByteArray &value) { m_isFlat = value == "off" || value == "0"; }
    /// An "f" line of three corners or more.
    void addFace(int corners);
    /// An "o" or "g" line. Assimp adds to an object that it knows by name, and faces lose their order.
    void addObject(bool isGroup, const QByteArray &name);

    /// Gives flat faces of a scene, before it is triangulated, their normals, in meshes that have none. Where a mesh has smooth faces too,
    /// the flat ones become a mesh of their own.
    void complete(aiScene *scene);
    /// Whether there are flat faces that could not be told from the others.
    bool isLost() const { return m_isLost; }

private:
    struct Run ///< Of faces that are alike.
    {
        bool isFlat;
        size_t faces;
        size_t corners;
    };

    bool matches(const aiScene &scene, std::vector<std::vector<bool>> *flat) const;

    std::vector<Run> m_runs;
    QSet<QByteArray> m_objects;
    bool m_isFlat = false;
    bool m_hasFlat = false;
    bool m_isReordered = false;
    bool m_isLost = false;
};

} // namespace Velmora::Kvz
