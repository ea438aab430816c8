// SPDX-License-Identifier: MIT
#include "AssimpLoader.h"

#include "FileNames.h"

#include <assimp/DefaultIOSystem.h>
#include <assimp/DefaultLogger.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <QtCore/QFileInfo>

#include <cstring>

namespace Velmora::Kvz {

namespace {

/// Notes the files that cannot be opened: of material libraries the loaders say nothing.
class FileWatcher : public Assimp::DefaultIOSystem
{
public:
    explicit FileWatcher(QStringList *missing)
        : m_missing(missing)
    { }

    Assimp::IOStream *Open(const char *file, const char *mode) override
    {
        Assimp::IOStream *stream = DefaultIOSystem::Open(file, mode);
        if (!stream)
            m_missing->append(bareName(QFile::decodeName(file)));
        return stream;
    }

private:
    QStringList *m_missing;
};

} // namespace

bool isCutPly(QFile *file)
{
    if (file->peek(3) != "ply")
        return false;
    while (!file->atEnd()) {
        if (file->readLine(4096).trimmed() == "end_header")
            return false;
    }
    return true;
}

LoaderLog::LoaderLog()
    : m_owned(Assimp::DefaultLogger::isNullLogger())
{
    if (m_owned)
        Assimp::DefaultLogger::create("", Assimp::Logger::NORMAL, 0);
    Assimp::DefaultLogger::get()->attachStream(&m_stream, Assimp::Logger::Warn);
}

LoaderLog::~LoaderLog()
{
    Assimp::DefaultLogger::get()->detachStream(&m_stream, Assimp::Logger::Warn);
    if (m_owned)
        Assimp::DefaultLogger::kill();
}

void LoaderLog::Stream::write(const char *message)
{
    indicesDropped |= std::strstr(message, "out-of-range indices") != nullptr;
}

AssimpLoader::AssimpLoader(const QString &file)
    : m_file(file)
{
    m_importer.SetIOHandler(new FileWatcher(&m_missingFiles)); // the importer owns it
}

const aiScene *AssimpLoader::read(QString *reason)
{
    const aiScene *scene = m_importer.ReadFile(QFile::encodeName(m_file).constData(), 0);
    if (!scene)
        *reason = failureReason();
    if (scene && m_log.indicesDropped()) {
        *reason = QStringLiteral("a face has an index past the end of its mesh's vertices");
        return nullptr;
    }
    return scene;
}

const aiScene *AssimpLoader::process(QString *reason)
{
    const aiScene *scene =
        m_importer.ApplyPostProcessing(aiProcess_Triangulate | aiProcess_GenUVCoords | aiProcess_TransformUVCoords);
    if (scene && scene->mRootNode)
        return scene;
    *reason = failureReason();
    return nullptr;
}

bool AssimpLoader::isObj() const
{
    return m_importer.GetPropertyInteger("importerIndex") == int(m_importer.GetImporterIndex("obj"));
}

/// Why assimp gave no scene, in one line.
QString AssimpLoader::failureReason() const
{
    const QString suffix = QFileInfo(m_file).suffix();
    const QString text = QString::fromUtf8(m_importer.GetErrorString());
    if (!text.startsWith(QLatin1String("No suitable reader")))
        return text.section(QLatin1Char('\n'), 0, 0).trimmed();
    if (!suffix.isEmpty() && m_importer.IsExtensionSupported(suffix.toUtf8().constData()))
        return QStringLiteral("damaged or truncated: no reader for .%1 files accepts it").arg(suffix);
    return QStringLiteral("unknown type of model file (OBJ, glTF, GLB, PLY, STL and 3DS are known, among others)");
}

} // namespace Velmora::Kvz
