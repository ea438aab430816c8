// SPDX-License-Identifier: MIT
#include <Import/ModelImporter.h>

#include <assimp/DefaultIOSystem.h>
#include <assimp/DefaultLogger.hpp>
#include <assimp/GltfMaterial.h>
#include <assimp/Importer.hpp>
#include <assimp/LogStream.hpp>
#include <assimp/material.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QHash>
#include <QtCore/QUrl>
#include <QtCore/QtMath>
#include <QtGui/QColor>
#include <QtGui/QImageReader>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <tuple>

namespace Velmora::Kvz {

namespace {

constexpr float creaseAngle = 80; // degrees; keeps the edges of a box hard
constexpr int largestFan = 256; // more triangles around a point are smooth all together, or time would be quadratic
const QString noTriangles = QStringLiteral("no triangles");

/// What stands in for the material of a mesh without one.
MaterialData standInMaterial()
{
    MaterialData material;
    material.ks = QVector3D(0.2f, 0.2f, 0.2f);
    return material;
}

QString toQString(const aiString &text)
{
    return QString::fromUtf8(text.C_Str(), int(text.length));
}

QVector3D toQVector(const aiVector3D &vector)
{
    return {vector.x, vector.y, vector.z};
}

QMatrix4x4 toQMatrix(const aiMatrix4x4 &m)
{
    return {m.a1, m.a2, m.a3, m.a4, m.b1, m.b2, m.b3, m.b4, m.c1, m.c2, m.c3, m.c4, m.d1, m.d2, m.d3, m.d4};
}

bool isFinite(const QVector3D &vector)
{
    return std::isfinite(vector.x()) && std::isfinite(vector.y()) && std::isfinite(vector.z());
}

/// In double precision, since models may be some millionths across; zero for what has no direction.
QVector3D unit(const QVector3D &vector)
{
    const double x = double(vector.x());
    const double y = double(vector.y());
    const double z = double(vector.z());
    const double length = std::sqrt(x * x + y * y + z * z);
    return length > 0 && std::isfinite(length) ? QVector3D(float(x / length), float(y / length), float(z / length))
                                               : QVector3D();
}

bool isFinite(const QMatrix4x4 &matrix)
{
    return std::all_of(
        matrix.constData(), matrix.constData() + 16, [](float element) { return std::isfinite(element); });
}

/// The name of a file without its directory, written with either slash.
QString bareName(const QString &path)
{
    return QString(path).replace(QLatin1Char('\\'), QLatin1Char('/')).section(QLatin1Char('/'), -1).simplified();
}

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

/// Keeps assimp's warnings off the terminal, and notes that a loader dropped faces, which only its log tells. A logger
/// that the host installed stays in force.
class LoaderLog
{
public:
    LoaderLog()
        : m_owned(Assimp::DefaultLogger::isNullLogger())
    {
        if (m_owned)
            Assimp::DefaultLogger::create("", Assimp::Logger::NORMAL, 0);
        Assimp::DefaultLogger::get()->attachStream(&m_stream, Assimp::Logger::Warn);
    }
    ~LoaderLog()
    {
        Assimp::DefaultLogger::get()->detachStream(&m_stream, Assimp::Logger::Warn);
        if (m_owned)
            Assimp::DefaultLogger::kill();
    }
    Q_DISABLE_COPY(LoaderLog)

    bool indicesDropped() const { return m_stream.indicesDropped; }

private:
    struct Stream : Assimp::LogStream
    {
        void write(const char *message) override
        {
            indicesDropped |= std::strstr(message, "out-of-range indices") != nullptr;
        }
        bool indicesDropped = false;
    };

    Stream m_stream;
    bool m_owned;
};

/// Turns what assimp read into an ImportedScene.
class SceneReader
{
public:
    SceneReader(const aiScene *source, const QString &file)
        : m_source(source),
          m_file(file),
          m_directory(QFileInfo(file).absoluteDir())
    { }

    /// A reason why the scene cannot be drawn; empty when it can.
    static QString findProblem(const aiScene *source);

