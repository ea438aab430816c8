// SPDX-License-Identifier: MIT
#include "AmfReader.h"

#include "FormatNames.h"
#include "ImportBudget.h"
#include "MaterialModel.h"
#include "MeshCompletion.h"
#include "NodePose.h"
#include "ZipFile.h"

#include <assimp/cimport.h>
#include <assimp/importerdesc.h>

#include <QtCore/QFile>
#include <QtCore/QHash>
#include <QtCore/QSet>
#include <QtCore/QXmlStreamReader>

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

namespace Velmora::Kvz {

namespace {

using Colour = std::optional<QVector4D>;

struct Instance
{
    QString object; ///< Or constellation.
    QMatrix4x4 matrix;
};

struct Constellation
{
    QString name;
    std::vector<Instance> instances;
};

struct Volume
{
    QString material;
    Colour colour;
    QVector<quint32> indices;
    std::vector<Colour> triangleColours; ///< Empty where none has one.
};

struct Object
{
    QString id;
    QString name;
    Colour colour;
    QVector<QVector3D> positions;
    std::vector<Colour> vertexColours; ///< Empty where none has one.
    std::vector<Volume> volumes;
};

struct Material
{
    QString name;
    Colour colour;
};

/// What an AMF document says.
class AmfDocument
{
public:
    AmfDocument(QXmlStreamReader *reader, ImportBudget *budget)
        : m_reader(reader),
          m_budget(budget)
    { }

    bool read();

    QString problem;
    float unit = 0;
    std::vector<Object> objects;
    QHash<QString, Material> materials;
    QHash<QString, Constellation> constellations;
    QStringList order; // of the constellations
    bool hasFormulas = false;
    bool hasTextures = false;

private:
    QString attribute(const char *name) const { return m_reader->attributes().value(QLatin1String(name)).toString(); }
    bool is(const char *name) const { return m_reader->name() == QLatin1String(name); }
    bool next();
    float number();
    Colour readColour();
    /// The name in an element with metadata, where that is what was met; else the element is skipped.
    void readOther(QString *name);
    void readMaterial();
    void readConstellation();
    Instance readInstance();
    void readObject();
    void readMesh(Object *object);
    void readVertices(Object *object);
    void readVolume(Object *object);
    void readTriangle(const Object &object, Volume *volume);

