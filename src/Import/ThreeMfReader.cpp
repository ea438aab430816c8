// SPDX-License-Identifier: MIT
#include "ThreeMfReader.h"

#include "AmfReader.h"
#include "FormatNames.h"
#include "ImportBudget.h"
#include "MaterialModel.h"
#include "MeshCompletion.h"
#include "NodePose.h"
#include "SceneImages.h"
#include "ThreeMfDocument.h"

#include <assimp/cimport.h>
#include <assimp/importerdesc.h>

#include <QtCore/QFile>
#include <QtCore/QMap>
#include <QtCore/QSet>

#include <algorithm>
#include <vector>

namespace Velmora::Kvz {

namespace {

using Document = ThreeMfDocument;

const QVector4D grey(0.8f, 0.8f, 0.8f, 1); // as meshes without colours are

/// The scene of a document.
class ThreeMfScene
{
public:
    ThreeMfScene(const Document &document, const ZipFile &archive, QFile *file, ImportBudget *budget)
        : m_document(document),
          m_archive(archive),
          m_budget(budget),
          m_file(file->fileName()),
          m_images(m_file, budget, &m_scene)
    { }

    bool build(const ImportOptions &options, QString *problem);
    const ImportedScene &scene() const { return m_scene; }

private:
    struct Part
    {
        int mesh;
        int material;
    };

    /// Of an object that is there.
    const QVector<Part> &partsOf(const Document::Key &key);
    void addPart(const Document::Object &object, const Document::Key &texture, const std::vector<int> &triangles,
        QVector<Part> *parts);
    const Document::Group *groupOf(const Document::Property &property) const;
    QVector4D colourOf(const Document::Property &property, int corner) const;
    ImportedMaterial materialOf(const Document::Key &texture, const QVector<QVector4D> &colours, const QString &name);
    int numberOf(const ImportedMaterial &material);
    bool place(const Document::Placement &placement, int parent, QSet<Document::Key> *open, QString *problem);
    void addWarnings();

