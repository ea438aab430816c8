// SPDX-License-Identifier: MIT
#pragma once

#include "ObjSmoothing.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QSet>
#include <QtCore/QString>
#include <QtCore/QStringList>

struct aiScene;

namespace Velmora::Kvz {

class MtlText;

/// What assimp keeps to itself or reads wrongly of an OBJ file. Where an index of a texture coordinate or normal is past the end,
/// it drops all of the mesh and says nothing; nor does it tell which material libraries the file names. Numbers that start
/// with a point, lines that start with a space, comments behind values, texture coordinates of one number, several libraries on a
/// line, colours with alpha or of some vertices alone, vertices alone with normals, a byte order mark and UTF-16 are legal
/// or common, and cost it vertices, materials or the whole file.
class ObjText
{
public:
    /// Looks through the text once.
    explicit ObjText(const QByteArray &text);

    /// What is wrong with the indices, in one line; empty when nothing is.
    QString problem() const { return m_problem; }
    /// The text as assimp reads it rightly. Null where the file is already so.
    QByteArray plainText() const { return m_plain; }
    /// Gives the colours of a scene, before it is triangulated, the alpha that assimp does not read: plainText() has put it into red.
    /// Makes faces flat where smoothing is off.
    void complete(aiScene *scene);
    /// What is said of the material libraries, when these files could not be opened. For each that is missing assimp takes
    /// the one that is called like the model.
    QStringList libraryWarnings(const QString &file, const QStringList &missingFiles) const;
    /// A line without the file's name for each material that is in none of these libraries. Where a library is missing, its own
    /// warning says enough.
    QStringList materialWarnings(const MtlText &libraries, const QStringList &missingFiles) const;
    /// What there is to say of its vertices and curves, likewise.
    QStringList warnings() const;

private:
    struct Kind
    {
        const char *keyword;
        const char *name;
        qint64 count = 0;
        qint64 largest = 0; // of the indices; lines further down may still define it
        qint64 largestLine = 0;
    };

    void read(const QByteArray &text);
    void readLine(const char *begin, const char *end);
    void readLibraries(const QByteArray &names);
    void readVertex(const char *begin, const char *end);
    int readNumbers(const char *begin, const char *end, int fewest);
    void readFace(const char *begin, const char *end);
    void readIndex(Kind *kind, qint64 index);
    void report(const Kind &kind, qint64 line, qint64 index);
    bool hasColoursInPart() const { return m_colouredVertices > 0 && m_plainVertices > 0; }
    QString notDrawn() const;

    Kind m_kinds[3] = {{"v", "vertex"}, {"vt", "texture coordinate"}, {"vn", "normal"}};
    qint64 m_line = 0;
    bool m_isOdd = false;
    bool m_hasAlpha = false; // of any colour
    QByteArray m_plain;
    QStringList m_libraries;
    QList<QByteArray> m_materials; // in the order of their first use
    QSet<QByteArray> m_knownMaterials;
    qint64 m_plainVertices = 0;
    qint64 m_colouredVertices = 0;
    qint64 m_curves = 0;
    qint64 m_surfaces = 0;
    bool m_hasElements = false; // faces, lines or points
    ObjSmoothing m_smoothing;
    QString m_problem;
};

} // namespace Velmora::Kvz
