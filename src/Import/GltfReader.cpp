// SPDX-License-Identifier: MIT
#include "GltfReader.h"

#include "FormatNames.h"
#include "GltfExtensions.h"
#include "ImportBudget.h"
#include "MaterialModel.h"
#include "MeshCompletion.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace Velmora::Kvz {

namespace {

bool isIn(int index, size_t count)
{
    return index >= 0 && size_t(index) < count;
}

QVector3D vector3(const std::vector<double> &values, const QVector3D &fallback)
{
    return values.size() == 3 ? QVector3D(float(values[0]), float(values[1]), float(values[2])) : fallback;
}

NodePose poseOf(const tinygltf::Node &node)
{
    NodePose pose;
    pose.translation = vector3(node.translation, QVector3D());
    pose.scale = vector3(node.scale, QVector3D(1, 1, 1));
    if (node.rotation.size() == 4)
        pose.rotation = QQuaternion(
            float(node.rotation[3]), float(node.rotation[0]), float(node.rotation[1]), float(node.rotation[2]))
                            .normalized();
    return pose;
}

QMatrix4x4 matrixOf(const tinygltf::Node &node)
{
    if (node.matrix.size() != 16)
        return poseOf(node).matrix();
    QMatrix4x4 matrix;
    for (int i = 0; i < 16; ++i)
        matrix.data()[i] = float(node.matrix[size_t(i)]); // by columns, both
    matrix.optimize();
    return matrix;
}

/// The triangles of a strip or fan, all of one winding.
QVector<quint32> trianglesOf(const QVector<quint32> &corners, int mode)
{
    if (mode != TINYGLTF_MODE_TRIANGLE_STRIP && mode != TINYGLTF_MODE_TRIANGLE_FAN)
        return corners.mid(0, corners.size() / 3 * 3);
    QVector<quint32> triangles;
    for (int i = 2; i < corners.size(); ++i) {
        if (mode == TINYGLTF_MODE_TRIANGLE_FAN)
            triangles << corners[0] << corners[i - 1] << corners[i];
        else if (i % 2 == 0)
            triangles << corners[i - 2] << corners[i - 1] << corners[i];
        else
            triangles << corners[i - 1] << corners[i - 2] << corners[i];
    }
    return triangles;
}

QVector<quint32> linesOf(const QVector<quint32> &corners, int mode)
{
    if (mode == TINYGLTF_MODE_LINE)
        return corners.mid(0, corners.size() / 2 * 2);
    QVector<quint32> lines;
    for (int i = 1; i < corners.size(); ++i)
        lines << corners[i - 1] << corners[i];
    if (mode == TINYGLTF_MODE_LINE_LOOP && corners.size() > 2)
        lines << corners.last() << corners.first();
    return lines;
}

/// Whether any primitive has another material in a variant.
bool hasVariants(const tinygltf::Model &document)
{
    for (const tinygltf::Mesh &mesh : document.meshes) {
        for (const tinygltf::Primitive &primitive : mesh.primitives) {
            const tinygltf::Value &mappings = extensionOf(primitive.extensions, "KHR_materials_variants");
            if (mappings.IsObject() && mappings.Get("mappings").ArrayLen() > 0)
                return true;
        }
    }
    return false;
}

/// The material of a primitive in a variant; -1: in none.
int materialOf(const tinygltf::Primitive &primitive, int variant)
{
    const tinygltf::Value &extension = extensionOf(primitive.extensions, "KHR_materials_variants");
    const tinygltf::Value &mappings = extension.IsObject() ? extension.Get("mappings") : extension;
    for (size_t i = 0; variant >= 0 && mappings.IsArray() && i < mappings.ArrayLen(); ++i) {
        const tinygltf::Value &mapping = mappings.Get(int(i));
        const tinygltf::Value &variants = mapping.IsObject() ? mapping.Get("variants") : mapping;
        for (size_t k = 0; variants.IsArray() && k < variants.ArrayLen(); ++k) {
            if (variants.Get(int(k)).IsNumber() && variants.Get(int(k)).GetNumberAsInt() == variant)
                return integerOf(mapping, "material", primitive.material);
        }
    }
    return primitive.material;
}

template <typename T> void repeatCorners(QVector<T> *array, const QVector<quint32> &corners)
{
    if (array->isEmpty())
        return;
    QVector<T> repeated;
    repeated.reserve(corners.size());
    for (const quint32 corner : corners)
        repeated.append(array->at(int(corner)));
    *array = repeated;
}

/// Gives each triangle vertices of its own, with its normal: glTF has meshes without normals shaded flat. Their tangents do not
/// count.
void makeFlat(ImportedMesh *mesh)
{
    mesh->tangents.clear();
    repeatCorners(&mesh->positions, mesh->indices);
    repeatCorners(&mesh->texCoords, mesh->indices);
    repeatCorners(&mesh->texCoords1, mesh->indices);
    repeatCorners(&mesh->colours, mesh->indices);
    mesh->normals.reserve(mesh->positions.size());
    for (int i = 0; i + 2 < mesh->positions.size(); i += 3) {
        const QVector3D normal =
            faceNormal(mesh->positions.at(i), mesh->positions.at(i + 1), mesh->positions.at(i + 2));
        mesh->normals << normal << normal << normal;
    }
    for (int i = 0; i < mesh->indices.size(); ++i)
        mesh->indices[i] = quint32(i);
}

} // namespace

