// SPDX-License-Identifier: MIT
#include "SceneReader.h"

#include "AssimpTypes.h"
#include "ImportBudget.h"
#include "MaterialModel.h"
#include "MeshReader.h"

#include <assimp/scene.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace Velmora::Kvz {

namespace {

/// In a mesh of triangles alone a face with fewer corners was cut off; elsewhere the file has points and lines.
bool hasPrimitives(const aiMesh &mesh)
{
    constexpr unsigned pointsAndLines = aiPrimitiveType_POINT | aiPrimitiveType_LINE;
    return (mesh.mPrimitiveTypes & pointsAndLines) != 0 || mesh.mNumFaces == 0;
}

/// The faces of a mesh that have one or two corners. A mesh without faces is one of points. What has a position that is not
/// finite is counted instead: scanners write such points where they measured nothing.
ImportedPrimitives primitivesOf(const aiMesh &mesh, unsigned corners, int *leftOut)
{
    ImportedPrimitives set;
    if (!hasPrimitives(mesh))
        return set;
    const auto isPlaced = [&mesh](unsigned vertex) { return isFinite(toQVector(mesh.mVertices[vertex])); };
    std::vector<unsigned> remap(mesh.mNumVertices, ~0u);
    const auto add = [&](unsigned vertex) {
        if (remap[vertex] == ~0u) {
            remap[vertex] = unsigned(set.positions.size());
            set.positions.append(toQVector(mesh.mVertices[vertex]));
            if (mesh.mNormals)
                set.normals.append(toQVector(mesh.mNormals[vertex]));
            if (const aiColor4D *colours = mesh.mColors[0])
                set.colours.append({colours[vertex].r, colours[vertex].g, colours[vertex].b, colours[vertex].a});
        }
        set.indices.append(remap[vertex]);
    };
    for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
        const aiFace &face = mesh.mFaces[f];
        if (face.mNumIndices != corners)
            continue;
        if (!std::all_of(face.mIndices, face.mIndices + corners, isPlaced)) {
            ++*leftOut;
            continue;
        }
        for (unsigned corner = 0; corner < corners; ++corner)
            add(face.mIndices[corner]);
    }
    for (unsigned v = 0; mesh.mNumFaces == 0 && corners == 1 && v < mesh.mNumVertices; ++v) {
        if (isPlaced(v))
            add(v);
        else
            ++*leftOut;
    }
    set.name = toQString(mesh.mName);
    return set;
}

/// Whether all that vertices have of a colour is zeros: loaders make such up where the file gives none.
bool areNone(const QVector<QVector4D> &colours)
{
    return std::all_of(colours.cbegin(), colours.cend(), [](const QVector4D &colour) { return colour.isNull(); });
}

/// Colours of Blender are bytes, which the loader takes for signed ones; since polygons, from 2.63 on, it gives them as numbers to 1.
void mendSignedBytes(QVector<QVector4D> *colours)
{
    const bool areNumbers = std::all_of(colours->cbegin(), colours->cend(), [](const QVector4D &colour) {
        return std::min({colour.x(), colour.y(), colour.z(), colour.w()}) >= 0
            && std::max({colour.x(), colour.y(), colour.z(), colour.w()}) <= 1;
    });
    for (QVector4D &colour : *colours) {
        for (int i = 0; i < 4 && !areNumbers; ++i)
            colour[i] = (colour[i] < 0 ? colour[i] + 256 : colour[i]) / 255;
    }
}

ImportedAnimation::Channel channelOf(int node, ImportedAnimation::Path path)
{
    ImportedAnimation::Channel channel;
    channel.node = node;
    channel.path = path;
    return channel;
}

/// Whether two matrices are the same but for rounding.
bool isNear(const QMatrix4x4 &a, const QMatrix4x4 &b)
{
    float largest = 0;
    float difference = 0;
    for (int i = 0; i < 16; ++i) {
        largest = std::max(largest, std::abs(a.constData()[i]));
        difference = std::max(difference, std::abs(a.constData()[i] - b.constData()[i]));
    }
    return difference <= 1e-3f * largest;
}

