// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QVector>

#include <memory>

namespace draco {
class Mesh;
}

namespace Velmora::Kvz {

class ImportBudget;

/// Triangles that were compressed by Draco, as KHR_draco_mesh_compression holds them.
class DracoMesh
{
public:
    DracoMesh();
    ~DracoMesh();
    Q_DISABLE_COPY(DracoMesh)

    /// Decodes the bytes of a buffer view. Takes its vertices from the budget, before it makes room for what the data declares.
    /// False for damaged data, for data of another version than 2.2, which is the one of glTF, and where the budget ends.
    bool decode(const QByteArray &data, ImportBudget *budget);

    int vertexCount() const;
    /// Three for each triangle, as the data has them: damaged data may reach past the vertices.
    QVector<quint32> corners() const;
    /// The attribute with this unique number: for each vertex `components` numbers of a component type of glTF, without gaps.
    /// Null where there is no such attribute, and where its numbers do not fit the type.
    QByteArray values(int attribute, int componentType, int components) const;

private:
    std::unique_ptr<draco::Mesh> m_mesh;
};

} // namespace Velmora::Kvz
