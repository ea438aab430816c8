// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtGui/QVector4D>

#include <optional>
#include <vector>

struct aiMesh;

namespace Velmora::Kvz {

/// What assimp keeps to itself or reads wrongly of an OFF file: the colours of its faces, indices past the end, which it takes for
/// the last vertex, and faces of more than nine corners, which it drops. Comments and empty lines cost it faces.
class OffText
{
public:
    /// Looks through the text once.
    explicit OffText(const QByteArray &text);

    /// What is wrong with the indices, in one line; empty when nothing is.
    QString problem() const { return m_problem; }
    /// The text as assimp reads it rightly. Null where the file is already so.
    QByteArray plainText() const { return m_plain; }
    /// Whether a face has a colour of its own.
    bool hasColours() const { return m_hasColours; }
    /// Gives the corners of each face of a mesh the colour of the face: vertices that faces share are repeated. Faces without a
    /// colour among others are light grey. A mesh with colours of its vertices keeps those. Before triangulation.
    void colourFaces(aiMesh *mesh);
    /// What was left out, a line each.
    QStringList warnings() const;

private:
    void read(const QByteArray &text);
    void readFace(const char *at, const char *end, qint64 vertices, int number);
    void readColour(const char *at, const char *end);

    QString m_problem;
    std::vector<std::optional<QVector4D>> m_colours; // by the faces that assimp keeps
    QByteArray m_plain;
    bool m_hasColours = false;
    int m_mapped = 0; // faces whose colour is a number of a colour map
    int m_dropped = 0; // faces of more than nine corners
    bool m_isOverruled = false; // by the colours of vertices
};

} // namespace Velmora::Kvz