GltfReader::GltfReader(GltfFile *document, const QString &file, const ImportOptions &options, ImportBudget *budget)
    : m_document(document),
      m_file(file),
      m_options(options),
      m_budget(budget),
      m_images(file, budget, &m_scene),
      m_materials(document, &m_images)
{
    m_scene.format = gltf2Name();
    m_scene.upAxis = QStringLiteral("y");
    m_scene.unit = 1;
    const tinygltf::Model &source = document->document();
    for (const std::string &name : source.extensionsUsed)
        m_scene.extensionsUsed.append(QString::fromStdString(name));
    for (const std::string &name : source.extensionsRequired)
        m_scene.extensionsRequired.append(QString::fromStdString(name));
    const tinygltf::Value &variants = extensionOf(source.extensions, "KHR_materials_variants");
    if (!variants.IsObject() || !variants.Get("variants").IsArray())
        return;
    const tinygltf::Value &list = variants.Get("variants");
    for (int i = 0; i < int(list.ArrayLen()); ++i) {
        const tinygltf::Value &name = list.Get(i).IsObject() ? list.Get(i).Get("name") : list.Get(i);
        m_scene.variants.append(name.IsString() ? QString::fromStdString(name.Get<std::string>()) : QString());
    }
}

bool GltfReader::read(ImportedScene *scene, QString *problem)
{
    QMatrix4x4 root;
    if (!upMatrix(m_options.up.isEmpty() ? m_scene.upAxis : m_options.up, &root)) {
        *problem = QStringLiteral("\"%1\" is no axis; x, y and z are, and each with a minus").arg(m_options.up);
        return false;
    }
    if (!readNodes(problem) || !readAnimations(problem) || !poseNodes(m_options, m_poses, &m_scene, problem))
        return false;
    m_world = worldMatrices(m_scene.nodes, root);
    if (!readSkins(problem))
        return false;
    for (int node = 0; node < m_nodes.size() && m_budget->isTimeLeft(); ++node) {
        readCamera(node);
        readLight(node);
        if (!readItems(node, problem))
            return false;
    }
    for (const QString &line : m_document->remarks())
        warn(line);
    for (const QString &line : undrawnExtensions(m_document->document()))
        warn(line);
    if (m_options.variant.isEmpty() && hasVariants(m_document->document()))
        warn(QStringLiteral(
            "its variants (KHR_materials_variants) are left out: the materials drawn are those of none"));
    const bool isTransmissive = std::any_of(m_scene.materials.cbegin(), m_scene.materials.cend(),
        [](const ImportedMaterial &material) { return material.transmission > 0; });
    if (isTransmissive)
        warn(QStringLiteral("surfaces that transmit light (KHR_materials_transmission) are drawn as transparent ones"));
    *scene = m_scene;
    return true;
}

