// SPDX-License-Identifier: MIT
#pragma once

#include "GltfFile.h"
#include "GltfMaterials.h"
#include "MaterialModel.h"
#include "NodePose.h"
#include "SceneImages.h"

#include <Import/ImportOptions.h>
#include <Import/ImportedScene.h>

#include <QtCore/QHash>
#include <QtCore/QPair>
#include <QtCore/QVector>

namespace Velmora::Kvz {

class ImportBudget;

/// Turns a glTF document into an ImportedScene.
class GltfReader
{
public:
    GltfReader(GltfFile *document, const QString &file, const ImportOptions &options, ImportBudget *budget);

    /// False with a problem. Cut short where the budget has no time left, which its own problem says.
    bool read(ImportedScene *scene, QString *problem);

private:
    /// A primitive of the document: triangles, or points or lines.
    struct Primitive
    {
        int mesh = -1; ///< Of the scene; -1: no triangles.
        ImportedPrimitives points;
        ImportedPrimitives lines;
        int material = -1; ///< Of the document.
        bool isColoured = false;
    };

    bool readNodes(QString *problem);
    void addNode(int number, int parent);
    bool readAnimations(QString *problem);
    bool readItems(int node, QString *problem);
    bool readInstances(int node, QVector<QMatrix4x4> *instances, QString *problem);
    bool readSkins(QString *problem);
    QMatrix4x4 placeOf(int node) const;
    bool readMesh(int number, QString *problem);
    bool readPrimitive(const QString &label, const tinygltf::Primitive &source, Primitive *primitive, QString *problem);
    bool readAttributes(const tinygltf::Primitive &source, ImportedMesh *mesh, QString *problem);
    int materialNumber(int number, bool isColoured);
    void readCamera(int node);
    void readLight(int node);
    void warn(const QString &text);

    GltfFile *m_document;
    QString m_file;
    ImportOptions m_options;
    ImportBudget *m_budget;
    ImportedScene m_scene;
    SceneImages m_images;
    GltfMaterials m_materials;
    ItemFlags m_flags;
    QVector<int> m_nodes; // the document's, by the scene's
    QVector<int> m_numbers; // the scene's, by the document's; -1: not part of the scene
    QVector<NodePose> m_poses; // by the scene's node
    QVector<QMatrix4x4> m_world; // by the scene's node
    QHash<int, QVector<Primitive>> m_primitives; // by the document's mesh
    QHash<int, QMatrix4x4> m_skins; // by the document's skin: the place of its meshes in bind pose
    QHash<QPair<int, bool>, int> m_materialNumbers; // the scene's, by the document's and whether the mesh has colours
};

} // namespace Velmora::Kvz
