// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QtGlobal>

#include <vector>

struct aiMesh;
struct aiScene;

namespace Velmora::Kvz {

/// The smoothing groups of a 3DS file. Assimp smooths faces of no group with all around them; by the format they are flat, and so are
/// all of a mesh that has no groups.
class ThreeDsFaces
{
public:
    /// Looks through a file once.
    explicit ThreeDsFaces(const QByteArray &content);

    /// Gives what assimp read, before it is triangulated, the normals that the groups ask for, of meshes with flat faces.
    void complete(const aiScene *scene) const;

private:
    struct Group
    {
        QByteArray material;
        std::vector<size_t> faces;
    };

    struct Mesh
    {
        std::vector<quint32> smoothing; // by face
        std::vector<Group> groups; // by material, those without one last
    };

    void readChunks(const QByteArray &content, int begin, int end, int depth);
    void readFaces(const QByteArray &content, int begin, int end);

    std::vector<Mesh> m_meshes;
};

} // namespace Velmora::Kvz