bool GltfReader::readNodes(QString *problem)
{
    const tinygltf::Model &document = m_document->document();
    m_numbers.fill(-1, int(document.nodes.size()));
    std::vector<int> roots;
    if (document.scenes.empty()) { // a library of parts: all that nothing holds
        std::vector<bool> isChild(document.nodes.size());
        for (const tinygltf::Node &node : document.nodes) {
            for (const int child : node.children) {
                if (isIn(child, document.nodes.size()))
                    isChild[size_t(child)] = true;
            }
        }
        for (size_t n = 0; n < isChild.size(); ++n) {
            if (!isChild[n])
                roots.push_back(int(n));
        }
    } else {
        const bool isThere = isIn(document.defaultScene, document.scenes.size());
        if (!isThere && document.defaultScene >= 0) {
            warn(QStringLiteral("its scene %1 is not there; the first of %2 is drawn")
                     .arg(document.defaultScene)
                     .arg(document.scenes.size()));
        }
        roots = document.scenes[isThere ? size_t(document.defaultScene) : 0].nodes;
    }
    // A stack of its own: files nest nodes deeper than a thread's stack reaches.
    QVector<QPair<int, int>> open; // the document's number, the scene's parent
    for (auto root = roots.rbegin(); root != roots.rend(); ++root)
        open.append({*root, -1});
    while (!open.isEmpty()) {
        const QPair<int, int> next = open.takeLast();
        if (!isIn(next.first, document.nodes.size())) {
            *problem = QStringLiteral("node %1 does not exist").arg(next.first);
            return false;
        }
        if (m_numbers[next.first] >= 0) {
            *problem = QStringLiteral("node %1 is below two others or below itself").arg(next.first);
            return false;
        }
        addNode(next.first, next.second);
        const std::vector<int> &children = document.nodes[size_t(next.first)].children;
        for (auto child = children.rbegin(); child != children.rend(); ++child)
            open.append({*child, m_numbers[next.first]});
    }
    return true;
}

void GltfReader::addNode(int number, int parent)
{
    const tinygltf::Node &node = m_document->document().nodes[size_t(number)];
    m_numbers[number] = m_nodes.size();
    m_nodes.append(number);
    m_poses.append(poseOf(node));
    m_scene.nodes.append({QString::fromStdString(node.name), parent, matrixOf(node)});
}

bool GltfReader::readAnimations(QString *problem)
{
    bool hasWeights = false;
    for (const tinygltf::Animation &source : m_document->document().animations) {
        ImportedAnimation animation;
        animation.name = QString::fromStdString(source.name);
        for (const tinygltf::AnimationChannel &from : source.channels) {
            hasWeights |= from.target_path == "weights";
            const bool isRotation = from.target_path == "rotation";
            const bool isScale = from.target_path == "scale";
            if (!isIn(from.sampler, source.samplers.size()) || !isIn(from.target_node, size_t(m_numbers.size()))
                || (!isRotation && !isScale && from.target_path != "translation"))
                continue;
            const tinygltf::AnimationSampler &sampler = source.samplers[size_t(from.sampler)];
            ImportedAnimation::Channel channel;
            channel.node = m_numbers[from.target_node];
            channel.path = isRotation ? ImportedAnimation::Rotation
                : isScale             ? ImportedAnimation::Scale
                                      : ImportedAnimation::Translation;
            channel.interpolation = sampler.interpolation == "STEP" ? ImportedAnimation::Step
                : sampler.interpolation == "CUBICSPLINE"            ? ImportedAnimation::CubicSpline
                                                                    : ImportedAnimation::Linear;
            const int type = isRotation ? TINYGLTF_TYPE_VEC4 : TINYGLTF_TYPE_VEC3;
            if (!m_document->readNumbers(sampler.input, &channel.times, problem)
                || !m_document->readVectors(sampler.output, {type}, &channel.values, problem))
                return false;
            const int values = channel.interpolation == ImportedAnimation::CubicSpline ? 3 : 1;
            if (channel.values.size() != values * channel.times.size()
                || !std::is_sorted(channel.times.begin(), channel.times.end())) {
                *problem =
                    QStringLiteral("animation \"%1\": times and values of a channel do not fit").arg(animation.name);
                return false;
            }
            if (!channel.times.isEmpty())
                animation.duration = std::max(animation.duration, channel.times.last());
            if (channel.node >= 0)
                animation.channels.append(channel);
        }
        m_scene.animations.append(animation);
    }
    const bool isAnimated = !m_options.animation.isEmpty() || m_options.time >= 0;
    if (hasWeights && isAnimated)
        warn(QStringLiteral("morph targets are not animated"));
    return true;
}