    ImportedScene read();

private:
    void readNode(const aiNode &node, const QMatrix4x4 &matrix);
    int meshNumber(unsigned sourceNumber);
    int materialNumber(unsigned sourceNumber);
    MeshData readMesh(const aiMesh &source);
    MaterialData readMaterial(const aiMaterial &source);
    MaterialData mtlMaterial(const aiMaterial &source);
    MaterialData metallicMaterial(const aiMaterial &source, float metallic, float roughness);
    QImage texture(const aiMaterial &material, std::initializer_list<aiTextureType> types);
    QImage readTexture(const QString &path, QString *reason);
    void warn(const QString &text) { m_scene.warnings.append(QStringLiteral("%1: %2").arg(m_file, text)); }

    const aiScene *m_source;
    QString m_file;
    QDir m_directory;
    ImportedScene m_scene;
    QHash<unsigned, int> m_meshNumbers; // by assimp's index, what nodes use alone; -1: no triangles
    QHash<unsigned, int> m_materialNumbers;
    QVector<bool> m_transparent; // one for each material of the scene
    QHash<QString, QImage> m_images; // by path as the file gives it; null: unreadable, and said so
};

QString meshName(const aiMesh &mesh)
{
    return mesh.mName.length ? QStringLiteral("mesh \"%1\"").arg(toQString(mesh.mName)) : QStringLiteral("a mesh");
}

QString SceneReader::findProblem(const aiScene *source)
{
    bool hasTriangles = false;
    for (unsigned m = 0; m < source->mNumMeshes; ++m) {
        const aiMesh &mesh = *source->mMeshes[m];
        for (unsigned v = 0; v < mesh.mNumVertices; ++v) {
            if (!isFinite(toQVector(mesh.mVertices[v])))
                return QStringLiteral("%1: the position of vertex %2 is not a finite number")
                    .arg(meshName(mesh), QString::number(v));
        }
        for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
            const aiFace &face = mesh.mFaces[f];
            hasTriangles |= face.mNumIndices >= 3;
            if (face.mNumIndices == 0)
                return QStringLiteral("%1: face %2 has no corners; is the file truncated?")
                    .arg(meshName(mesh), QString::number(f));
            for (unsigned i = 0; i < face.mNumIndices; ++i) {
                if (face.mIndices[i] >= mesh.mNumVertices)
                    return QStringLiteral("%1: face %2 has index %3, past the end of %4 vertices")
                        .arg(meshName(mesh), QString::number(f), QString::number(int(face.mIndices[i])),
                            QString::number(mesh.mNumVertices));
            }
        }
        if (mesh.mMaterialIndex >= source->mNumMaterials)
            return QStringLiteral("%1: material %2 does not exist")
                .arg(meshName(mesh), QString::number(mesh.mMaterialIndex));
    }
    return hasTriangles ? QString() : noTriangles;
}

ImportedScene SceneReader::read()
{
    struct Placed
    {
        const aiNode *node;
        QMatrix4x4 parent;
    };
    // A stack of its own: files nest nodes deeper than a thread's stack reaches.
    QVector<Placed> open{{m_source->mRootNode, QMatrix4x4()}};
    while (!open.isEmpty()) {
        const Placed placed = open.takeLast();
        const QMatrix4x4 matrix = placed.parent * toQMatrix(placed.node->mTransformation);
        readNode(*placed.node, matrix);
        for (unsigned c = placed.node->mNumChildren; c-- > 0;)
            open.append({placed.node->mChildren[c], matrix});
    }
    return m_scene;
}

void SceneReader::readNode(const aiNode &node, const QMatrix4x4 &matrix)
{
    for (unsigned m = 0; m < node.mNumMeshes; ++m) {
        const int mesh = node.mMeshes[m] < m_source->mNumMeshes ? meshNumber(node.mMeshes[m]) : -1;
        if (mesh < 0)
            continue;
        const unsigned sourceMaterial = m_source->mMeshes[node.mMeshes[m]]->mMaterialIndex;
        ImportedItem item;
        item.name = toQString(node.mName);
        item.mesh = mesh;
        item.material = materialNumber(sourceMaterial);
        item.modelMatrix = matrix;
        int twoSided = 0;
        m_source->mMaterials[sourceMaterial]->Get(AI_MATKEY_TWOSIDED, twoSided);
        if (twoSided)
            item.featureFlags |= GPUModel::DoubleSided;
        if (m_transparent[item.material])
            item.featureFlags |= ImportedScene::Transparent;
        m_scene.items.append(item);
    }
}

int SceneReader::meshNumber(unsigned sourceNumber)
{
    const auto known = m_meshNumbers.constFind(sourceNumber);
    if (known != m_meshNumbers.constEnd())
        return known.value();
    const MeshData mesh = readMesh(*m_source->mMeshes[sourceNumber]);
    int number = -1;
    if (!mesh.indices.isEmpty()) {
        number = m_scene.meshes.size();
        m_scene.meshes.append(mesh);
    }
    m_meshNumbers.insert(sourceNumber, number);
    return number;
}

/// Whether a glTF material says that its opacity does not count.
bool isDeclaredOpaque(const aiMaterial &material)
{
    aiString alphaMode;
    return material.Get(AI_MATKEY_GLTF_ALPHAMODE, alphaMode) == aiReturn_SUCCESS
        && std::strcmp(alphaMode.C_Str(), "BLEND") != 0;
}

/// Whether any pixel has an alpha below 1: many images have the channel and make no use of it.
bool isSeeThrough(const QImage &image)
{
    if (!image.hasAlphaChannel())
        return false;
    const QImage rgba = image.convertToFormat(QImage::Format_ARGB32);
    for (int y = 0; y < rgba.height(); ++y) {
        const QRgb *line = reinterpret_cast<const QRgb *>(rgba.constScanLine(y));
        if (std::any_of(line, line + rgba.width(), [](QRgb pixel) { return qAlpha(pixel) < 255; }))
            return true;
    }
    return false;
}

/// A colour image with the opacity of another in its alpha: that one's alpha or, without such a channel, its grey. A null
/// colour image is white.
QImage withOpacity(const QImage &colour, const QImage &opacity)
{
    QImage result = colour.convertToFormat(QImage::Format_ARGB32);
    if (result.isNull()) {
        result = QImage(opacity.size(), QImage::Format_ARGB32);
        result.fill(Qt::white);
    }
    const bool hasAlpha = opacity.hasAlphaChannel();
    const QImage fitted = opacity.convertToFormat(QImage::Format_ARGB32)
                              .scaled(result.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                              .convertToFormat(QImage::Format_ARGB32);
    for (int y = 0; y < result.height(); ++y) {
        QRgb *line = reinterpret_cast<QRgb *>(result.scanLine(y));
        const QRgb *other = reinterpret_cast<const QRgb *>(fitted.constScanLine(y));
        for (int x = 0; x < result.width(); ++x)
            line[x] = (line[x] & 0x00ffffff) | QRgb(hasAlpha ? qAlpha(other[x]) : qGray(other[x])) << 24;
    }
    return result;
}

int SceneReader::materialNumber(unsigned sourceNumber)
{
    const auto known = m_materialNumbers.constFind(sourceNumber);
    if (known != m_materialNumbers.constEnd())
        return known.value();
    const int number = m_scene.materials.size();
    const aiMaterial &source = *m_source->mMaterials[sourceNumber];
    const MaterialData material = readMaterial(source);
    m_scene.materials.append(material);
    m_transparent.append(!isDeclaredOpaque(source) && (material.d < 1 || isSeeThrough(material.mapKd)));
    m_materialNumbers.insert(sourceNumber, number);
    return number;
}

float number(const aiMaterial &material, const char *key, unsigned type, unsigned index, float fallback)
{
    float value = fallback;
    return material.Get(key, type, index, value) == aiReturn_SUCCESS && std::isfinite(value) ? value : fallback;
}

QVector3D colour(const aiMaterial &material, const char *key, unsigned type, unsigned index, const QVector3D &fallback)
{
    aiColor3D value;
    if (material.Get(key, type, index, value) != aiReturn_SUCCESS)
        return fallback;
    const QVector3D result(value.r, value.g, value.b);
    return isFinite(result) ? result : fallback;
}

/// Whether a loader made the material up because the file gives none.
bool isStandIn(const aiMaterial &material)
{
    for (unsigned p = 0; p < material.mNumProperties; ++p) {
        if (std::strcmp(material.mProperties[p]->mKey.C_Str(), "$tex.file") == 0)
            return false;
    }
    const QString name = toQString(const_cast<aiMaterial &>(material).GetName());
    if (!name.isEmpty())
        return name == QLatin1String(AI_DEFAULT_MATERIAL_NAME) || name == QLatin1String("%%%DEFAULT");
    const QVector3D white(1, 1, 1);
    if (number(material, AI_MATKEY_METALLIC_FACTOR, 0) == 1) // glTF: what an absent material means
        return number(material, AI_MATKEY_ROUGHNESS_FACTOR, 0) == 1
            && colour(material, AI_MATKEY_BASE_COLOR, QVector3D()) == white;
    return number(material, AI_MATKEY_OPACITY, -1) == -1 // PLY
        && colour(material, AI_MATKEY_COLOR_DIFFUSE, QVector3D()) == white;
}

MaterialData SceneReader::readMaterial(const aiMaterial &source)
{
    if (isStandIn(source))
        return standInMaterial();
    const float metallic = number(source, AI_MATKEY_METALLIC_FACTOR, -1);
    const float roughness = number(source, AI_MATKEY_ROUGHNESS_FACTOR, -1);
    MaterialData material = metallic < 0 && roughness < 0
        ? mtlMaterial(source)
        : metallicMaterial(source, std::max(metallic, 0.0f), roughness < 0 ? 1 : roughness);

    material.d = isDeclaredOpaque(source) ? 1 : qBound(0.0f, number(source, AI_MATKEY_OPACITY, 1), 1.0f);
    material.mapKd = texture(source, {aiTextureType_DIFFUSE, aiTextureType_BASE_COLOR});
    const QImage opacity = texture(source, {aiTextureType_OPACITY});
    if (!opacity.isNull())
        material.mapKd = withOpacity(material.mapKd, opacity);
    return material;
}

MaterialData SceneReader::mtlMaterial(const aiMaterial &source)
{
    MaterialData material;
    material.kd = colour(source, AI_MATKEY_COLOR_DIFFUSE, material.kd);
    const float exponent = number(source, AI_MATKEY_SHININESS, 0);
    if (exponent > 0) {
        material.ks = colour(source, AI_MATKEY_COLOR_SPECULAR, material.ks);
        material.ns = exponent;
        material.mapKs = texture(source, {aiTextureType_SPECULAR});
    }
    return material;
}

/// Mean of a channel over an image, 0 to 1; 1 for a null image.
float mean(const QImage &image, int (*channel)(QRgb))
{
    if (image.isNull())
        return 1;
    const QImage rgb = image.convertToFormat(QImage::Format_RGB32);
    quint64 sum = 0;
    for (int y = 0; y < rgb.height(); ++y) {
        const QRgb *line = reinterpret_cast<const QRgb *>(rgb.constScanLine(y));
        for (int x = 0; x < rgb.width(); ++x)
            sum += quint64(channel(line[x]));
    }
    return float(double(sum) / (255.0 * rgb.width() * rgb.height()));
}

MaterialData SceneReader::metallicMaterial(const aiMaterial &source, float metallic, float roughness)
{
    // glTF packs both into one map: roughness in green, metallic in blue. In a grey map the channels agree.
    const float m = qBound(0.0f, metallic * mean(texture(source, {aiTextureType_METALNESS}), qBlue), 1.0f);
    const float r = qBound(0.0f, roughness * mean(texture(source, {aiTextureType_DIFFUSE_ROUGHNESS}), qGreen), 1.0f);
    const QVector3D base =
        colour(source, AI_MATKEY_BASE_COLOR, colour(source, AI_MATKEY_COLOR_DIFFUSE, standInMaterial().kd));
    const QVector3D reflectance = QVector3D(0.04f, 0.04f, 0.04f) * (1 - m) + base * m;
    const float strongest = std::max({reflectance.x(), reflectance.y(), reflectance.z(), 1e-3f});

    MaterialData material;
    material.kd = base * (1 - m / 2);
    material.ns = r > 0 ? qBound(1.0f, 2 / std::pow(r, 4.0f) - 2, 1024.0f) : 1024;
    material.ks = reflectance * (1 - r) * std::min((material.ns + 8) / 8, 1 / strongest);
    return material;
}

/// The first texture of these types; null, which is white, without one and with a warning for one that cannot be read.
QImage SceneReader::texture(const aiMaterial &material, std::initializer_list<aiTextureType> types)
{
    for (const aiTextureType type : types) {
        aiString name;
        if (material.GetTexture(type, 0, &name) != aiReturn_SUCCESS || name.length == 0)
            continue;
        const QString path = toQString(name);
        const auto known = m_images.constFind(path);
        if (known != m_images.constEnd())
            return known.value();
        QString reason;
        const QImage image = readTexture(path, &reason);
        if (image.isNull())
            warn(QStringLiteral("material \"%1\": texture \"%2\" %3; white is used")
                     .arg(toQString(const_cast<aiMaterial &>(material).GetName()), path, reason));
        m_images.insert(path, image);
        return image;
    }
    return {};
}

QImage SceneReader::readTexture(const QString &path, QString *reason)
{
    if (const aiTexture *embedded = m_source->GetEmbeddedTexture(path.toUtf8().constData())) {
        const auto *data = reinterpret_cast<const uchar *>(embedded->pcData);
        const QImage image = embedded->mHeight == 0
            ? QImage::fromData(data, int(embedded->mWidth))
            : QImage(data, int(embedded->mWidth), int(embedded->mHeight), QImage::Format_ARGB32).copy();
        *reason = QStringLiteral("in the file is no image that can be read");
        return image;
    }
    const QString slashed = QString(path).replace(QLatin1Char('\\'), QLatin1Char('/'));
    const QString decoded = QUrl::fromPercentEncoding(slashed.toUtf8());
    for (const QString &candidate : {slashed, decoded, QFileInfo(slashed).fileName()}) {
        const QString file = m_directory.filePath(candidate);
        if (!QFileInfo(file).isFile())
            continue;
        QImageReader reader(file);
        reader.setDecideFormatFromContent(true);
        const QImage image = reader.read();
        *reason = QStringLiteral("cannot be read (%1)").arg(reader.errorString());
        return image;
    }
    *reason = QStringLiteral("is not there");
    return {};
}

struct Vertex
{
    QVector3D position;
    QVector3D normal;
    QVector2D texCoord;

    bool operator==(const Vertex &other) const { return std::memcmp(this, &other, sizeof(Vertex)) == 0; }
};
static_assert(sizeof(Vertex) == 8 * sizeof(float), "vertices are compared as bytes");

uint qHash(const Vertex &vertex, uint seed)
{
    return qHashBits(&vertex, sizeof(Vertex), seed);
}

/// Texture coordinates for meshes without: a projection along the axis that a triangle faces most, unmirrored.
class BoxProjection
{
public:
    explicit BoxProjection(const aiMesh &mesh)
    {
        QVector3D low = toQVector(mesh.mVertices[0]);
        QVector3D high = low;
        for (unsigned v = 1; v < mesh.mNumVertices; ++v) {
            for (int axis = 0; axis < 3; ++axis) {
                low[axis] = std::min(low[axis], mesh.mVertices[v][unsigned(axis)]);
                high[axis] = std::max(high[axis], mesh.mVertices[v][unsigned(axis)]);
            }
        }
        m_centre = low / 2 + high / 2;
        const QVector3D extent = high - low;
        m_extent = std::max({extent.x(), extent.y(), extent.z()});
    }

    QVector2D project(const QVector3D &position, const QVector3D &normal) const
    {
        const QVector3D p = m_extent > 0 ? (position - m_centre) / m_extent : QVector3D();
        const QVector3D size(std::abs(normal.x()), std::abs(normal.y()), std::abs(normal.z()));
        const QVector2D offset(0.5f, 0.5f);
        if (size.y() >= size.x() && size.y() >= size.z())
            return offset + QVector2D(p.x(), normal.y() > 0 ? -p.z() : p.z());
        if (size.x() >= size.z())
            return offset + QVector2D(normal.x() > 0 ? -p.z() : p.z(), p.y());
        return offset + QVector2D(normal.z() > 0 ? p.x() : -p.x(), p.y());
    }

private:
    QVector3D m_centre;
    float m_extent;
};

/// The texture coordinate set that a mesh's diffuse map uses, where the mesh has it.
const aiVector3D *textureCoordinates(const aiMesh &mesh, const aiMaterial &material)
{
    int set = 0;
    material.Get(AI_MATKEY_UVWSRC(aiTextureType_DIFFUSE, 0), set);
    return mesh.mTextureCoords[set > 0 && mesh.HasTextureCoords(unsigned(set)) ? set : 0];
}

/// A triangle of a mesh: its corners as vertex numbers and the side it faces.
struct Triangle
{
    unsigned corners[3];
    QVector3D normal;
};

/// The triangles with an area; `cut` counts faces with fewer corners.
QVector<Triangle> trianglesOf(const aiMesh &mesh, int *cut)
{
    QVector<Triangle> triangles;
    triangles.reserve(int(mesh.mNumFaces));
    for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
        const aiFace &face = mesh.mFaces[f];
        if (face.mNumIndices != 3) {
            ++*cut;
            continue;
        }
        Triangle triangle{{face.mIndices[0], face.mIndices[1], face.mIndices[2]}, QVector3D()};
        const QVector3D a = toQVector(mesh.mVertices[triangle.corners[0]]);
        const QVector3D b = toQVector(mesh.mVertices[triangle.corners[1]]);
        const QVector3D c = toQVector(mesh.mVertices[triangle.corners[2]]);
        triangle.normal = unit(QVector3D::crossProduct(unit(b - a), unit(c - a)));
        if (!triangle.normal.isNull())
            triangles.append(triangle);
    }
    return triangles;
}

/// Normals for each corner of each triangle: the mean of the triangles that meet there, each by its angle there, without
/// those across a hard edge.
QVector<QVector3D> smoothNormals(const aiMesh &mesh, const QVector<Triangle> &triangles)
{
    struct Corner
    {
        QVector3D position;
        QVector3D weighted; // normal of its triangle times the angle
        int number;
    };
    QVector<Corner> corners;
    corners.reserve(3 * triangles.size());
    for (int t = 0; t < triangles.size(); ++t) {
        for (int c = 0; c < 3; ++c) {
            const QVector3D position = toQVector(mesh.mVertices[triangles[t].corners[c]]);
            const QVector3D next = unit(toQVector(mesh.mVertices[triangles[t].corners[(c + 1) % 3]]) - position);
            const QVector3D last = unit(toQVector(mesh.mVertices[triangles[t].corners[(c + 2) % 3]]) - position);
            const float angle = std::acos(qBound(-1.0f, QVector3D::dotProduct(next, last), 1.0f));
            corners.append({position, triangles[t].normal * angle, 3 * t + c});
        }
    }
    const auto place = [](const Corner &corner) {
        return std::make_tuple(corner.position.x(), corner.position.y(), corner.position.z());
    };
    std::sort(corners.begin(), corners.end(), [&](const Corner &a, const Corner &b) { return place(a) < place(b); });

    QVector<QVector3D> normals(corners.size());
    const float limit = std::cos(qDegreesToRadians(creaseAngle));
    for (auto first = corners.cbegin(); first != corners.cend();) {
        const auto last =
            std::find_if(first, corners.cend(), [&](const Corner &c) { return place(c) != place(*first); });
        QVector3D whole;
        for (auto corner = first; corner != last; ++corner)
            whole += corner->weighted;
        for (auto corner = first; corner != last; ++corner) {
            QVector3D sum = whole;
            if (last - first <= largestFan) {
                const QVector3D own = triangles[corner->number / 3].normal;
                sum = std::accumulate(first, last, QVector3D(), [&](const QVector3D &part, const Corner &other) {
                    const bool smooth = QVector3D::dotProduct(own, triangles[other.number / 3].normal) >= limit;
                    return smooth ? part + other.weighted : part;
                });
            }
            normals[corner->number] = unit(sum);
        }
        first = last;
    }
    return normals;
}

MeshData SceneReader::readMesh(const aiMesh &source)
{
    MeshData mesh;
    int cut = 0;
    const QVector<Triangle> triangles = trianglesOf(source, &cut);

    // In a mesh of triangles alone a face with fewer corners was cut off; elsewhere points and lines are meant.
    constexpr unsigned pointsAndLines = aiPrimitiveType_POINT | aiPrimitiveType_LINE;
    if (cut > 0 && !(source.mPrimitiveTypes & pointsAndLines))
        warn(QStringLiteral("%1: faces with fewer than 3 corners are left out (%2); is the file truncated?")
                 .arg(meshName(source), QString::number(cut)));
    if (triangles.isEmpty())
        return mesh;

    const aiVector3D *texCoords = textureCoordinates(source, *m_source->mMaterials[source.mMaterialIndex]);
    const BoxProjection projection(source);
    const QVector<QVector3D> made = source.mNormals ? QVector<QVector3D>() : smoothNormals(source, triangles);
    QHash<Vertex, quint32> numbers;
    numbers.reserve(int(source.mNumVertices));
    mesh.indices.reserve(3 * triangles.size());
    for (int corner = 0; corner < 3 * triangles.size(); ++corner) {
        const Triangle &triangle = triangles[corner / 3];
        const unsigned i = triangle.corners[corner % 3];
        const QVector3D normal = source.mNormals ? unit(toQVector(source.mNormals[i])) : made[corner];
        Vertex vertex;
        vertex.position = toQVector(source.mVertices[i]);
        vertex.normal = normal.isNull() ? triangle.normal : normal;
        vertex.texCoord = texCoords ? QVector2D(texCoords[i].x, texCoords[i].y)
                                    : projection.project(vertex.position, triangle.normal);
        if (!std::isfinite(vertex.texCoord.x()) || !std::isfinite(vertex.texCoord.y()))
            vertex.texCoord = QVector2D();

        const auto known = numbers.constFind(vertex);
        if (known != numbers.constEnd()) {
            mesh.indices.append(known.value());
            continue;
        }
        const auto next = quint32(mesh.positions.size());
        numbers.insert(vertex, next);
        mesh.indices.append(next);
        mesh.positions.append(vertex.position);
        mesh.normals.append(vertex.normal);
        mesh.texCoords.append(vertex.texCoord);
    }
    return mesh;
}

/// Whether a file is PLY with no line that ends its header: assimp 5.2 crashes on one or never comes back.
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

ObjText::ObjText(QFile *file)
{
    QByteArray line;
    while (!file->atEnd() && m_problem.isEmpty()) {
        line += file->readLine();
        ++m_line;
        const QByteArray text = line.simplified();
        if (text.endsWith('\\')) {
            line = text.chopped(1) + ' ';
            continue;
        }
        readLine(text);
        line.clear();
    }
    for (const Kind &kind : m_kinds) {
        if (m_problem.isEmpty() && kind.largest > kind.count)
            report(kind, kind.largestLine, kind.largest);
    }
}

void ObjText::readLine(const QByteArray &text)
{
    const QByteArray keyword = text.left(text.indexOf(' '));
    for (Kind &kind : m_kinds)
        kind.count += keyword == kind.keyword;
    if (keyword == "mtllib")
        m_libraries.append(QFile::decodeName(text.mid(keyword.size() + 1)));
    if (keyword != "f" || !text.contains('/'))
        return;
    // Corners have the forms 1, 1/2, 1//3 and 1/2/3.
    for (const QByteArray &corner : text.split(' ')) {
        const QList<QByteArray> parts = corner.split('/');
        for (int i = 1; i < parts.size() && i <= 2; ++i)
            readIndex(&m_kinds[i - 1], parts[i].toLongLong());
    }
}

void ObjText::readIndex(Kind *kind, qint64 index)
{
    if (-index > kind->count) // negative ones count back from the face
        report(*kind, m_line, index);
    if (index > kind->largest) {
        kind->largest = index;
        kind->largestLine = m_line;
    }
}

void ObjText::report(const Kind &kind, qint64 line, qint64 index)
{
    m_problem =
        QStringLiteral("line %1: a face has %2 %3, past the end of %4")
            .arg(QString::number(line), QLatin1String(kind.name), QString::number(index), QString::number(kind.count));
}

QStringList ObjText::libraryWarnings(const QString &file, const QStringList &missingFiles) const
{
    const QString ownName = QFileInfo(file).fileName().chopped(3) + QLatin1String("mtl");
    const QString standIn =
        missingFiles.contains(bareName(ownName)) ? QStringLiteral("grey") : QStringLiteral("\"%1\"").arg(ownName);
    QStringList warnings;
    for (const QString &library : m_libraries) {
        if (missingFiles.contains(bareName(library)))
            warnings.append(
                QStringLiteral("%1: material library \"%2\" cannot be opened; %3 is used").arg(file, library, standIn));
    }
    warnings.removeDuplicates();
    return warnings;
}

/// Why assimp gave no scene, in one line.
QString loaderReason(const Assimp::Importer &importer, const QString &file)
{
    const QString suffix = QFileInfo(file).suffix();
    const QString text = QString::fromUtf8(importer.GetErrorString());
    if (!text.startsWith(QLatin1String("No suitable reader")))
        return text.section(QLatin1Char('\n'), 0, 0).trimmed();
    if (!suffix.isEmpty() && importer.IsExtensionSupported(suffix.toUtf8().constData()))
        return QStringLiteral("damaged or truncated: no reader for .%1 files accepts it").arg(suffix);
    return QStringLiteral("unknown type of model file (OBJ, glTF, GLB, PLY, STL and 3DS are known, among others)");
}

} // namespace