    QXmlStreamReader *m_reader;
    ImportBudget *m_budget;
};

/// To the next child of the element that is open; false behind its last one.
bool AmfDocument::next()
{
    return problem.isEmpty() && m_reader->readNextStartElement();
}

float AmfDocument::number()
{
    const QString text = m_reader->readElementText(QXmlStreamReader::SkipChildElements).trimmed();
    bool fits = false;
    const float value = text.toFloat(&fits);
    if ((!fits || !std::isfinite(value)) && problem.isEmpty() && !m_reader->hasError())
        problem = QStringLiteral("line %1: \"%2\" stands where a number is needed")
                      .arg(m_reader->lineNumber())
                      .arg(text.left(40).simplified());
    return value;
}

Colour AmfDocument::readColour()
{
    QVector4D colour(0, 0, 0, 1);
    bool isFormula = false;
    while (next()) {
        const int part = is("r") ? 0 : is("g") ? 1 : is("b") ? 2 : is("a") ? 3 : -1;
        const QString text = m_reader->readElementText(QXmlStreamReader::SkipChildElements);
        bool fits = false;
        const float value = text.toFloat(&fits);
        if (part >= 0)
            colour[part] = qBound(0.0f, std::isfinite(value) ? value : 0, 1.0f);
        isFormula |= part >= 0 && !fits;
    }
    hasFormulas |= isFormula;
    return isFormula ? Colour() : Colour(colour);
}

void AmfDocument::readOther(QString *name)
{
    if (is("metadata") && attribute("type") == QLatin1String("name"))
        *name = m_reader->readElementText(QXmlStreamReader::SkipChildElements).trimmed();
    else
        m_reader->skipCurrentElement();
}

void AmfDocument::readMaterial()
{
    const QString id = attribute("id");
    Material material;
    while (next()) {
        if (is("color"))
            material.colour = readColour();
        else
            readOther(&material.name);
    }
    materials.insert(id, material);
}

Instance AmfDocument::readInstance()
{
    Instance instance;
    instance.object = attribute("objectid");
    QVector3D delta;
    QVector3D angles;
    while (next()) {
        const QString name = m_reader->name().toString();
        const int axis = name.isEmpty() ? -1 : QStringLiteral("xyz").indexOf(name.at(name.size() - 1));
        if (axis >= 0 && name.startsWith(QLatin1String("delta")))
            delta[axis] = number();
        else if (axis >= 0 && name.size() == 2 && name.startsWith(QLatin1Char('r')))
            angles[axis] = number();
        else
            m_reader->skipCurrentElement();
    }
    instance.matrix.translate(delta);
    instance.matrix.rotate(angles.z(), 0, 0, 1); // about x first
    instance.matrix.rotate(angles.y(), 0, 1, 0);
    instance.matrix.rotate(angles.x(), 1, 0, 0);
    return instance;
}

void AmfDocument::readConstellation()
{
    const QString id = attribute("id");
    Constellation constellation;
    while (next()) {
        if (is("instance"))
            constellation.instances.push_back(readInstance());
        else
            readOther(&constellation.name);
    }
    constellations.insert(id, constellation);
    order.append(id);
}

void AmfDocument::readVertices(Object *object)
{
    while (next()) {
        if (!is("vertex")) { // edges, which are curved
            m_reader->skipCurrentElement();
            continue;
        }
        QVector3D position;
        Colour colour;
        while (next()) {
            if (is("coordinates")) {
                while (next()) {
                    const int axis = is("x") ? 0 : is("y") ? 1 : is("z") ? 2 : -1;
                    if (axis < 0)
                        m_reader->skipCurrentElement();
                    else
                        position[axis] = number() + 0.0f; // zero has two signs
                }
            } else if (is("color")) {
                colour = readColour();
            } else {
                m_reader->skipCurrentElement();
            }
        }
        object->positions.append(position);
        if (colour || !object->vertexColours.empty()) {
            object->vertexColours.resize(size_t(object->positions.size()));
            object->vertexColours.back() = colour;
        }
        if (!m_budget->isTimeLeft() || !m_budget->takeVertices(1))
            problem = m_budget->problem();
    }
    if (!object->vertexColours.empty())
        object->vertexColours.resize(size_t(object->positions.size()));
}

void AmfDocument::readTriangle(const Object &object, Volume *volume)
{
    const auto line = m_reader->lineNumber();
    Colour colour;
    qint64 corners[3] = {-1, -1, -1};
    while (next()) {
        const int corner = is("v1") ? 0 : is("v2") ? 1 : is("v3") ? 2 : -1;
        hasTextures |= is("texmap") || is("map");
        if (corner >= 0)
            corners[corner] = m_reader->readElementText(QXmlStreamReader::SkipChildElements).trimmed().toLongLong();
        else if (is("color"))
            colour = readColour();
        else
            m_reader->skipCurrentElement();
    }
    for (const qint64 corner : corners) {
        if ((corner < 0 || corner >= object.positions.size()) && problem.isEmpty())
            problem = QStringLiteral("line %1: a triangle has index %2, past the end of %3 vertices")
                          .arg(line)
                          .arg(corner)
                          .arg(object.positions.size());
        volume->indices.append(quint32(corner));
    }
    if (colour || !volume->triangleColours.empty()) {
        volume->triangleColours.resize(size_t(volume->indices.size() / 3));
        volume->triangleColours.back() = colour;
    }
}

void AmfDocument::readVolume(Object *object)
{
    Volume volume;
    volume.material = attribute("materialid");
    QString ignored;
    while (next()) {
        if (is("triangle"))
            readTriangle(*object, &volume);
        else if (is("color"))
            volume.colour = readColour();
        else
            readOther(&ignored);
    }
    if (!volume.triangleColours.empty())
        volume.triangleColours.resize(size_t(volume.indices.size() / 3));
    object->volumes.push_back(volume);
}

void AmfDocument::readMesh(Object *object)
{
    // The indices of an object's second mesh count from its own vertices.
    Object part;
    while (next()) {
        if (is("vertices"))
            readVertices(&part);
        else if (is("volume"))
            readVolume(&part);
        else
            m_reader->skipCurrentElement();
    }
    part.id = object->id;
    part.name = object->name;
    part.colour = object->colour;
    if (!part.volumes.empty())
        objects.push_back(part);
}

void AmfDocument::readObject()
{
    Object object;
    object.id = attribute("id");
    const size_t first = objects.size();
    while (next()) {
        if (is("mesh"))
            readMesh(&object);
        else if (is("color"))
            object.colour = readColour();
        else
            readOther(&object.name);
    }
    for (size_t part = first; part < objects.size(); ++part) {
        objects[part].name = object.name;
        objects[part].colour = object.colour;
    }
}

bool AmfDocument::read()
{
    if (!m_reader->readNextStartElement() || m_reader->name() != QLatin1String("amf")) {
        problem = QStringLiteral("damaged: it is no AMF document");
        return false;
    }
    const QString name = attribute("unit");
    unit = name.isEmpty() ? metresOf(QStringLiteral("millimeter")) : metresOf(name.toLower());
    while (next()) {
        hasTextures |= is("texture");
        if (is("object"))
            readObject();
        else if (is("material"))
            readMaterial();
        else if (is("constellation"))
            readConstellation();
        else
            m_reader->skipCurrentElement();
    }
    if (problem.isEmpty() && m_reader->hasError())
        problem = QStringLiteral("damaged: line %1 of its XML cannot be parsed").arg(m_reader->lineNumber());
    return problem.isEmpty();
}

/// The scene of a document.
class AmfScene
{
public:
    AmfScene(const AmfDocument &document, const QString &file, ImportedScene *scene)
        : m_document(document),
          m_file(file),
          m_scene(scene)
    { }