/// Skinned meshes stand where the first joint puts them in bind pose: the matrix of their node does not count.
bool GltfReader::readSkins(QString *problem)
{
    const tinygltf::Model &document = m_document->document();
    for (const int node : qAsConst(m_nodes)) {
        const int number = document.nodes[size_t(node)].skin;
        if (!isIn(number, document.skins.size()) || m_skins.contains(number))
            continue;
        const tinygltf::Skin &skin = document.skins[size_t(number)];
        QMatrix4x4 place;
        if (!skin.joints.empty() && isIn(skin.joints[0], size_t(m_numbers.size())) && m_numbers[skin.joints[0]] >= 0)
            place = m_world[m_numbers[skin.joints[0]]];
        if (skin.inverseBindMatrices >= 0) {
            QVector<float> numbers;
            if (!m_document->readMatrix(skin.inverseBindMatrices, &numbers, problem))
                return false;
            QMatrix4x4 inverse;
            std::copy(numbers.begin(), numbers.end(), inverse.data());
            place *= inverse;
        }
        m_skins.insert(number, place);
    }
    if (!m_skins.isEmpty())
        warn(QStringLiteral("skins are not animated: their meshes stay in bind pose"));
    return true;
}

QMatrix4x4 GltfReader::placeOf(int node) const
{
    return m_skins.value(m_document->document().nodes[size_t(m_nodes[node])].skin, m_world[node]);
}

bool GltfReader::readItems(int node, QString *problem)
{
    const tinygltf::Node &source = m_document->document().nodes[size_t(m_nodes[node])];
    if (source.mesh < 0)
        return true;
    QVector<QMatrix4x4> instances;
    if (!readMesh(source.mesh, problem) || !readInstances(node, &instances, problem))
        return false;
    const QVector<Primitive> primitives = m_primitives.value(source.mesh);
    for (const QMatrix4x4 &instance : qAsConst(instances)) {
        const QMatrix4x4 matrix = placeOf(node) * instance;
        for (const Primitive &primitive : primitives) {
            const int material = materialNumber(primitive.material, primitive.isColoured);
            for (const auto &set :
                {qMakePair(&primitive.points, &m_scene.pointSets), qMakePair(&primitive.lines, &m_scene.lineSets)}) {
                if (set.first->positions.isEmpty())
                    continue;
                set.second->append(*set.first);
                set.second->last().material = material;
                set.second->last().modelMatrix = matrix;
            }
            if (primitive.mesh < 0)
                continue;
            ImportedItem item;
            item.name = m_scene.nodes[node].name;
            item.mesh = primitive.mesh;
            item.material = material;
            item.node = node;
            item.modelMatrix = matrix;
            item.featureFlags = m_flags.of(m_scene, material, primitive.mesh);
            m_scene.items.append(item);
        }
    }
    return true;
}

