// SPDX-License-Identifier: MIT
#include "AssimpLoader.h"

#include "FileNames.h"
#include "FormatNames.h"
#include "ImportBudget.h"
#include "ModelText.h"
#include "PolygonCutter.h"

#include <assimp/DefaultIOSystem.h>
#include <assimp/DefaultLogger.hpp>
#include <assimp/IOStream.hpp>
#include <assimp/MemoryIOWrapper.h>
#include <assimp/ProgressHandler.hpp>
#include <assimp/importerdesc.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>

#include <algorithm>
#include <cstring>
#include <iostream>
#include <limits>
#include <memory>
#include <sstream>
#include <unordered_set>
#include <vector>

namespace Velmora::Kvz {

namespace {

/// A file whose reading counts against the budget: past a limit it reads as if it had ended. While it is open it is in a
/// list, since loaders that refuse a file leave streams behind; those that close one delete it, each in its own way.
class ListedStream : public Assimp::IOStream
{
public:
    using List = std::unordered_set<Assimp::IOStream *>;

    /// Without a budget nothing counts.
    ListedStream(std::unique_ptr<Assimp::IOStream> stream, ImportBudget *budget, List *open)
        : m_stream(std::move(stream)),
          m_budget(budget),
          m_open(open)
    {
        m_open->insert(this);
    }
    ~ListedStream() override { m_open->erase(this); }
    Q_DISABLE_COPY(ListedStream)

    size_t Read(void *buffer, size_t size, size_t count) override
    {
        const size_t left = m_stream->FileSize() - std::min(m_stream->Tell(), m_stream->FileSize());
        const qint64 bytes = qint64(std::min(size > 0 ? count * size : 0, left));
        if (!m_budget)
            return m_stream->Read(buffer, size, count);
        return m_budget->isTimeLeft() && m_budget->takeBytes(bytes) ? m_stream->Read(buffer, size, count) : 0;
    }
    size_t Write(const void *, size_t, size_t) override { return 0; }
    aiReturn Seek(size_t offset, aiOrigin origin) override { return m_stream->Seek(offset, origin); }
    size_t Tell() const override { return m_stream->Tell(); }
    size_t FileSize() const override { return m_stream->FileSize(); }
    void Flush() override { }

private:
    std::unique_ptr<Assimp::IOStream> m_stream;
    ImportBudget *m_budget;
    List *m_open;
};

/// Notes the files that cannot be opened: of material libraries the loaders say nothing. Gives texts that were mended in place of
/// their files.
class FileWatcher : public Assimp::DefaultIOSystem
{
public:
    FileWatcher(const QByteArray &model, ModelText *text, ImportBudget *budget, QStringList *missing)
        : m_model(model),
          m_text(text),
          m_plainModel(text->plainText()),
          m_budget(budget),
          m_missing(missing)
    { }
    ~FileWatcher() override
    {
        while (!m_open.empty())
            delete *m_open.begin();
    }
    Q_DISABLE_COPY(FileWatcher)

    Assimp::IOStream *Open(const char *file, const char *mode) override
    {
        const bool isModel = m_model == file;
        if (isModel && !m_plainModel.isNull())
            return listed(std::make_unique<Assimp::MemoryIOStream>(
                reinterpret_cast<const uint8_t *>(m_plainModel.constData()), size_t(m_plainModel.size())));
        std::unique_ptr<Assimp::IOStream> stream(DefaultIOSystem::Open(file, mode));
        if (!stream) {
            m_missing->append(bareName(QFile::decodeName(file)));
            return nullptr;
        }
        auto counted = std::make_unique<ListedStream>(std::move(stream), m_budget, &m_open);
        const QByteArray mended = isModel ? QByteArray() : mendedText(counted.get(), file);
        if (!mended.isNull())
            return listed(streamOf(mended));
        counted->Seek(0, aiOrigin_SET);
        return counted.release();
    }

private:
    QByteArray mendedText(Assimp::IOStream *stream, const char *file) const
    {
        if (!m_text->hasCompanions() || stream->FileSize() > size_t(std::numeric_limits<int>::max() / 2))
            return {};
        QByteArray content(int(stream->FileSize()), '\0');
        content.resize(int(stream->Read(content.data(), 1, size_t(content.size()))));
        return m_text->plainCompanion(content, QFileInfo(QFile::decodeName(file)).fileName());
    }

    static std::unique_ptr<Assimp::IOStream> streamOf(const QByteArray &text)
    {
        auto *copy = new uint8_t[size_t(text.size())]; // the stream deletes it
        std::copy(text.begin(), text.end(), copy);
        return std::make_unique<Assimp::MemoryIOStream>(copy, size_t(text.size()), true);
    }

    /// Text in memory, which has been counted.
    Assimp::IOStream *listed(std::unique_ptr<Assimp::IOStream> text)
    {
        return new ListedStream(std::move(text), nullptr, &m_open);
    }

