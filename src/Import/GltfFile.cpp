// SPDX-License-Identifier: MIT
#include "GltfFile.h"

#include "GltfChecks.h"
#include "GltfDraco.h"
#include "ImportBudget.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QRegularExpression>
#include <QtCore/QStringList>
#include <QtCore/QUrl>
#include <QtCore/QtEndian>

#include <meshoptimizer.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <limits>

namespace Velmora::Kvz {

namespace {

constexpr const char *meshoptName = "EXT_meshopt_compression";
constexpr const char *dracoName = "KHR_draco_mesh_compression";

const QStringList readExtensions{
    QStringLiteral("KHR_mesh_quantization"),
    QStringLiteral("KHR_draco_mesh_compression"),
    QStringLiteral("KHR_texture_transform"),
    QStringLiteral("KHR_materials_unlit"),
    QStringLiteral("KHR_materials_emissive_strength"),
    QStringLiteral("KHR_materials_pbrSpecularGlossiness"),
    QStringLiteral("KHR_lights_punctual"),
    QStringLiteral("EXT_mesh_gpu_instancing"),
    QStringLiteral("EXT_meshopt_compression"),
    QStringLiteral("EXT_texture_webp"),
};

/// What the library asks of the file system. It does not ask for images: they are read later, under their own limits.
struct Reader
{
    QString directory;
    ImportBudget *budget;
    QHash<QString, QString>
        literalNames; ///< Of files whose names have percent signs as such, by what these would mean.
    QString missing;

    /// The file that is meant by a name whose escapes the library has resolved.
    QString fileOf(const QString &name) const
    {
        return QFileInfo(name).isFile() ? name : literalNames.value(name, name);
    }

    static bool exists(const std::string &name, void *user)
    {
        auto *reader = static_cast<Reader *>(user);
        const QString file = QString::fromStdString(name);
        const QFileInfo info(reader->fileOf(file));
        // It also tries the working directory.
        if (!file.startsWith(reader->directory))
            return false;
        if (!info.isFile())
            reader->missing = QFileInfo(file).fileName();
        return info.isFile();
    }

    static std::string expand(const std::string &name, void *) { return name; }

    static bool read(std::vector<unsigned char> *bytes, std::string *error, const std::string &name, void *user)
    {
        auto *reader = static_cast<Reader *>(user);
        QFile file(reader->fileOf(QString::fromStdString(name)));
        if (!file.open(QIODevice::ReadOnly)) {
            *error += file.errorString().toStdString();
            return false;
        }
        if (!reader->budget->isTimeLeft() || !reader->budget->takeBytes(file.size()))
            return false;
        bytes->resize(size_t(file.size()));
        return file.read(reinterpret_cast<char *>(bytes->data()), file.size()) == file.size();
    }