/// The matrices of EXT_mesh_gpu_instancing; one that changes nothing for nodes without.
bool GltfReader::readInstances(int node, QVector<QMatrix4x4> *instances, QString *problem)
{
    const tinygltf::Node &source = m_document->document().nodes[size_t(m_nodes[node])];
    const tinygltf::Value &extension = extensionOf(source.extensions, "EXT_mesh_gpu_instancing");
    if (!extension.IsObject() || !extension.Has("attributes")) {
        *instances = {QMatrix4x4()};
        return true;
    }
    const tinygltf::Value &attributes = extension.Get("attributes");
    QVector<QVector4D> translations, rotations, scales;
    const auto read = [&](const char *name, int type, QVector<QVector4D> *values) {
        const int accessor = integerOf(attributes, name, -1);
        return accessor < 0 || m_document->readVectors(accessor, {type}, values, problem);
    };
    if (!read("TRANSLATION", TINYGLTF_TYPE_VEC3, &translations) || !read("ROTATION", TINYGLTF_TYPE_VEC4, &rotations)
        || !read("SCALE", TINYGLTF_TYPE_VEC3, &scales))
        return false;
    const int count = std::max({translations.size(), rotations.size(), scales.size()});
    for (int i = 0; i < count; ++i) {
        NodePose pose;
        if (i < translations.size())
            pose.translation = translations[i].toVector3D();
        if (i < rotations.size())
            pose.rotation = QQuaternion(rotations[i].w(), rotations[i].toVector3D()).normalized();
        if (i < scales.size())
            pose.scale = scales[i].toVector3D();
        instances->append(pose.matrix());
    }
    return true;
}

bool GltfReader::readMesh(int number, QString *problem)
{
    const tinygltf::Model &document = m_document->document();
    if (m_primitives.contains(number))
        return true;
    if (!isIn(number, document.meshes.size())) {
        *problem = QStringLiteral("mesh %1 does not exist").arg(number);
        return false;
    }
    const tinygltf::Mesh &mesh = document.meshes[size_t(number)];
    const QString label = mesh.name.empty() ? QStringLiteral("mesh %1").arg(number)
                                            : QStringLiteral("mesh \"%1\"").arg(QString::fromStdString(mesh.name));
    m_budget->report(ImportProgress::Meshes, m_primitives.size() + 1, int(document.meshes.size()));
    QVector<Primitive> primitives;
    bool hasTargets = false;
    bool hasColourSets = false;
    for (const tinygltf::Primitive &source : mesh.primitives) {
        Primitive primitive;
        if (!m_budget->isTimeLeft())
            return true;
        if (!readPrimitive(label, source, &primitive, problem)) {
            *problem = QStringLiteral("%1: %2").arg(label, *problem);
            return false;
        }
        const QString name = QString::fromStdString(mesh.name);
        primitive.points.name = name;
        primitive.lines.name = name;
        if (primitive.mesh >= 0)
            m_scene.meshes[primitive.mesh].name = name;
        hasTargets |= !source.targets.empty();
        hasColourSets |= source.attributes.count("COLOR_1") > 0;
        primitives.append(primitive);
    }
    if (hasColourSets)
        warn(QStringLiteral("%1: of its sets of vertex colours the first alone is read").arg(label));
    if (hasTargets)
        warn(QStringLiteral("%1: its morph targets are left out").arg(label));
    m_primitives.insert(number, primitives);
    return true;
}

