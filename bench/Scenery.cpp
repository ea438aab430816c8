// SPDX-License-Identifier: MIT
#include "Scenery.h"

#include <GL/AutoBinder.h>
#include <GL/Texture.h>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

QMatrix4x4 perspective(const QRect &viewport, float fieldOfView, float nearPlane, float farPlane)
{
    QMatrix4x4 projection;
    projection.perspective(fieldOfView, float(viewport.width()) / float(viewport.height()), nearPlane, farPlane);
    return projection;
}

void filterLinearly(Texture *texture)
{
    AutoBinder binder(texture);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
}

MeshData quadMesh(float right)
{
    MeshData mesh;
    mesh.positions = {{-1, -1, 0}, {right, -1, 0}, {right, 1, 0}, {-1, 1, 0}};
    mesh.normals = QVector<QVector3D>(4, QVector3D(0, 0, 1));
    mesh.texCoords = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
    mesh.indices = {0, 1, 2, 0, 2, 3};
    return mesh;
}

MeshData gridMesh(int columns, int rows, const std::function<GridVertex(float column, float row)> &vertex)
{
    MeshData mesh;
    for (int row = 0; row <= rows; ++row) {
        for (int column = 0; column <= columns; ++column) {
            const QVector2D place(float(column) / float(columns), float(row) / float(rows));
            const GridVertex corner = vertex(place.x(), place.y());
            mesh.positions.append(corner.position);
            mesh.normals.append(corner.normal);
            mesh.texCoords.append(place);
        }
    }
    const auto below = quint32(columns) + 1;
    for (quint32 row = 0; row < quint32(rows); ++row) {
        for (quint32 column = 0; column < quint32(columns); ++column) {
            const quint32 corner = row * below + column;
            mesh.indices << corner << corner + below << corner + 1;
            mesh.indices << corner + 1 << corner + below << corner + below + 1;
        }
    }
    return mesh;
}

} // namespace Velmora::Kvz