/// The rotation of a matrix left out, its scale kept.
QMatrix4x4 withoutRotation(const QMatrix4x4 &matrix)
{
    QMatrix4x4 result;
    result.scale(matrix.column(0).toVector3D().length(), matrix.column(1).toVector3D().length(),
        matrix.column(2).toVector3D().length());
    return result;
}

} // namespace

QString findProblem(const aiScene *source)
{
    for (unsigned m = 0; m < source->mNumMeshes; ++m) {
        const aiMesh &mesh = *source->mMeshes[m];
        const bool hasSurface = std::any_of(
            mesh.mFaces, mesh.mFaces + mesh.mNumFaces, [](const aiFace &face) { return face.mNumIndices > 2; });
        for (unsigned v = 0; v < mesh.mNumVertices && hasSurface; ++v) {
            if (!isFinite(toQVector(mesh.mVertices[v])))
                return QStringLiteral("%1: the position of vertex %2 is not a finite number")
                    .arg(meshName(mesh), QString::number(v));
        }
        for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
            const aiFace &face = mesh.mFaces[f];
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
    return {};
}

SceneReader::SceneReader(const aiScene *source, const QByteArray &format, const QString &file,
    const ImportOptions &options, ImportBudget *budget)
    : m_source(source),
      m_format(format),
      m_file(file),
      m_options(options),
      m_budget(budget),
      m_images(file, budget, &m_scene),
      m_materials(source, format, &m_images)
{ }

bool SceneReader::read(ImportedScene *scene, QString *problem)
{
    readNodes();
    readAnimations();
    QMatrix4x4 root;
    if (!findRoot(&root, problem))
        return false;
    m_world = worldMatrices(m_scene.nodes, root);
    readSkins();
    if (!poseNodes(m_options, m_poses, &m_scene, problem))
        return false;
    m_world = worldMatrices(m_scene.nodes, root);
    m_points.resize(int(m_source->mNumMeshes));
    m_lines.resize(int(m_source->mNumMeshes));
    for (int node = 0; node < m_nodes.size() && m_budget->isTimeLeft(); ++node)
        readItems(node);
    readCameras();
    readLights();
    *scene = m_scene;
    return true;
}

void SceneReader::readNodes()
{
    struct Placed
    {
        const aiNode *node;
        int parent;
    };
    // A stack of its own: files nest nodes deeper than a thread's stack reaches.
    QVector<Placed> open{{m_source->mRootNode, -1}};
    while (!open.isEmpty()) {
        const Placed placed = open.takeLast();
        const int number = m_nodes.size();
        m_nodes.append(placed.node);
        const QString name = toQString(placed.node->mName);
        m_scene.nodes.append({name, placed.parent, toQMatrix(placed.node->mTransformation)});
        if (!m_nodeNumbers.contains(name))
            m_nodeNumbers.insert(name, number);
        for (unsigned c = placed.node->mNumChildren; c-- > 0;)
            open.append({placed.node->mChildren[c], number});
    }
}

void SceneReader::readAnimations()
{
    m_poses.resize(m_nodes.size());
    for (int node = 0; node < m_nodes.size() && m_source->mNumAnimations > 0; ++node) {
        aiVector3D scale, translation;
        aiQuaternion rotation;
        m_nodes[node]->mTransformation.Decompose(scale, rotation, translation);
        m_poses[node].translation = toQVector(translation);
        m_poses[node].rotation = QQuaternion(rotation.w, rotation.x, rotation.y, rotation.z);
        m_poses[node].scale = toQVector(scale);
    }
    for (unsigned a = 0; a < m_source->mNumAnimations; ++a) {
        const aiAnimation &source = *m_source->mAnimations[a];
        const double ticks = source.mTicksPerSecond > 0 ? source.mTicksPerSecond : 25;
        ImportedAnimation animation;
        animation.name = toQString(source.mName);
        animation.duration = float(source.mDuration / ticks);
        for (unsigned c = 0; c < source.mNumChannels; ++c) {
            const aiNodeAnim &from = *source.mChannels[c];
            const int node = m_nodeNumbers.value(toQString(from.mNodeName), -1);
            if (node < 0)
                continue;
            auto translation = channelOf(node, ImportedAnimation::Translation);
            for (unsigned k = 0; k < from.mNumPositionKeys; ++k) {
                translation.times.append(float(from.mPositionKeys[k].mTime / ticks));
                translation.values.append(QVector4D(toQVector(from.mPositionKeys[k].mValue), 0));
            }
            auto rotation = channelOf(node, ImportedAnimation::Rotation);
            for (unsigned k = 0; k < from.mNumRotationKeys; ++k) {
                const aiQuaternion &q = from.mRotationKeys[k].mValue;
                rotation.times.append(float(from.mRotationKeys[k].mTime / ticks));
                rotation.values.append({q.x, q.y, q.z, q.w});
            }
            auto scale = channelOf(node, ImportedAnimation::Scale);
            for (unsigned k = 0; k < from.mNumScalingKeys; ++k) {
                scale.times.append(float(from.mScalingKeys[k].mTime / ticks));
                scale.values.append(QVector4D(toQVector(from.mScalingKeys[k].mValue), 0));
            }
            for (const ImportedAnimation::Channel &channel : {translation, rotation, scale}) {
                if (!channel.times.isEmpty())
                    animation.channels.append(channel);
            }
        }
        m_scene.animations.append(animation);
    }
}

/// The matrix that turns the file upright. Loaders turn COLLADA themselves, and 3DS too, which names no axis; of FBX they tell the
/// axis alone.
bool SceneReader::findRoot(QMatrix4x4 *root, QString *problem)
{
    const bool isTurned = m_format == "dae";
    const QMatrix4x4 loaders = m_scene.nodes[0].matrix;
    if (m_format == "3ds") {
        m_scene.nodes[0].matrix = withoutRotation(loaders);
    } else if (m_format == "dae") {
        const QVector3D up = loaders.transposed().mapVector(QVector3D(0, 1, 0)).normalized();
        m_scene.upAxis = up.z() > 0.9f ? QStringLiteral("z")
            : up.x() > 0.9f            ? QStringLiteral("x")
                                       : QStringLiteral("y");
        m_scene.unit = 1; // the loader scales
    } else if (m_format == "fbx" && m_source->mMetaData) {
        int axis = 1;
        int sign = 1;
        float unit = 0;
        m_source->mMetaData->Get("UpAxis", axis);
        m_source->mMetaData->Get("UpAxisSign", sign);
        m_source->mMetaData->Get("UnitScaleFactor", unit);
        m_scene.upAxis = (sign < 0 ? QStringLiteral("-") : QString())
            + (axis == 2        ? QStringLiteral("z")
                    : axis == 0 ? QStringLiteral("x")
                                : QStringLiteral("y"));
        m_scene.unit = unit / 100; // the factor counts centimetres
    }
    if (!m_options.up.isEmpty()) {
        if (!upMatrix(m_options.up, root)) {
            *problem = QStringLiteral("\"%1\" is no axis; x, y and z are, and each with a minus").arg(m_options.up);
            return false;
        }
        if (isTurned)
            m_scene.nodes[0].matrix = withoutRotation(loaders);
    } else if (!isTurned && !m_scene.upAxis.isEmpty()) {
        upMatrix(m_scene.upAxis, root);
    }
    return true;
}

/// Skinned meshes stand where their joints put them in bind pose: their node may be elsewhere. The nodes of some files are in
/// another pose, which the joints of a mesh then tell by disagreeing; there the nodes count.
void SceneReader::readSkins()
{
    bool hasSkins = false;
    bool isBindPose = true;
    for (unsigned m = 0; m < m_source->mNumMeshes; ++m) {
        const aiMesh &mesh = *m_source->mMeshes[m];
        if (mesh.mNumAnimMeshes > 0)
            m_scene.warnings.append(
                QStringLiteral("%1: %2: its morph targets are left out").arg(m_file, meshName(mesh)));
        for (unsigned b = 0; b < mesh.mNumBones; ++b) {
            const aiBone &bone = *mesh.mBones[b];
            const int joint = m_nodeNumbers.value(toQString(bone.mName), -1);
            hasSkins = true;
            if (joint < 0)
                continue;
            const QMatrix4x4 place = m_world[joint] * toQMatrix(bone.mOffsetMatrix);
            const QMatrix4x4 first = m_skins.value(m, place);
            isBindPose &= isFinite(place) && isNear(place, first);
            m_skins.insert(m, first);
        }
    }
    if (!isBindPose)
        m_skins.clear();
    if (hasSkins)
        m_scene.warnings.append(
            QStringLiteral("%1: skins are not animated: their meshes stay in bind pose").arg(m_file));
}

void SceneReader::readItems(int node)
{
    const aiNode &source = *m_nodes[node];
    for (unsigned m = 0; m < source.mNumMeshes; ++m) {
        const unsigned sourceMesh = source.mMeshes[m];
        if (sourceMesh >= m_source->mNumMeshes)
            continue;
        const int mesh = meshNumber(sourceMesh);
        const QMatrix4x4 place = m_skins.value(sourceMesh, m_world[node]);
        const unsigned sourceMaterial = m_source->mMeshes[sourceMesh]->mMaterialIndex;
        for (int kind = 0; kind < 2; ++kind) {
            ImportedPrimitives set = (kind == 0 ? m_points : m_lines)[int(sourceMesh)];
            if (set.positions.isEmpty())
                continue;
            set.material = materialNumber(sourceMaterial, coloursOf(set.colours));
            set.modelMatrix = place;
            (kind == 0 ? m_scene.pointSets : m_scene.lineSets).append(set);
        }
        if (mesh < 0)
            continue;
        ImportedItem item;
        item.name = m_scene.nodes[node].name;
        item.mesh = mesh;
        item.material = materialNumber(sourceMaterial, coloursOf(m_scene.meshes[mesh].colours));
        item.node = node;
        item.modelMatrix = place;
        item.featureFlags = m_flags.of(m_scene, item.material, mesh);
        m_scene.items.append(item);
    }
}

int SceneReader::meshNumber(unsigned sourceNumber)
{
    const auto known = m_meshNumbers.constFind(sourceNumber);
    if (known != m_meshNumbers.constEnd())
        return known.value();
    const aiMesh &source = *m_source->mMeshes[sourceNumber];
    m_budget->report(ImportProgress::Meshes, m_meshNumbers.size() + 1, int(m_source->mNumMeshes));
    int leftOut = 0;
    m_points[int(sourceNumber)] = primitivesOf(source, 1, &leftOut);
    m_lines[int(sourceNumber)] = primitivesOf(source, 2, &leftOut);
    if (leftOut > 0)
        m_scene.warnings.append(
            QStringLiteral("%1: %2: points and lines at positions that are not finite numbers are left out (%3)")
                .arg(m_file, meshName(source), QString::number(leftOut)));
    if (source.HasVertexColors(1))
        m_scene.warnings.append(QStringLiteral("%1: %2: of its sets of vertex colours the first alone is read")
                                    .arg(m_file, meshName(source)));
    const MeshReading reading = readMesh(source, *m_source->mMaterials[source.mMaterialIndex], m_format == "stl");
    if (reading.cutFaces > 0 && !hasPrimitives(source))
        m_scene.warnings.append(
            QStringLiteral("%1: %2: faces with fewer than 3 corners are left out (%3); is the file truncated?")
                .arg(m_file, meshName(source), QString::number(reading.cutFaces)));
    if (!reading.remark.isEmpty())
        m_scene.warnings.append(QStringLiteral("%1: %2: %3").arg(m_file, meshName(source), reading.remark));
    int number = -1;
    if (!reading.mesh.indices.isEmpty()) {
        number = m_scene.meshes.size();
        m_scene.meshes.append(reading.mesh);
        if (m_format == "blend")
            mendSignedBytes(&m_scene.meshes.last().colours);
        if (areNone(m_scene.meshes.last().colours))
            m_scene.meshes.last().colours.clear();
    }
    m_meshNumbers.insert(sourceNumber, number);
    return number;
}

VertexColours SceneReader::coloursOf(const QVector<QVector4D> &colours)
{
    const auto known = m_colours.constFind(colours.constData());
    return known != m_colours.constEnd() ? known.value()
                                         : *m_colours.insert(colours.constData(), vertexColoursOf(colours));
}

int SceneReader::materialNumber(unsigned sourceNumber, VertexColours colours)
{
    const auto key = qMakePair(sourceNumber, int(colours));
    const auto known = m_materialNumbers.constFind(key);
    if (known != m_materialNumbers.constEnd())
        return known.value();
    const int number = m_scene.materials.size();
    m_scene.materials.append(m_materials.read(*m_source->mMaterials[sourceNumber], colours));
    m_materialNumbers.insert(key, number);
    return number;
}

void SceneReader::readCameras()
{
    for (unsigned c = 0; c < m_source->mNumCameras; ++c) {
        const aiCamera &source = *m_source->mCameras[c];
        ImportedCamera camera;
        camera.name = toQString(source.mName);
        camera.node = m_nodeNumbers.value(camera.name, -1);
        QMatrix4x4 view;
        view.lookAt(toQVector(source.mPosition), toQVector(source.mPosition + source.mLookAt), toQVector(source.mUp));
        camera.worldMatrix = (camera.node < 0 ? QMatrix4x4() : m_world[camera.node]) * view.inverted();
        camera.isOrthographic = source.mOrthographicWidth > 0;
        camera.aspect = source.mAspect;
        camera.nearPlane = source.mClipPlaneNear;
        camera.farPlane = source.mClipPlaneFar;
        // Assimp keeps half the horizontal angle, or what the file calls so.
        const float aspect = camera.aspect > 0 ? camera.aspect : 1;
        camera.verticalFieldOfView = 2 * std::atan(std::tan(source.mHorizontalFOV / 2) / aspect);
        camera.halfExtent = QVector2D(source.mOrthographicWidth, source.mOrthographicWidth / aspect);
        m_scene.cameras.append(camera);
    }
}

void SceneReader::readLights()
{
    for (unsigned l = 0; l < m_source->mNumLights; ++l) {
        const aiLight &source = *m_source->mLights[l];
        ImportedLight light;
        light.name = toQString(source.mName);
        light.node = m_nodeNumbers.value(light.name, -1);
        light.type = source.mType == aiLightSource_DIRECTIONAL ? ImportedLight::Directional
            : source.mType == aiLightSource_SPOT               ? ImportedLight::Spot
            : source.mType == aiLightSource_AMBIENT            ? ImportedLight::Ambient
                                                               : ImportedLight::Point;
        QMatrix4x4 local;
        local.translate(toQVector(source.mPosition));
        const QVector3D direction = toQVector(source.mDirection);
        if (!direction.isNull())
            local.rotate(QQuaternion::rotationTo(QVector3D(0, 0, -1), direction));
        light.worldMatrix = (light.node < 0 ? QMatrix4x4() : m_world[light.node]) * local;
        light.colour = {source.mColorDiffuse.r, source.mColorDiffuse.g, source.mColorDiffuse.b};
        light.innerAngle = source.mAngleInnerCone / 2;
        light.outerAngle = source.mAngleOuterCone / 2;
        m_scene.lights.append(light);
    }
}

} // namespace Velmora::Kvz