bool GltfReader::readPrimitive(
    const QString &label, const tinygltf::Primitive &source, Primitive *primitive, QString *problem)
{
    ImportedMesh data;
    QString packing;
    if (!m_document->unpack(source, m_budget, &packing, problem) || !readAttributes(source, &data, problem))
        return false;
    if (!packing.isEmpty())
        warn(QStringLiteral("%1: %2").arg(label, packing));
    const bool isIndexed = source.indices >= 0 || m_document->isPacked();
    QVector<quint32> corners = m_document->packedCorners();
    if (isIndexed) {
        if (!m_document->isPacked() && !m_document->readIndices(source.indices, &corners, problem))
            return false;
        const auto largest = std::max_element(corners.begin(), corners.end());
        if (largest != corners.end() && *largest >= quint32(data.positions.size())) {
            *problem = QStringLiteral("a face has an index past the end: %1 of %2 vertices")
                           .arg(QString::number(*largest), QString::number(data.positions.size()));
            return false;
        }
    } else {
        for (int v = 0; v < data.positions.size(); ++v)
            corners.append(quint32(v));
    }
    primitive->material =
        materialOf(source, m_options.variant.isEmpty() ? -1 : m_scene.variants.indexOf(m_options.variant));
    primitive->isColoured = !data.colours.isEmpty();
    // Strips are compressed as triangles.
    const int mode = source.mode < 0 || m_document->isPacked() ? TINYGLTF_MODE_TRIANGLES : source.mode;
    if (mode < TINYGLTF_MODE_TRIANGLES) {
        ImportedPrimitives &set = mode == TINYGLTF_MODE_POINTS ? primitive->points : primitive->lines;
        set.positions = data.positions;
        set.normals = data.normals;
        set.colours = data.colours;
        set.indices = mode == TINYGLTF_MODE_POINTS ? corners : linesOf(corners, mode);
        return true;
    }
    if (mode > TINYGLTF_MODE_TRIANGLE_FAN) {
        *problem = QStringLiteral("it is drawn by mode %1, which glTF does not know").arg(mode);
        return false;
    }
    data.indices = trianglesOf(corners, mode);
    const bool isFlat = data.normals.isEmpty();
    if (isFlat)
        makeFlat(&data);
    if ((!isIndexed || isFlat) && !data.indices.isEmpty())
        weld(&data);
    const QString remark = completeMesh(&data);
    if (!remark.isEmpty())
        warn(QStringLiteral("%1: %2").arg(label, remark));
    if (data.indices.isEmpty())
        return true;
    if (!isIndexed)
        orderForCache(&data);
    primitive->mesh = m_scene.meshes.size();
    m_scene.meshes.append(data);
    return true;
}

bool GltfReader::readAttributes(const tinygltf::Primitive &source, ImportedMesh *mesh, QString *problem)
{
    const auto accessor = [&](const char *name) {
        const auto found = source.attributes.find(name);
        return found != source.attributes.end() ? found->second : -1;
    };
    const int position = accessor("POSITION");
    const tinygltf::Model &document = m_document->document();
    if (!isIn(position, document.accessors.size())) {
        *problem = QStringLiteral("it has no positions");
        return false;
    }
    if (!m_document->isPacked() && !m_budget->takeVertices(qint64(document.accessors[size_t(position)].count))) {
        *problem = m_budget->problem();
        return false;
    }
    if (!m_document->readVectors(position, &mesh->positions, problem))
        return false;
    for (int v = 0; v < mesh->positions.size(); ++v) {
        QVector3D &at = mesh->positions[v];
        if (!std::isfinite(at.x()) || !std::isfinite(at.y()) || !std::isfinite(at.z())) {
            *problem = QStringLiteral("the position of vertex %1 is not a finite number").arg(v);
            return false;
        }
        at += QVector3D(0, 0, 0); // vertices are told apart by their bytes, where zero has two signs
    }
    const int normal = accessor("NORMAL");
    const int tangent = accessor("TANGENT");
    const int colour = accessor("COLOR_0");
    if ((normal >= 0 && !m_document->readVectors(normal, &mesh->normals, problem))
        || (tangent >= 0 && !m_document->readVectors(tangent, {TINYGLTF_TYPE_VEC4}, &mesh->tangents, problem))
        || (colour >= 0
            && !m_document->readVectors(colour, {TINYGLTF_TYPE_VEC3, TINYGLTF_TYPE_VEC4}, &mesh->colours, problem)))
        return false;
    const std::pair<const char *, QVector<QVector2D> *> sets[] = {
        {"TEXCOORD_0", &mesh->texCoords}, {"TEXCOORD_1", &mesh->texCoords1}};
    for (const auto &set : sets) {
        const int number = accessor(set.first);
        if (number >= 0 && !m_document->readVectors(number, set.second, problem))
            return false;
        for (QVector2D &texCoord : *set.second)
            texCoord.setY(1 - texCoord.y());
    }
    const int count = mesh->positions.size();
    for (const int size : {mesh->normals.size(), mesh->tangents.size(), mesh->colours.size(), mesh->texCoords.size(),
             mesh->texCoords1.size()}) {
        if (size != 0 && size != count) {
            *problem = QStringLiteral("its attributes have different counts");
            return false;
        }
    }
    return true;
}

