// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QFile>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Velmora::Kvz {

/// What assimp keeps to itself of an OBJ file. Where an index of a texture coordinate or normal is past the end, it drops all
/// of the mesh and says nothing; nor does it tell which material libraries the file names.
class ObjText
{
public:
    explicit ObjText(QFile *file);

    /// What is wrong with the indices, in one line; empty when nothing is.
    QString problem() const { return m_problem; }
    /// What is said of the material libraries, when these files could not be opened. For each that is missing assimp takes
    /// the one that is called like the model.
    QStringList libraryWarnings(const QString &file, const QStringList &missingFiles) const;

private:
    struct Kind
    {
        const char *keyword;
        const char *name;
        qint64 count = 0;
        qint64 largest = 0; // of the indices; lines further down may still define it
        qint64 largestLine = 0;
    };

    void readLine(const QByteArray &text);
    void readIndex(Kind *kind, qint64 index);
    void report(const Kind &kind, qint64 line, qint64 index);

    Kind m_kinds[2] = {{"vt", "texture coordinate"}, {"vn", "normal"}};
    qint64 m_line = 0;
    QStringList m_libraries;
    QString m_problem;
};

} // namespace Velmora::Kvz