    static bool write(std::string *, const std::string &, const std::vector<unsigned char> &, void *) { return false; }
};

/// Keeps the bytes of an image that is part of the document's text. Those in buffers stay there.
bool keepImage(tinygltf::Image *image, const int, std::string *, std::string *, int, int, const unsigned char *bytes,
    int size, void *)
{
    image->as_is = true;
    if (image->bufferView < 0)
        image->image.assign(bytes, bytes + size);
    return true;
}

struct Chunk
{
    int begin = 0;
    int size = 0;
};

/// The document of a GLB.
Chunk jsonChunk(const QByteArray &glb)
{
    if (glb.size() < 20)
        return {};
    const quint32 size = qFromLittleEndian<quint32>(glb.constData() + 12);
    return {20, int(std::min<quint32>(size, quint32(glb.size() - 20)))};
}

QJsonObject jsonExtensionOf(const QJsonObject &object, const char *name)
{
    return object[QStringLiteral("extensions")].toObject()[QLatin1String(name)].toObject();
}

QJsonObject meshoptOf(const QJsonObject &object)
{
    return jsonExtensionOf(object, meshoptName);
}

/// Whether all that lies in a buffer is compressed elsewhere. Not every writer marks such a buffer.
bool isFallback(const QJsonObject &document, int number)
{
    if (meshoptOf(document[QStringLiteral("buffers")].toArray()[number].toObject())[QStringLiteral("fallback")]
            .toBool())
        return true;
    const QJsonArray views = document[QStringLiteral("bufferViews")].toArray();
    bool isUsed = false;
    for (const QJsonValue &value : views) {
        const QJsonObject view = value.toObject();
        if (view[QStringLiteral("buffer")].toInt(-1) != number)
            continue;
        if (meshoptOf(view).isEmpty())
            return false;
        isUsed = true;
    }
    return isUsed;
}

/// Puts buffers of one byte in place of those that have no data, since what lies in them is compressed elsewhere: the library
/// knows no such buffers. The first buffer of a GLB lies in the file.
QJsonObject withoutFallbacks(QJsonObject document, bool isBinary)
{
    QJsonArray buffers = document[QStringLiteral("buffers")].toArray();
    for (int b = isBinary ? 1 : 0; b < buffers.size(); ++b) {
        if (!buffers[b].toObject().contains(QStringLiteral("uri")) && isFallback(document, b))
            buffers[b] = QJsonObject{{QStringLiteral("byteLength"), 1},
                {QStringLiteral("uri"), QStringLiteral("data:application/octet-stream;base64,AA==")}};
    }
    document[QStringLiteral("buffers")] = buffers;
    return document;
}

/// Gives indices that Draco has compressed a view, which nobody reads: the library knows no indices without.
QJsonObject withIndexViews(QJsonObject document)
{
    QJsonArray accessors = document[QStringLiteral("accessors")].toArray();
    const QJsonArray meshes = document[QStringLiteral("meshes")].toArray();
    for (const QJsonValue &mesh : meshes) {
        const QJsonArray primitives = mesh.toObject()[QStringLiteral("primitives")].toArray();
        for (const QJsonValue &primitive : primitives) {
            const QJsonObject extension = jsonExtensionOf(primitive.toObject(), dracoName);
            const int indices = primitive.toObject()[QStringLiteral("indices")].toInt(-1);
            QJsonObject accessor = accessors.at(indices).toObject();
            if (extension.isEmpty() || accessor.isEmpty() || accessor.contains(QStringLiteral("bufferView")))
                continue;
            accessor[QStringLiteral("bufferView")] = extension[QStringLiteral("bufferView")];
            accessors[indices] = accessor;
        }
    }
    document[QStringLiteral("accessors")] = accessors;
    return document;
}

/// Whether a file that is named has a plus sign in its name.
bool hasPlusInName(const QByteArray &json)
{
    static const QRegularExpression name(QStringLiteral("\"uri\"\\s*:\\s*\"(?!data:)[^\"+]*\\+"));
    return json.contains('+') && name.match(QString::fromUtf8(json)).hasMatch();
}

/// Escapes plus signs in names of buffers' files: the library takes them for blanks, as forms have them.
QJsonObject withEscapedNames(QJsonObject document)
{
    QJsonArray buffers = document[QStringLiteral("buffers")].toArray();
    for (int b = 0; b < buffers.size(); ++b) {
        QJsonObject buffer = buffers[b].toObject();
        const QString uri = buffer[QStringLiteral("uri")].toString();
        if (uri.isEmpty() || uri.startsWith(QLatin1String("data:")))
            continue;
        buffer[QStringLiteral("uri")] = QString(uri).replace(QLatin1Char('+'), QStringLiteral("%2B"));
        buffers[b] = buffer;
    }
    document[QStringLiteral("buffers")] = buffers;
    return document;
}

/// The names of buffers' files as they stand, by what they mean once their escapes are resolved.
QHash<QString, QString> literalNames(const QJsonObject &document, const QString &directory)
{
    QHash<QString, QString> names;
    const QJsonArray buffers = document[QStringLiteral("buffers")].toArray();
    for (const QJsonValue &buffer : buffers) {
        const QString uri = buffer.toObject()[QStringLiteral("uri")].toString();
        if (!uri.startsWith(QLatin1String("data:")) && uri.contains(QLatin1Char('%')))
            names.insert(directory + QLatin1Char('/') + QUrl::fromPercentEncoding(uri.toUtf8()),
                directory + QLatin1Char('/') + uri);
    }
    return names;
}

/// The document as the library takes it.
QByteArray mended(const QByteArray &json, bool isBinary)
{
    const QJsonObject document = withEscapedNames(QJsonDocument::fromJson(json).object());
    return QJsonDocument(withIndexViews(withoutFallbacks(document, isBinary))).toJson(QJsonDocument::Compact);
}

QByteArray withJson(const QByteArray &glb, const Chunk &chunk, QByteArray json)
{
    json.append(QByteArray((4 - json.size() % 4) % 4, ' '));
    QByteArray result = glb.left(chunk.begin) + json + glb.mid(chunk.begin + chunk.size);
    qToLittleEndian(quint32(result.size()), result.data() + 8);
    qToLittleEndian(quint32(json.size()), result.data() + 12);
    return result;
}

/// Whether readers of glTF 2.0 may read a version: "2.0" and, as they say no least version, later ones of 2.
bool isRead(const QString &version, bool isLeast)
{
    const int major = version.section(QLatin1Char('.'), 0, 0).toInt();
    return major == 2 && (!isLeast || version.section(QLatin1Char('.'), 1, 1).toInt() == 0);
}

QString unreadExtension(const QString &name)
{
    return QStringLiteral("it requires the glTF extension %1, which is not read").arg(name);
}

/// Why the library does not take a document, where that says more than the library does; else empty.
QString flawOf(const QByteArray &json, bool isBinary)
{
    const QJsonObject document = QJsonDocument::fromJson(json).object();
    for (const QJsonValue &name : document[QStringLiteral("extensionsRequired")].toArray()) {
        if (!readExtensions.contains(name.toString()))
            return unreadExtension(name.toString());
    }
    const QJsonArray buffers = document[QStringLiteral("buffers")].toArray();
    for (int b = isBinary ? 1 : 0; b < buffers.size(); ++b) {
        if (!buffers[b].toObject().contains(QStringLiteral("uri")))
            return QStringLiteral("buffer %1 names no file: its uri is missing").arg(b);
    }
    return {};
}

QString firstLine(const std::string &text)
{
    return QString::fromStdString(text).section(QLatin1Char('\n'), 0, 0, QString::SectionSkipEmpty).trimmed();
}

float component(const char *at, int type, bool isNormalized)
{
    switch (type) {
    case TINYGLTF_COMPONENT_TYPE_BYTE: {
        const float value = float(*reinterpret_cast<const qint8 *>(at));
        return isNormalized ? std::max(value / 127, -1.0f) : value;
    }
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE: {
        const float value = float(*reinterpret_cast<const quint8 *>(at));
        return isNormalized ? value / 255 : value;
    }
    case TINYGLTF_COMPONENT_TYPE_SHORT: {
        const float value = float(qFromLittleEndian<qint16>(at));
        return isNormalized ? std::max(value / 32767, -1.0f) : value;
    }
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT: {
        const float value = float(qFromLittleEndian<quint16>(at));
        return isNormalized ? value / 65535 : value;
    }
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT:
        return float(qFromLittleEndian<quint32>(at));
    default: {
        const quint32 bits = qFromLittleEndian<quint32>(at);
        float value;
        std::memcpy(&value, &bits, sizeof(value));
        return value;
    }
    }
}

int componentSize(int type)
{
    switch (type) {
    case TINYGLTF_COMPONENT_TYPE_BYTE:
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE:
        return 1;
    case TINYGLTF_COMPONENT_TYPE_SHORT:
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT:
        return 2;
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT:
    case TINYGLTF_COMPONENT_TYPE_FLOAT:
        return 4;
    default:
        return 0;
    }
}

quint32 integer(const char *at, int type)
{
    switch (componentSize(type)) {
    case 1:
        return quint8(*at);
    case 2:
        return qFromLittleEndian<quint16>(at);
    default:
        return qFromLittleEndian<quint32>(at);
    }
}

} // namespace

double numberOf(const tinygltf::Value &object, const char *key, double fallback)
{
    if (!object.Has(key) || !object.Get(std::string(key)).IsNumber())
        return fallback;
    return object.Get(std::string(key)).GetNumberAsDouble();
}

int integerOf(const tinygltf::Value &object, const char *key, int fallback)
{
    const double number = numberOf(object, key, fallback);
    return std::abs(number) < std::numeric_limits<int>::max() ? int(number) : fallback;
}

const tinygltf::Value &extensionOf(const tinygltf::ExtensionMap &extensions, const char *name)
{
    static const tinygltf::Value none;
    const auto found = extensions.find(name);
    return found != extensions.end() ? found->second : none;
}

GltfFile::GltfFile() = default;
GltfFile::~GltfFile() = default;

bool GltfFile::isGltf2(const QString &suffix, const QByteArray &content)
{
    if (content.startsWith("glTF"))
        return content.size() >= 12 && qFromLittleEndian<quint32>(content.constData() + 4) != 1;
    if (suffix.compare(QLatin1String("gltf"), Qt::CaseInsensitive) != 0)
        return false;
    const int asset = content.indexOf("\"asset\"");
    static const QRegularExpression version(QStringLiteral("\"version\"\\s*:\\s*\"([0-9]+)"));
    return version.match(QString::fromUtf8(content.mid(std::max(asset, 0), 2000))).captured(1) != QLatin1String("1");
}

bool GltfFile::load(const QString &file, const QByteArray &content, ImportBudget *budget, QString *problem)
{
    Reader reader{QFileInfo(file).absolutePath(), budget, {}, QString()};
    tinygltf::TinyGLTF library;
    library.SetFsCallbacks({&Reader::exists, &Reader::expand, &Reader::read, &Reader::write, &reader});
    library.SetImageLoader(&keepImage, nullptr);

    const bool isBinary = content.startsWith("glTF");
    const Chunk json = isBinary ? jsonChunk(content) : Chunk{0, content.size()};
    QByteArray text = content;
    const QByteArray document = content.mid(json.begin, json.size);
    if (document.contains(meshoptName) || document.contains(dracoName) || hasPlusInName(document)) {
        text = mended(document, isBinary);
        text = isBinary ? withJson(content, json, text) : text;
    }
    constexpr int longestChecked = 1 << 25; // beyond, most of it is data
    const QJsonObject root =
        document.size() > longestChecked ? QJsonObject() : QJsonDocument::fromJson(document).object();
    reader.literalNames = literalNames(root, reader.directory);
    std::string error;
    std::string warning;
    const std::string directory = reader.directory.toStdString();
    bool isLoaded = false;
    try { // its parser of JSON throws
        isLoaded = isBinary ? library.LoadBinaryFromMemory(&m_document, &error, &warning,
                       reinterpret_cast<const unsigned char *>(text.constData()), unsigned(text.size()), directory)
                            : library.LoadASCIIFromString(
                                &m_document, &error, &warning, text.constData(), unsigned(text.size()), directory);
    } catch (const std::exception &exception) {
        error = exception.what();
    }
    if (!isLoaded) {
        const QString reason = firstLine(error);
        const QString flaw = flawOf(document, isBinary);
        *problem = !budget->problem().isEmpty() ? budget->problem()
            : !flaw.isEmpty()                   ? flaw
            : !reader.missing.isEmpty()         ? QStringLiteral("its file \"%1\" is not there").arg(reader.missing)
                                                : QStringLiteral("damaged or truncated glTF: %1")
                                              .arg(reason.isEmpty() ? QStringLiteral("no document in it") : reason);
        return false;
    }
    const std::string &least = m_document.asset.minVersion;
    const QString version = QString::fromStdString(least.empty() ? m_document.asset.version : least);
    if (!version.isEmpty() && !isRead(version, !least.empty())) {
        *problem = QStringLiteral("it is glTF %1, and 2.0 is read; export it as glTF 2.0").arg(version);
        return false;
    }
    for (const std::string &required : m_document.extensionsRequired) {
        const QString name = QString::fromStdString(required);
        if (!readExtensions.contains(name)) {
            *problem = unreadExtension(name);
            return false;
        }
    }
    const QString flaw = flawOfReferences(root, &m_remarks);
    if (!flaw.isEmpty())
        *problem = QStringLiteral("damaged glTF: %1").arg(flaw);
    return flaw.isEmpty();
}

bool GltfFile::isCompressed(int bufferView) const
{
    return bufferView >= 0 && size_t(bufferView) < m_document.bufferViews.size()
        && extensionOf(m_document.bufferViews[size_t(bufferView)].extensions, meshoptName).IsObject();
}

QByteArray GltfFile::bytes(int bufferView)
{
    if (bufferView < 0 || size_t(bufferView) >= m_document.bufferViews.size())
        return {};
    const tinygltf::BufferView &view = m_document.bufferViews[size_t(bufferView)];
    const tinygltf::Value &compression = extensionOf(view.extensions, meshoptName);
    if (compression.IsObject()) {
        const auto known = m_decompressed.constFind(bufferView);
        if (known != m_decompressed.constEnd())
            return known.value();
        return *m_decompressed.insert(bufferView, decompressed(bufferView, compression));
    }
    if (view.buffer < 0 || size_t(view.buffer) >= m_document.buffers.size())
        return {};
    const std::vector<unsigned char> &data = m_document.buffers[size_t(view.buffer)].data;
    if (view.byteOffset > data.size() || view.byteLength > data.size() - view.byteOffset
        || view.byteLength > size_t(std::numeric_limits<int>::max()))
        return {};
    return QByteArray::fromRawData(reinterpret_cast<const char *>(data.data()) + view.byteOffset, int(view.byteLength));
}

bool GltfFile::unpack(const tinygltf::Primitive &primitive, ImportBudget *budget, QString *remark, QString *problem)
{
    m_packed.reset();
    m_packedAttributes.clear();
    const tinygltf::Value &extension = extensionOf(primitive.extensions, dracoName);
    const auto position = primitive.attributes.find("POSITION");
    const bool hasPlainData = position != primitive.attributes.end() && position->second >= 0
        && size_t(position->second) < m_document.accessors.size()
        && m_document.accessors[size_t(position->second)].bufferView >= 0;
    if (!extension.IsObject())
        return true;
    auto mesh = std::make_unique<DracoMesh>();
    if (!mesh->decode(bytes(integerOf(extension, "bufferView", -1)), budget)) {
        const std::vector<std::string> &required = m_document.extensionsRequired;
        const bool isRequired = std::find(required.begin(), required.end(), dracoName) != required.end();
        const QString damaged = QStringLiteral("its data cannot be decoded by KHR_draco_mesh_compression; ");
        if (hasPlainData && !isRequired && budget->problem().isEmpty()) {
            *remark = damaged + QStringLiteral("what is there without it is drawn");
            return true;
        }
        *problem = budget->problem().isEmpty() ? damaged + QStringLiteral("is it damaged?") : budget->problem();
        return false;
    }
    if (hasPlainData)
        return true;
    const tinygltf::Value &attributes = extension.Get("attributes");
    for (const std::string &name : attributes.IsObject() ? attributes.Keys() : std::vector<std::string>()) {
        const auto accessor = primitive.attributes.find(name);
        if (accessor != primitive.attributes.end())
            m_packedAttributes.insert(accessor->second, integerOf(attributes, name.c_str(), -1));
    }
    m_packed = std::move(mesh);
    if (position != primitive.attributes.end() && m_packedAttributes.contains(position->second))
        return true;
    *problem = QStringLiteral("KHR_draco_mesh_compression holds no positions of it");
    return false;
}

QVector<quint32> GltfFile::packedCorners() const
{
    return m_packed ? m_packed->corners() : QVector<quint32>();
}

/// The data of a view of EXT_meshopt_compression; null where it is damaged.
QByteArray GltfFile::decompressed(int bufferView, const tinygltf::Value &extension)
{
    const int buffer = integerOf(extension, "buffer", -1);
    const double offset = numberOf(extension, "byteOffset", 0);
    const double length = numberOf(extension, "byteLength", 0);
    const int stride = integerOf(extension, "byteStride", 0);
    const int count = integerOf(extension, "count", 0);
    if (buffer < 0 || size_t(buffer) >= m_document.buffers.size() || stride <= 0 || stride > 256 || count <= 0)
        return {};
    const std::vector<unsigned char> &data = m_document.buffers[size_t(buffer)].data;
    const double declared = double(stride) * count;
    if (offset < 0 || length <= 0 || offset + length > double(data.size())
        || declared > double(std::numeric_limits<int>::max())
        || declared > double(m_document.bufferViews[size_t(bufferView)].byteLength))
        return {};
    const unsigned char *const from = data.data() + size_t(offset);
    const std::string mode =
        extension.Get("mode").IsString() ? extension.Get("mode").Get<std::string>() : std::string();
    const std::string filter = extension.Has("filter") && extension.Get("filter").IsString()
        ? extension.Get("filter").Get<std::string>()
        : "NONE";
    QByteArray result(stride * count, '\0');
    int failed = -1;
    if (mode == "ATTRIBUTES" && stride % 4 == 0)
        failed = meshopt_decodeVertexBuffer(result.data(), size_t(count), size_t(stride), from, size_t(length));
    else if (mode == "TRIANGLES" && count % 3 == 0 && (stride == 2 || stride == 4))
        failed = meshopt_decodeIndexBuffer(result.data(), size_t(count), size_t(stride), from, size_t(length));
    else if (mode == "INDICES" && (stride == 2 || stride == 4))
        failed = meshopt_decodeIndexSequence(result.data(), size_t(count), size_t(stride), from, size_t(length));
    if (failed != 0)
        return {};
    if (filter == "OCTAHEDRAL" && (stride == 4 || stride == 8))
        meshopt_decodeFilterOct(result.data(), size_t(count), size_t(stride));
    else if (filter == "QUATERNION" && stride == 8)
        meshopt_decodeFilterQuat(result.data(), size_t(count), size_t(stride));
    else if (filter == "EXPONENTIAL" && stride % 4 == 0)
        meshopt_decodeFilterExp(result.data(), size_t(count), size_t(stride));
    else if (filter != "NONE")
        return {};
    return result;
}

bool GltfFile::open(int accessor, Elements *elements, QString *problem)
{
    if (accessor < 0 || size_t(accessor) >= m_document.accessors.size()) {
        *problem = QStringLiteral("accessor %1 does not exist").arg(accessor);
        return false;
    }
    const tinygltf::Accessor &from = m_document.accessors[size_t(accessor)];
    elements->componentType = from.componentType;
    elements->components = tinygltf::GetNumComponentsInType(uint32_t(from.type));
    elements->isNormalized = from.normalized;
    const int size = componentSize(from.componentType) * elements->components;
    if (size <= 0 || from.count > size_t(std::numeric_limits<int>::max()) / size_t(std::max(size, 1)) / 4) {
        *problem = QStringLiteral("accessor %1 has no type or count that glTF knows").arg(accessor);
        return false;
    }
    elements->count = int(from.count);
    elements->stride = size;
    if (m_packedAttributes.contains(accessor))
        return openPacked(accessor, elements, problem);
    if (from.bufferView < 0) { // zeros
        elements->data = QByteArray(size * elements->count, '\0');
        return !from.sparse.isSparse || applySparse(from, elements, problem);
    }
    const QByteArray view = bytes(from.bufferView);
    if (view.isNull() && isCompressed(from.bufferView)) {
        *problem = QStringLiteral("accessor %1: its data cannot be decoded by EXT_meshopt_compression; is it damaged?")
                       .arg(accessor);
        return false;
    }
    const size_t declared = size_t(from.bufferView) < m_document.bufferViews.size()
        ? m_document.bufferViews[size_t(from.bufferView)].byteStride
        : 0;
    elements->stride = declared > 0 ? int(std::min<size_t>(declared, 1 << 16)) : size;
    const qint64 needed = elements->count > 0 ? qint64(elements->stride) * (elements->count - 1) + size : 0;
    if (from.byteOffset > size_t(view.size()) || needed > view.size() - qint64(from.byteOffset)) {
        *problem = QStringLiteral("accessor %1 reaches past the end of its data").arg(accessor);
        return false;
    }
    elements->data = QByteArray::fromRawData(view.constData() + from.byteOffset, int(needed));
    return !from.sparse.isSparse || applySparse(from, elements, problem);
}

bool GltfFile::openPacked(int accessor, Elements *elements, QString *problem) const
{
    elements->count = m_packed->vertexCount();
    elements->data = m_packed->values(m_packedAttributes[accessor], elements->componentType, elements->components);
    if (!elements->data.isNull())
        return true;
    *problem = QStringLiteral("accessor %1: KHR_draco_mesh_compression holds no data that fits it").arg(accessor);
    return false;
}

/// Puts the sparse elements of an accessor into a copy of the others.
bool GltfFile::applySparse(const tinygltf::Accessor &accessor, Elements *elements, QString *problem)
{
    const auto &sparse = accessor.sparse;
    const QByteArray indices = bytes(sparse.indices.bufferView).mid(std::max(sparse.indices.byteOffset, 0));
    const QByteArray values = bytes(sparse.values.bufferView).mid(std::max(sparse.values.byteOffset, 0));
    const int indexSize = componentSize(sparse.indices.componentType);
    const int size = componentSize(accessor.componentType) * elements->components;
    if (sparse.count < 0 || indexSize == 0 || qint64(sparse.count) * indexSize > indices.size()
        || qint64(sparse.count) * size > values.size()) {
        *problem = QStringLiteral("the sparse part of an accessor reaches past the end of its data");
        return false;
    }
    QByteArray data(elements->data.constData(), elements->data.size()); // a copy of its own
    for (int i = 0; i < sparse.count; ++i) {
        const quint32 index = integer(indices.constData() + i * indexSize, sparse.indices.componentType);
        if (index >= quint32(elements->count)) {
            *problem = QStringLiteral("the sparse part of an accessor has an index past the end");
            return false;
        }
        std::memcpy(data.data() + qint64(index) * elements->stride, values.constData() + i * size, size_t(size));
    }
    elements->data = data;
    return true;
}

bool GltfFile::readVectors(int accessor, std::initializer_list<int> types, QVector<QVector4D> *values, QString *problem)
{
    Elements elements;
    if (!open(accessor, &elements, problem))
        return false;
    const int type = m_document.accessors[size_t(accessor)].type;
    if (std::find(types.begin(), types.end(), type) == types.end()) {
        *problem = QStringLiteral("accessor %1 is of a type that does not fit its use").arg(accessor);
        return false;
    }
    const int size = componentSize(elements.componentType);
    values->resize(elements.count);
    for (int i = 0; i < elements.count; ++i) {
        const char *const at = elements.data.constData() + qint64(i) * elements.stride;
        QVector4D value(0, 0, 0, 1);
        for (int c = 0; c < elements.components; ++c)
            value[c] = component(at + c * size, elements.componentType, elements.isNormalized);
        (*values)[i] = value;
    }
    return true;
}

bool GltfFile::readVectors(int accessor, QVector<QVector3D> *values, QString *problem)
{
    Elements elements;
    if (!open(accessor, &elements, problem))
        return false;
    if (elements.components != 3) {
        *problem = QStringLiteral("accessor %1 is of a type that does not fit its use").arg(accessor);
        return false;
    }
    values->resize(elements.count);
    if (elements.componentType == TINYGLTF_COMPONENT_TYPE_FLOAT && elements.stride == sizeof(QVector3D)
        && Q_BYTE_ORDER == Q_LITTLE_ENDIAN) {
        std::memcpy(values->data(), elements.data.constData(), size_t(elements.data.size()));
        return true;
    }
    const int size = componentSize(elements.componentType);
    for (int i = 0; i < elements.count; ++i) {
        const char *const at = elements.data.constData() + qint64(i) * elements.stride;
        for (int c = 0; c < 3; ++c)
            (*values)[i][c] = component(at + c * size, elements.componentType, elements.isNormalized);
    }
    return true;
}

bool GltfFile::readVectors(int accessor, QVector<QVector2D> *values, QString *problem)
{
    Elements elements;
    if (!open(accessor, &elements, problem))
        return false;
    if (elements.components != 2) {
        *problem = QStringLiteral("accessor %1 is of a type that does not fit its use").arg(accessor);
        return false;
    }
    const int size = componentSize(elements.componentType);
    values->resize(elements.count);
    for (int i = 0; i < elements.count; ++i) {
        const char *const at = elements.data.constData() + qint64(i) * elements.stride;
        (*values)[i] = QVector2D(component(at, elements.componentType, elements.isNormalized),
            component(at + size, elements.componentType, elements.isNormalized));
    }
    return true;
}

bool GltfFile::readNumbers(int accessor, QVector<float> *values, QString *problem)
{
    QVector<QVector4D> vectors;
    if (!readVectors(accessor, {TINYGLTF_TYPE_SCALAR}, &vectors, problem))
        return false;
    values->clear();
    for (const QVector4D &vector : qAsConst(vectors))
        values->append(vector.x());
    return true;
}

bool GltfFile::readMatrix(int accessor, QVector<float> *values, QString *problem)
{
    Elements elements;
    if (!open(accessor, &elements, problem))
        return false;
    if (elements.components != 16 || m_document.accessors[size_t(accessor)].type != TINYGLTF_TYPE_MAT4
        || elements.componentType != TINYGLTF_COMPONENT_TYPE_FLOAT || elements.count < 1) {
        *problem = QStringLiteral("accessor %1 is of a type that does not fit its use").arg(accessor);
        return false;
    }
    values->clear();
    for (int i = 0; i < 16; ++i)
        values->append(component(elements.data.constData() + 4 * i, elements.componentType, false));
    return true;
}

bool GltfFile::readIndices(int accessor, QVector<quint32> *values, QString *problem)
{
    Elements elements;
    if (!open(accessor, &elements, problem))
        return false;
    if (elements.components != 1 || elements.componentType == TINYGLTF_COMPONENT_TYPE_FLOAT) {
        *problem = QStringLiteral("accessor %1 is of a type that does not fit its use").arg(accessor);
        return false;
    }
    values->resize(elements.count);
    for (int i = 0; i < elements.count; ++i)
        (*values)[i] = integer(elements.data.constData() + qint64(i) * elements.stride, elements.componentType);
    return true;
}

} // namespace Velmora::Kvz