int GltfReader::materialNumber(int number, bool isColoured)
{
    const auto key = qMakePair(number, isColoured && number < 0);
    const auto known = m_materialNumbers.constFind(key);
    if (known != m_materialNumbers.constEnd())
        return known.value();
    const int result = m_scene.materials.size();
    if (number >= int(m_document->document().materials.size()))
        warn(QStringLiteral("material %1 does not exist; what asks for it is light grey").arg(number));
    m_scene.materials.append(m_materials.read(number, isColoured));
    m_materialNumbers.insert(key, result);
    return result;
}

void GltfReader::readCamera(int node)
{
    const tinygltf::Model &document = m_document->document();
    const int number = document.nodes[size_t(m_nodes[node])].camera;
    if (!isIn(number, document.cameras.size()))
        return;
    const tinygltf::Camera &source = document.cameras[size_t(number)];
    ImportedCamera camera;
    camera.name = source.name.empty() ? m_scene.nodes[node].name : QString::fromStdString(source.name);
    camera.node = node;
    camera.worldMatrix = m_world[node];
    camera.isOrthographic = source.type == "orthographic";
    if (camera.isOrthographic) {
        camera.halfExtent = QVector2D(float(source.orthographic.xmag), float(source.orthographic.ymag));
        camera.nearPlane = float(source.orthographic.znear);
        camera.farPlane = float(source.orthographic.zfar);
    } else {
        camera.verticalFieldOfView = float(source.perspective.yfov);
        camera.aspect = float(source.perspective.aspectRatio);
        camera.nearPlane = float(source.perspective.znear);
        camera.farPlane = float(source.perspective.zfar);
    }
    m_scene.cameras.append(camera);
}

void GltfReader::readLight(int node)
{
    const tinygltf::Model &document = m_document->document();
    const tinygltf::Value &extension =
        extensionOf(document.nodes[size_t(m_nodes[node])].extensions, "KHR_lights_punctual");
    const int number = integerOf(extension, "light", -1);
    if (!isIn(number, document.lights.size()))
        return;
    const tinygltf::Light &source = document.lights[size_t(number)];
    ImportedLight light;
    light.name = source.name.empty() ? m_scene.nodes[node].name : QString::fromStdString(source.name);
    light.node = node;
    light.worldMatrix = m_world[node];
    light.type = source.type == "directional" ? ImportedLight::Directional
        : source.type == "spot"               ? ImportedLight::Spot
                                              : ImportedLight::Point;
    light.colour = vector3(source.color, QVector3D(1, 1, 1));
    light.intensity = float(source.intensity);
    light.range = float(source.range);
    light.innerAngle = float(source.spot.innerConeAngle);
    light.outerAngle = float(source.spot.outerConeAngle);
    m_scene.lights.append(light);
}

void GltfReader::warn(const QString &text)
{
    m_scene.warnings.append(QStringLiteral("%1: %2").arg(m_file, text));
}

} // namespace Velmora::Kvz