    bool build(const ImportOptions &options, QString *problem);

private:
    void addMeshes();
    void addMesh(size_t object, const Volume &volume);
    int materialOf(const Volume &volume, const Object &object, const QVector<QVector4D> &colours);
    bool place(const QString &id, int parent, const QMatrix4x4 &matrix, QSet<QString> *open, QString *problem);

    struct Part
    {
        int mesh;
        int material;
    };

    const AmfDocument &m_document;
    QString m_file;
    ImportedScene *m_scene;
    std::vector<std::vector<Part>> m_parts; // by object
    QVector<QPair<int, Part>> m_placed; // by node
    QSet<QString> m_reached; // constellations
};

int AmfScene::materialOf(const Volume &volume, const Object &object, const QVector<QVector4D> &colours)
{
    const Material named = m_document.materials.value(volume.material);
    ImportedMaterial material = standInMaterial(vertexColoursOf(colours));
    material.name = named.name.isEmpty() && m_document.materials.contains(volume.material)
        ? QStringLiteral("material %1").arg(volume.material)
        : named.name;
    const Colour colour = volume.colour ? volume.colour : object.colour ? object.colour : named.colour;
    if (colour && colours.isEmpty()) {
        material.kd = colour->toVector3D();
        material.baseColour = *colour;
        if (colour->w() < 1) {
            material.alphaMode = ImportedMaterial::Blend;
            material.d = colour->w();
        }
    }
    const auto isSame = [&material](const ImportedMaterial &known) {
        return known.name == material.name && known.baseColour == material.baseColour
            && known.alphaMode == material.alphaMode;
    };
    const auto known = std::find_if(m_scene->materials.cbegin(), m_scene->materials.cend(), isSame);
    if (known != m_scene->materials.cend())
        return int(known - m_scene->materials.cbegin());
    m_scene->materials.append(material);
    return m_scene->materials.size() - 1;
}

void AmfScene::addMesh(size_t number, const Volume &volume)
{
    const Object &object = m_document.objects[number];
    const QVector4D grey(0.8f, 0.8f, 0.8f, 1); // as meshes without colours are
    ImportedMesh mesh;
    mesh.name = object.name;
    mesh.positions = object.positions;
    mesh.indices = volume.indices;
    const bool hasColours = !volume.triangleColours.empty() || !object.vertexColours.empty();
    if (hasColours) { // of corners, since triangles that share a vertex may disagree
        const Colour around = volume.colour ? volume.colour
            : object.colour                 ? object.colour
                                            : m_document.materials.value(volume.material).colour;
        mesh.positions.clear();
        for (int i = 0; i < volume.indices.size(); ++i) {
            const size_t triangle = size_t(i / 3);
            const quint32 vertex = volume.indices[i];
            Colour colour = around;
            if (!object.vertexColours.empty() && object.vertexColours[vertex])
                colour = object.vertexColours[vertex];
            if (!volume.triangleColours.empty() && volume.triangleColours[triangle])
                colour = volume.triangleColours[triangle];
            mesh.positions.append(object.positions[int(vertex)]);
            mesh.colours.append(colour.value_or(grey));
            mesh.indices[i] = quint32(i);
        }
    }
    if (!mesh.indices.isEmpty())
        weld(&mesh);
    const QString remark = completeMesh(&mesh);
    if (!remark.isEmpty())
        m_scene->warnings.append(QStringLiteral("%1: object %2: %3")
                                     .arg(m_file, object.id.isEmpty() ? QStringLiteral("0") : object.id, remark));
    if (mesh.indices.isEmpty())
        return;
    m_parts[number].push_back({m_scene->meshes.size(), materialOf(volume, object, mesh.colours)});
    m_scene->meshes.append(mesh);
}

void AmfScene::addMeshes()
{
    m_parts.resize(m_document.objects.size());
    for (size_t object = 0; object < m_document.objects.size(); ++object) {
        for (const Volume &volume : m_document.objects[object].volumes)
            addMesh(object, volume);
    }
}

/// Places an object, or a constellation with all that it holds.
bool AmfScene::place(const QString &id, int parent, const QMatrix4x4 &matrix, QSet<QString> *open, QString *problem)
{
    constexpr int mostNodes = 1000000;
    const auto found = m_document.constellations.constFind(id);
    const bool isConstellation = found != m_document.constellations.constEnd();
    bool isThere = isConstellation;
    for (size_t object = 0; object < m_parts.size() && !isConstellation; ++object) {
        if (m_document.objects[object].id != id)
            continue;
        isThere = true;
        const int node = m_scene->nodes.size();
        m_scene->nodes.append({m_document.objects[object].name, parent, matrix});
        for (const Part &part : m_parts[object])
            m_placed.append({node, part});
    }
    if (!isThere)
        m_scene->warnings.append(
            QStringLiteral("%1: object %2, which a constellation places, is not there").arg(m_file, id));
    if (!isConstellation)
        return true;
    if (open->contains(id) || m_scene->nodes.size() > mostNodes) {
        *problem = open->contains(id) ? QStringLiteral("constellation %1 holds itself").arg(id)
                                      : QStringLiteral("its constellations place more than %1 objects").arg(mostNodes);
        return false;
    }
    open->insert(id);
    m_reached.insert(id);
    const int node = m_scene->nodes.size();
    m_scene->nodes.append({found->name, parent, matrix});
    for (const Instance &instance : found->instances) {
        if (!place(instance.object, node, instance.matrix, open, problem))
            return false;
    }
    open->remove(id);
    return true;
}

bool AmfScene::build(const ImportOptions &options, QString *problem)
{
    m_scene->unit = m_document.unit;
    m_scene->upAxis = QStringLiteral("z"); // by the standard
    QMatrix4x4 root;
    if (!upMatrix(options.up.isEmpty() ? m_scene->upAxis : options.up, &root)) {
        *problem = QStringLiteral("\"%1\" is no axis; x, y and z are, and each with a minus").arg(options.up);
        return false;
    }
    addMeshes();
    QSet<QString> placed;
    for (const Constellation &constellation : m_document.constellations) {
        for (const Instance &instance : constellation.instances)
            placed.insert(instance.object);
    }
    QStringList ids = m_document.order;
    for (const Object &object : m_document.objects)
        ids.append(object.id);
    ids.removeDuplicates();
    QSet<QString> open;
    for (const QString &id : qAsConst(ids)) {
        if (!placed.contains(id) && !place(id, -1, QMatrix4x4(), &open, problem))
            return false;
    }
    // What nothing outside of it places holds itself.
    for (const QString &id : m_document.order) {
        if (!m_reached.contains(id)) {
            *problem = QStringLiteral("constellation %1 holds itself").arg(id);
            return false;
        }
    }
    if (!poseNodes(options, {}, m_scene, problem))
        return false;
    const QVector<QMatrix4x4> world = worldMatrices(m_scene->nodes, root);
    ItemFlags flags;
    for (const QPair<int, Part> &part : qAsConst(m_placed)) {
        ImportedItem item;
        item.name = m_scene->nodes[part.first].name;
        item.mesh = part.second.mesh;
        item.material = part.second.material;
        item.node = part.first;
        item.modelMatrix = world[part.first];
        item.featureFlags = flags.of(*m_scene, item.material, item.mesh);
        m_scene->items.append(item);
    }
    if (m_document.hasFormulas)
        m_scene->warnings.append(QStringLiteral("%1: colours that are formulas are left out").arg(m_file));
    if (m_document.hasTextures)
        m_scene->warnings.append(QStringLiteral("%1: its textures are not read").arg(m_file));
    return true;
}

} // namespace

float metresOf(const QString &unit)
{
    static const QHash<QString, float> units{{QStringLiteral("micron"), 1e-6f}, {QStringLiteral("micrometer"), 1e-6f},
        {QStringLiteral("millimeter"), 1e-3f}, {QStringLiteral("centimeter"), 1e-2f}, {QStringLiteral("meter"), 1.0f},
        {QStringLiteral("inch"), 0.0254f}, {QStringLiteral("foot"), 0.3048f}, {QStringLiteral("feet"), 0.3048f}};
    return units.value(unit, 0);
}

bool readAmf(QFile *file, const ImportOptions &options, ImportBudget *budget, ImportedScene *scene, QString *problem)
{
    QByteArray unpacked;
    QXmlStreamReader reader;
    if (file->seek(0) && file->peek(2) == "PK") {
        const QByteArray archive = file->readAll();
        const ZipFile zip(archive);
        for (const QString &name : zip.names()) {
            if (unpacked.isNull() && name.endsWith(QLatin1String(".amf"), Qt::CaseInsensitive)
                && budget->takeBytes(zip.size(name)))
                unpacked = zip.read(name, zip.size(name));
        }
        if (unpacked.isNull()) {
            *problem = budget->problem().isEmpty() ? QStringLiteral("damaged: its archive holds no AMF document")
                                                   : budget->problem();
            return false;
        }
        reader.addData(unpacked);
    } else {
        reader.setDevice(file);
    }
    reader.setNamespaceProcessing(false);
    AmfDocument document(&reader, budget);
    if (!document.read()) {
        *problem = document.problem;
        return false;
    }
    ImportedScene result;
    result.format = formatNameOf(aiGetImporterDesc("amf")->mName);
    if (!AmfScene(document, file->fileName(), &result).build(options, problem))
        return false;
    *scene = result;
    return true;
}

} // namespace Velmora::Kvz