QSharedPointer<GPUModel> ImportedScene::build() const
{
    GPUModelBuilder builder;
    for (const MeshData &mesh : meshes)
        builder.addMesh(mesh);
    for (const MaterialData &material : materials)
        builder.addMaterial(material);
    for (const ImportedItem &item : items)
        builder.addItem(item.mesh, item.material, item.modelMatrix, item.featureFlags);
    return builder.build();
}

bool importModel(const QString &file, ImportedScene *scene, QString *error)
{
    const auto refuse = [&](const QString &reason) {
        if (error)
            *error = QStringLiteral("%1: %2").arg(file, reason);
        return false;
    };
    const QFileInfo info(file);
    if (info.isDir())
        return refuse(QStringLiteral("is a directory, not a model file"));
    if (!info.exists())
        return refuse(QStringLiteral("no such file"));
    QFile content(file);
    if (!content.open(QIODevice::ReadOnly))
        return refuse(content.errorString());
    if (isCutPly(&content))
        return refuse(QStringLiteral("damaged or truncated: its header has no end"));

    LoaderLog log;
    Assimp::Importer importer;
    QStringList missingFiles;
    importer.SetIOHandler(new FileWatcher(&missingFiles)); // the importer owns it

    // Post-processing trusts its input, so what was read is checked before.
    const aiScene *source = importer.ReadFile(QFile::encodeName(file).constData(), 0);
    if (!source)
        return refuse(loaderReason(importer, file));
    if (log.indicesDropped())
        return refuse(QStringLiteral("a face has an index past the end of its mesh's vertices"));
    QString problem = SceneReader::findProblem(source);
    QStringList libraryWarnings;
    const bool isObj = importer.GetPropertyInteger("importerIndex") == int(importer.GetImporterIndex("obj"));
    if (problem.isEmpty() && isObj && content.seek(0)) {
        const ObjText text(&content);
        problem = text.problem();
        libraryWarnings = text.libraryWarnings(file, missingFiles);
    }
    if (!problem.isEmpty())
        return refuse(problem);
    source = importer.ApplyPostProcessing(aiProcess_Triangulate | aiProcess_GenUVCoords | aiProcess_TransformUVCoords);
    if (!source || !source->mRootNode)
        return refuse(loaderReason(importer, file));

    ImportedScene result = SceneReader(source, file).read();
    if (result.items.isEmpty())
        return refuse(noTriangles);
    for (const ImportedItem &item : result.items) {
        if (!isFinite(item.modelMatrix))
            return refuse(QStringLiteral("node \"%1\" has a matrix that is not finite").arg(item.name));
    }
    result.warnings = libraryWarnings + result.warnings;
    *scene = result;
    return true;
}

