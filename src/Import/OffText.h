// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtGui/QVector2D>
#include <QtGui/QVector3D>
#include <QtGui/QVector4D>

#include <optional>
#include <vector>

struct aiMesh;

namespace Velmora::Kvz {

/// What assimp keeps to itself or reads wrongly of an OFF file: the colours of its faces, indices past the end, which it takes for
/// the last vertex, and faces of more than nine corners, which it drops: a triangle stands in for each until it has read the rest. Comments and empty lines cost it faces. Whatever vertices
/// have beside a position of three numbers is read here: of all kinds that a keyword tells, assimp has a few right.
class OffText
{
public:
    /// Looks through the text once.
    explicit OffText(const QByteArray &text);

    /// What is wrong with the indices, in one line; empty when nothing is.
    QString problem() const { return m_problem; }
    /// The text as assimp reads it rightly. Null where the file is already so.
    QByteArray plainText() const { return m_plain; }
    /// Gives a mesh, before triangulation, what its vertices have, its faces of many corners, and the corners of each face the colour
    /// of the face: vertices that faces share are repeated. Faces without a colour among others are light grey. A mesh with colours of its vertices
    /// keeps those.
    void complete(aiMesh *mesh);
    /// What was left out, a line each.
    QStringList warnings() const;

private:
    /// What a keyword such as "STCN4OFF" says that a vertex has beside three numbers.
    struct Kind
    {
        bool hasTexCoords = false;
        bool hasColours = false;
        bool hasNormals = false;
        bool isHomogeneous = false; ///< Positions have four numbers, the last of which divides the others.
        bool hasDimension = false; ///< A line behind the keyword has the number of dimensions.

        bool isPlain() const { return !hasTexCoords && !hasColours && !hasNormals && !isHomogeneous; }
        bool read(const QByteArray &keyword);
    };

    struct LargeFace
    {
        size_t number; ///< Among the faces that assimp keeps.
        std::vector<unsigned> corners;
    };

    void read(const QByteArray &text);
    bool readVertex(const char *at, const char *end, int number);
    void completeVertices(aiMesh *mesh) const;
    void restoreLargeFaces(aiMesh *mesh) const;
    void colourFaces(aiMesh *mesh);
    void readFace(const char *at, const char *end, qint64 vertices, int number);
    void readColour(const char *at, const char *end);

    QString m_problem;
    Kind m_kind;
    QByteArray m_positions; // lines of three numbers, of a kind that is not plain
    std::vector<QVector3D> m_normals; // of vertices, as the others below; empty where the kind has none
    std::vector<std::optional<QVector4D>> m_vertexColours;
    std::vector<QVector2D> m_texCoords;
    std::vector<std::optional<QVector4D>> m_colours; // by the faces that assimp keeps
    QByteArray m_plain;
    bool m_hasColours = false;
    int m_mapped = 0; // faces whose colour is a number of a colour map
    std::vector<LargeFace> m_largeFaces;
    QHash<int, QByteArray> m_replaced; // lines of large faces, by number, while the text is read
    size_t m_faceCount = 0; // of the faces that assimp keeps
    bool m_isOverruled = false; // by the colours of vertices
};

} // namespace Velmora::Kvz
