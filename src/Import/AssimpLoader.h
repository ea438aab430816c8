// SPDX-License-Identifier: MIT
#pragma once

#include <assimp/Importer.hpp>
#include <assimp/LogStream.hpp>

#include <QtCore/QByteArray>
#include <QtCore/QFile>
#include <QtCore/QString>
#include <QtCore/QStringList>

struct aiImporterDesc;
struct aiScene;

namespace Velmora::Kvz {

/// Whether a file is PLY with no line that ends its header: assimp 5.2 crashes on one or never comes back.
bool isCutPly(QFile *file);

class ImportBudget;
class ModelText;

/// Keeps assimp's warnings off the terminal, and notes that a loader dropped faces, which only its log tells. A logger
/// that the host installed stays in force.
class LoaderLog
{
public:
    LoaderLog();
    ~LoaderLog();
    Q_DISABLE_COPY(LoaderLog)

    bool indicesDropped() const { return m_stream.indicesDropped; }

private:
    struct Stream : Assimp::LogStream
    {
        void write(const char *message) override;
        bool indicesDropped = false;
    };

    Stream m_stream;
    bool m_owned;
};

/// Reads a file with assimp, and keeps what assimp's interface does not tell: files that it did not find, and faces that a
/// loader dropped. Mends node trees that a loader left with holes.
class AssimpLoader
{
public:
    /// What `text` has in the place of a file's content is read instead of it. All that is read counts against the budget.
    AssimpLoader(const QString &file, ModelText *text, ImportBudget *budget);

    /// The scene as the loader left it, without any post-processing; null with a reason. Belongs to this object.
    const aiScene *read(QString *reason);
    /// Triangles alone, with texture coordinates as the file means them; null with a reason. Post-processing trusts its
    /// input, so what was read is to be checked before.
    const aiScene *process(QString *reason);
    /// The first suffix of the loader that read the file: "obj", "gltf", "stl" and so on.
    QByteArray format() const;
    /// Its name, as modelFormats() has it.
    QString formatName() const;
    /// Bare names of the files that the loader asked for and that cannot be opened.
    QStringList missingFiles() const { return m_missingFiles; }

private:
    const aiImporterDesc *description() const;
    QString failureReason() const;

    QString m_file;
    ImportBudget *m_budget;
    LoaderLog m_log;
    QStringList m_missingFiles;
    Assimp::Importer m_importer;
};

} // namespace Velmora::Kvz