    QByteArray m_model;
    ModelText *m_text;
    QByteArray m_plainModel;
    ImportBudget *m_budget;
    QStringList *m_missing;
    ListedStream::List m_open;
};

/// Passes on how far a loader says that it is.
class LoaderProgress : public Assimp::ProgressHandler
{
public:
    explicit LoaderProgress(const ImportBudget *budget)
        : m_budget(budget)
    { }

    bool Update(float share) override
    {
        if (share >= 0) // Below: it does not know.
            m_budget->report(ImportProgress::File, int(100 * std::min(share, 1.0f)), 100);
        return true;
    }

private:
    const ImportBudget *m_budget;
};

/// Keeps what is written to std::cerr while it lives: assimp's reader of OpenGEX writes there.
class SilentErrors
{
public:
    explicit SilentErrors(bool isWanted)
        : m_former(isWanted ? std::cerr.rdbuf(m_sink.rdbuf()) : nullptr)
    { }
    ~SilentErrors()
    {
        if (m_former)
            std::cerr.rdbuf(m_former);
    }
    Q_DISABLE_COPY(SilentErrors)

private:
    std::ostringstream m_sink;
    std::streambuf *m_former;
};

/// Leaves out children that a loader counted and did not make: for RAW files of several groups assimp 5.2 makes the last alone.
/// Returns whether there were any.
bool dropMissingChildren(aiNode *root)
{
    bool dropped = false;
    std::vector<aiNode *> open{root};
    while (!open.empty()) {
        aiNode *node = open.back();
        open.pop_back();
        aiNode **const end = node->mChildren + node->mNumChildren;
        aiNode **const last = std::remove(node->mChildren, end, nullptr);
        dropped |= last != end;
        node->mNumChildren = unsigned(last - node->mChildren);
        open.insert(open.end(), node->mChildren, last);
    }
    return dropped;
}

/// Gives the root all meshes that no node has.
void adoptMeshes(aiScene *scene)
{
    std::vector<bool> used(scene->mNumMeshes);
    std::vector<const aiNode *> open{scene->mRootNode};
    while (!open.empty()) {
        const aiNode *node = open.back();
        open.pop_back();
        for (unsigned m = 0; m < node->mNumMeshes; ++m) {
            if (node->mMeshes[m] < used.size())
                used[node->mMeshes[m]] = true;
        }
        open.insert(open.end(), node->mChildren, node->mChildren + node->mNumChildren);
    }
    aiNode *root = scene->mRootNode;
    std::vector<unsigned> meshes(root->mMeshes, root->mMeshes + root->mNumMeshes);
    for (unsigned m = 0; m < used.size(); ++m) {
        if (!used[m])
            meshes.push_back(m);
    }
    delete[] root->mMeshes;
    root->mMeshes = new unsigned[meshes.size()];
    std::copy(meshes.begin(), meshes.end(), root->mMeshes);
    root->mNumMeshes = unsigned(meshes.size());
}

/// Why a file that says what it is cannot be read; empty for all others.
QString reasonByMark(const QString &name)
{
    QFile file(name);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray start = file.read(12);
    if (start.startsWith("glTF\x01"))
        return QStringLiteral("it is binary glTF (GLB) of version 1, which is not read; convert it to glTF 2");
    if (start.startsWith("3DMO") || start.startsWith("3dmo"))
        return QStringLiteral("it is Model 3D (M3D), which is not read; convert it to glTF");
    if (start.startsWith("#VRML "))
        return QStringLiteral("it is VRML, which is not read; convert it to glTF or X3D");
    return {};
}

/// What a loader's complaint means to somebody who does not know the loader; empty where it can be left as it is.
QString inPlainWords(const QString &complaint)
{
    struct Meaning
    {
        const char *part; // of the complaint
        const char *words;
    };
    static const Meaning meanings[] = {{"bad_alloc", "reading it takes more memory than there is"},
        {"STL storage representation",
            "damaged or truncated: it is not text, and its size is not that of the facets that it declares"},
        {"End of file or ", "damaged, or of a kind that its reader does not know: it ends in the middle of its data"},
        {"Unable to build a valid node graph", "no triangles: its reader finds no layer with surfaces in it"},
        {"no file block falls into", "damaged or truncated: it refers to data that it does not hold"},
        {"block offset is out of range", "damaged or truncated: a block of it goes beyond its end"},
        {"Unable to read a mesh from this file",
            "its reader finds no mesh in it: damaged, or of a kind that it does not know"},
        {"XML parse error", "damaged: its XML cannot be parsed"},
        {"an MDL sequence file", "no triangles: it holds sequences of animation for the model of another file"}};
    for (const Meaning &meaning : meanings) {
        if (complaint.contains(QLatin1String(meaning.part)))
            return QLatin1String(meaning.words);
    }
    static const QRegularExpression noNumber(QStringLiteral("^Cannot parse string \"(.*?)\" as a real number"));
    const QRegularExpressionMatch match = noNumber.match(complaint);
    if (!match.hasMatch())
        return {};
    const QString word = match.captured(1).trimmed();
    return QStringLiteral("damaged, or of a kind that its reader does not know: %1 where it expects a number")
        .arg(word.isEmpty() ? QStringLiteral("it has nothing") : QStringLiteral("\"%1\" stands").arg(word.left(40)));
}

/// A loader's complaint without the loader's name.
QString inShort(QString complaint)
{
    static const QRegularExpression loader(QStringLiteral("^[A-Za-z0-9 ]{1,20}: "));
    constexpr int longest = 120; // some quote the rest of the file
    complaint.remove(loader);
    return complaint.size() > longest ? complaint.left(longest) + QStringLiteral("...") : complaint;
}

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

AssimpLoader::AssimpLoader(const QString &file, ModelText *text, ImportBudget *budget)
    : m_file(file),
      m_budget(budget)
{
    // The importer owns both.
    m_importer.SetIOHandler(new FileWatcher(QFile::encodeName(file), text, budget, &m_missingFiles));
    m_importer.SetProgressHandler(new LoaderProgress(budget));
    // Of files without meshes, loaders would draw the nodes as bones.
    m_importer.SetPropertyBool(AI_CONFIG_IMPORT_NO_SKELETON_MESHES, true);
}

const aiScene *AssimpLoader::read(QString *reason)
{
    *reason = reasonByMark(m_file); // a reader may take it for its own by a word in it
    if (!reason->isEmpty())
        return nullptr;
    const SilentErrors silence(m_file.endsWith(QLatin1String(".ogex"), Qt::CaseInsensitive));
    const aiScene *scene = m_importer.ReadFile(QFile::encodeName(m_file).constData(), 0);
    *reason = m_budget->problem();
    if (!reason->isEmpty())
        return nullptr;
    if (!scene) {
        *reason = failureReason();
        return nullptr;
    }
    if (m_log.indicesDropped()) {
        *reason = QStringLiteral("a face has an index past the end of its mesh's vertices");
        return nullptr;
    }
    if (scene->mRootNode && dropMissingChildren(scene->mRootNode))
        adoptMeshes(const_cast<aiScene *>(scene));
    qint64 vertices = 0;
    for (unsigned m = 0; m < scene->mNumMeshes; ++m)
        vertices += scene->mMeshes[m]->mNumVertices;
    if (m_budget->takeVertices(vertices) && m_budget->isTimeLeft())
        return scene;
    *reason = m_budget->problem();
    return nullptr;
}

const aiScene *AssimpLoader::process(QString *reason)
{
    const aiScene *const read = m_importer.GetScene();
    for (unsigned m = 0; read && m < read->mNumMeshes; ++m) {
        if (m_budget->isTimeLeft())
            cutConcavePolygons(read->mMeshes[m]);
    }
    const aiScene *scene =
        m_importer.ApplyPostProcessing(aiProcess_Triangulate | aiProcess_GenUVCoords | aiProcess_TransformUVCoords);
    if (scene && scene->mRootNode)
        return scene;
    *reason = failureReason();
    return nullptr;
}

const aiImporterDesc *AssimpLoader::description() const
{
    const int index = m_importer.GetPropertyInteger("importerIndex", -1);
    return index < 0 ? nullptr : m_importer.GetImporterInfo(size_t(index));
}

QByteArray AssimpLoader::format() const
{
    return description() ? QByteArray(description()->mFileExtensions).split(' ').first() : QByteArray();
}

QString AssimpLoader::formatName() const
{
    return description() ? formatNameOf(description()->mName) : QString();
}

/// Why assimp gave no scene, in one line.
QString AssimpLoader::failureReason() const
{
    const QString suffix = QFileInfo(m_file).suffix();
    const QString text = QString::fromUtf8(m_importer.GetErrorString()).simplified();
    // Where the suffix says nothing, a reader took the file for its own by a word in it; its complaint would mislead.
    if (suffix.isEmpty() || !m_importer.IsExtensionSupported(suffix.toUtf8().constData()))
        return QStringLiteral("unknown type of model file (OBJ, glTF, GLB, PLY, STL and 3DS are known, among others)");
    if (QFileInfo(m_file).size() == 0)
        return QStringLiteral("the file is empty");
    const QString plain = inPlainWords(text);
    if (!plain.isEmpty())
        return plain;
    if (!text.isEmpty() && !text.startsWith(QLatin1String("No suitable reader")))
        return QStringLiteral("damaged, or of a kind that its reader does not know (%1)").arg(inShort(text));
    return QStringLiteral("damaged or truncated: no reader for .%1 files accepts it").arg(suffix);
}

} // namespace Velmora::Kvz