void addFloor(ImportedScene *scene)
{
    constexpr float most = std::numeric_limits<float>::max();
    QVector3D low(most, most, most);
    QVector3D high = -low;
    for (const ImportedItem &item : qAsConst(scene->items)) {
        for (const QVector3D &position : scene->meshes[item.mesh].positions) {
            const QVector3D point = item.modelMatrix * position;
            for (int axis = 0; axis < 3; ++axis) {
                low[axis] = std::min(low[axis], point[axis]);
                high[axis] = std::max(high[axis], point[axis]);
            }
        }
    }
    const QVector3D extent = high - low;
    const float half = std::max(extent.x(), extent.z()) / 2 + std::max(extent.y(), 0.0f);
    if (scene->items.isEmpty() || half <= 0)
        return;

    MeshData mesh;
    for (const QVector2D &corner : {QVector2D(-1, 1), QVector2D(1, 1), QVector2D(1, -1), QVector2D(-1, -1)}) {
        mesh.positions.append(
            {(low.x() + high.x()) / 2 + corner.x() * half, low.y(), (low.z() + high.z()) / 2 + corner.y() * half});
        mesh.normals.append({0, 1, 0});
        mesh.texCoords.append((corner + QVector2D(1, 1)) / 2);
    }
    mesh.indices = {0, 1, 2, 0, 2, 3};
    MaterialData material;
    material.kd = {0.75f, 0.75f, 0.75f};

    ImportedItem item;
    item.name = QStringLiteral("floor");
    item.mesh = scene->meshes.size();
    item.material = scene->materials.size();
    scene->meshes.append(mesh);
    scene->materials.append(material);
    scene->items.append(item);
}

} // namespace Velmora::Kvz