    const Document &m_document;
    const ZipFile &m_archive;
    ImportBudget *m_budget;
    QString m_file;
    ImportedScene m_scene;
    SceneImages m_images;
    QHash<Document::Key, QVector<Part>> m_parts; // by object
    QVector<QPair<int, Part>> m_placed; // by node
    QStringList m_missing; // what properties refer to and is not there
};

const Document::Group *ThreeMfScene::groupOf(const Document::Property &property) const
{
    if (property.group < 0)
        return nullptr;
    const auto found = m_document.groups.constFind(m_document.groupKeys[property.group]);
    return found == m_document.groups.constEnd() ? nullptr : &*found;
}

QVector4D ThreeMfScene::colourOf(const Document::Property &property, int corner) const
{
    const Document::Group *const group = groupOf(property);
    const auto number = size_t(property.numbers[corner]);
    return group && number < group->colours.size() ? group->colours[number] : grey;
}

/// Of a texture, or of colours of the corners; one colour throughout is the material's own.
ImportedMaterial ThreeMfScene::materialOf(
    const Document::Key &texture, const QVector<QVector4D> &colours, const QString &name)
{
    ImportedMaterial material = standInMaterial(vertexColoursOf(colours));
    material.name = name;
    if (texture.second.isEmpty())
        return material;
    material.kd = {1, 1, 1};
    material.baseColour = {1, 1, 1, 1};
    const Document::Texture image = m_document.textures.value(texture);
    const QString path = image.path.isEmpty() ? texture.second : image.path;
    ImportedTexture &target = material.baseColourTexture;
    const qint64 size = m_archive.size(image.path);
    target.image = size > 0 && m_budget->takeBytes(size)
        ? m_images.fromBytes(path, m_archive.read(image.path, size), ImportedImage::Colour, material.name)
        : m_images.missing(path, QStringLiteral("is not in the archive"), ImportedImage::Colour, material.name);
    const auto wrapOf = [](const QString &style) {
        return style == QLatin1String("mirror")                                 ? ImageSampling::MirroredRepeat
            : style == QLatin1String("clamp") || style == QLatin1String("none") ? ImageSampling::ClampToEdge
                                                                                : ImageSampling::Repeat;
    };
    target.wrapU = wrapOf(image.wrapU);
    target.wrapV = wrapOf(image.wrapV);
    target.magnification = image.isNearest ? ImageSampling::Nearest : ImageSampling::Linear;
    material.mapKd = m_images.at(target.image);
    return material;
}

int ThreeMfScene::numberOf(const ImportedMaterial &material)
{
    const auto isSame = [&material](const ImportedMaterial &known) {
        return known.name == material.name && known.kd == material.kd && known.d == material.d
            && known.alphaMode == material.alphaMode
            && known.baseColourTexture.image == material.baseColourTexture.image
            && known.baseColourTexture.wrapU == material.baseColourTexture.wrapU
            && known.baseColourTexture.wrapV == material.baseColourTexture.wrapV
            && known.baseColourTexture.magnification == material.baseColourTexture.magnification;
    };
    const auto known = std::find_if(m_scene.materials.cbegin(), m_scene.materials.cend(), isSame);
    if (known != m_scene.materials.cend())
        return int(known - m_scene.materials.cbegin());
    m_scene.materials.append(material);
    return m_scene.materials.size() - 1;
}

/// The triangles of an object that have the same texture, or some of those that have none.
void ThreeMfScene::addPart(const Document::Object &object, const Document::Key &texture,
    const std::vector<int> &triangles, QVector<Part> *parts)
{
    const auto propertyOf = [&object](int triangle) {
        return object.properties.empty() ? object.property : object.properties[size_t(triangle)];
    };
    const Document::Property first = propertyOf(triangles.front());
    const Document::Group *const group = groupOf(first);
    const bool isTextured = !texture.second.isEmpty();
    const bool isPlain = !isTextured && std::all_of(triangles.begin(), triangles.end(), [&](int triangle) {
        const Document::Property property = propertyOf(triangle);
        return property.group == first.group
            && std::all_of(std::begin(property.numbers), std::end(property.numbers),
                [&](int number) { return number == first.numbers[0]; });
    });
    ImportedMesh mesh;
    mesh.name = object.name;
    if (isPlain && int(triangles.size()) == object.indices.size() / 3) {
        mesh.positions = object.positions;
        mesh.indices = object.indices;
    } else {
        for (const int triangle : triangles) {
            const Document::Property property = propertyOf(triangle);
            const Document::Group *const own = groupOf(property);
            for (int corner = 0; corner < 3; ++corner) {
                mesh.indices.append(quint32(mesh.positions.size()));
                mesh.positions.append(object.positions[int(object.indices[3 * triangle + corner])]);
                const auto number = size_t(property.numbers[corner]);
                if (isTextured)
                    mesh.texCoords.append(number < own->texCoords.size() ? own->texCoords[number] : QVector2D());
                else if (!isPlain)
                    mesh.colours.append(colourOf(property, corner));
            }
        }
        weld(&mesh);
    }
    const bool isOfGroup = isPlain && group && size_t(first.numbers[0]) < group->colours.size();
    ImportedMaterial material =
        materialOf(texture, mesh.colours, isOfGroup ? group->names.value(first.numbers[0]) : QString());
    if (isOfGroup) {
        material.baseColour = group->colours[size_t(first.numbers[0])];
        material.kd = material.baseColour.toVector3D();
        if (material.baseColour.w() < 1) {
            material.alphaMode = ImportedMaterial::Blend;
            material.d = material.baseColour.w();
        }
    }
    const QString remark = completeMesh(&mesh);
    if (!remark.isEmpty())
        m_scene.warnings.append(QStringLiteral("%1: object \"%2\": %3").arg(m_file, object.name, remark));
    if (mesh.indices.isEmpty())
        return;
    parts->append({m_scene.meshes.size(), numberOf(material)});
    m_scene.meshes.append(mesh);
}

const QVector<ThreeMfScene::Part> &ThreeMfScene::partsOf(const Document::Key &key)
{
    const auto known = m_parts.constFind(key);
    if (known != m_parts.constEnd())
        return *known;
    const Document::Object &object = *m_document.objects.constFind(key);
    // By texture, and by whether light passes: opaque triangles are drawn as such.
    QMap<QPair<Document::Key, bool>, std::vector<int>> triangles;
    for (int triangle = 0; triangle < object.indices.size() / 3; ++triangle) {
        const Document::Property property =
            object.properties.empty() ? object.property : object.properties[size_t(triangle)];
        const Document::Group *const group = groupOf(property);
        if (property.group >= 0 && !group)
            m_missing.append(m_document.groupKeys[property.group].second);
        const bool isTranslucent =
            std::min({colourOf(property, 0).w(), colourOf(property, 1).w(), colourOf(property, 2).w()}) < 1;
        triangles[{group ? group->texture : Document::Key(), isTranslucent}].push_back(triangle);
    }
    QVector<Part> parts;
    for (auto part = triangles.cbegin(); part != triangles.cend(); ++part)
        addPart(object, part.key().first, part.value(), &parts);
    return *m_parts.insert(key, parts);
}

/// Places an object with its components.
bool ThreeMfScene::place(const Document::Placement &placement, int parent, QSet<Document::Key> *open, QString *problem)
{
    constexpr int mostNodes = 1000000;
    constexpr int mostLevels = 200;
    const auto found = m_document.objects.constFind(placement.object);
    if (found == m_document.objects.constEnd()) {
        m_scene.warnings.append(
            QStringLiteral("%1: object %2, which it places, is not there").arg(m_file, placement.object.second));
        return true;
    }
    if (open->contains(placement.object))
        *problem = QStringLiteral("object %1 holds itself").arg(placement.object.second);
    else if (m_scene.nodes.size() > mostNodes)
        *problem = QStringLiteral("its components place more than %1 objects").arg(mostNodes);
    else if (open->size() > mostLevels)
        *problem = QStringLiteral("its components are nested deeper than %1 levels").arg(mostLevels);
    if (!problem->isEmpty())
        return false;
    const int node = m_scene.nodes.size();
    m_scene.nodes.append({found->name, parent, placement.matrix});
    for (const Part &part : partsOf(placement.object))
        m_placed.append({node, part});
    open->insert(placement.object);
    for (const Document::Placement &component : found->components) {
        if (!place(component, node, open, problem))
            return false;
    }
    open->remove(placement.object);
    return true;
}

void ThreeMfScene::addWarnings()
{
    m_missing.removeDuplicates();
    for (const QString &id : qAsConst(m_missing))
        m_scene.warnings.append(
            QStringLiteral("%1: the property group %2, which triangles name, is not there; grey is used")
                .arg(m_file, id));
    if (!m_document.leftOut.isEmpty())
        m_scene.warnings.append(QStringLiteral("%1: resources of these kinds are not read: %2")
                                    .arg(m_file, m_document.leftOut.join(QStringLiteral(", "))));
    if (m_document.hasPaint)
        m_scene.warnings.append(
            QStringLiteral("%1: colours that a slicer has painted onto triangles are not read").arg(m_file));
}

bool ThreeMfScene::build(const ImportOptions &options, QString *problem)
{
    m_scene.format = formatNameOf(aiGetImporterDesc("3mf")->mName);
    m_scene.unit = metresOf(m_document.unit.isEmpty() ? QStringLiteral("millimeter") : m_document.unit.toLower());
    m_scene.upAxis = QStringLiteral("z"); // by the standard
    QMatrix4x4 root;
    if (!upMatrix(options.up.isEmpty() ? m_scene.upAxis : options.up, &root)) {
        *problem = QStringLiteral("\"%1\" is no axis; x, y and z are, and each with a minus").arg(options.up);
        return false;
    }
    std::vector<Document::Placement> items = m_document.items;
    if (items.empty()) { // nothing to print, and yet to be seen
        QSet<Document::Key> placed;
        for (const Document::Object &object : m_document.objects) {
            for (const Document::Placement &component : object.components)
                placed.insert(component.object);
        }
        for (const Document::Key &key : m_document.order) {
            if (!placed.contains(key))
                items.push_back({key, QMatrix4x4()});
        }
    }
    QSet<Document::Key> open;
    for (const Document::Placement &item : items) {
        if (!place(item, -1, &open, problem))
            return false;
    }
    if (!poseNodes(options, {}, &m_scene, problem))
        return false;
    const QVector<QMatrix4x4> world = worldMatrices(m_scene.nodes, root);
    ItemFlags flags;
    for (const QPair<int, Part> &part : qAsConst(m_placed)) {
        ImportedItem item;
        item.name = m_scene.nodes[part.first].name;
        item.mesh = part.second.mesh;
        item.material = part.second.material;
        item.node = part.first;
        item.modelMatrix = world[part.first];
        item.featureFlags = flags.of(m_scene, item.material, item.mesh);
        m_scene.items.append(item);
    }
    addWarnings();
    return true;
}

} // namespace

bool read3mf(QFile *file, const ImportOptions &options, ImportBudget *budget, ImportedScene *scene, QString *problem)
{
    const QByteArray content = file->seek(0) ? file->readAll() : QByteArray();
    const ZipFile archive(content);
    if (archive.names().isEmpty()) {
        *problem = QStringLiteral("damaged or truncated: it is no ZIP archive");
        return false;
    }
    Document document(archive, budget);
    if (!document.read()) {
        *problem = document.problem;
        return false;
    }
    ThreeMfScene built(document, archive, file, budget);
    if (!built.build(options, problem))
        return false;
    *scene = built.scene();
    return true;
}

} // namespace Velmora::Kvz
