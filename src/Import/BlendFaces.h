// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QStringList>

#include <vector>

struct aiScene;

namespace Velmora::Kvz {

/// The faces of a Blender file that are flat, of which assimp says nothing: it hands out the smooth normals of vertices. And empty
/// slots of materials, at which it ends the process. Read from the file's own description of its structures, packed by gzip
/// or not.
class BlendFaces
{
public:
    /// Looks through a file once. Of one that is damaged, or of a kind that it does not know, it has no meshes.
    explicit BlendFaces(const QByteArray &content);

    /// The file, unpacked, with something in such slots. Null where there are none.
    QByteArray plainContent() const { return m_plain; }
    /// Gives the flat faces of what assimp read, before it is triangulated, their normals.
    void complete(const aiScene *scene);
    /// Lines without the file's name, for meshes with flat faces that assimp has changed and for those with empty slots.
    QStringList warnings() const { return m_warnings; }

private:
    /// By material, as assimp splits meshes: for each face whether it is flat.
    using Parts = std::vector<std::vector<bool>>;

    QByteArray m_plain;
    QHash<QByteArray, Parts> m_meshes; // by name
    QStringList m_warnings;
};

} // namespace Velmora::Kvz
