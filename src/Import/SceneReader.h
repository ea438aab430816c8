// SPDX-License-Identifier: MIT
#pragma once

#include "MaterialModel.h"
#include "MaterialReader.h"
#include "NodePose.h"
#include "SceneImages.h"

#include <Import/ImportOptions.h>
#include <Import/ImportedScene.h>

#include <QtCore/QHash>
#include <QtCore/QPair>
#include <QtCore/QVector>

struct aiNode;
struct aiScene;

namespace Velmora::Kvz {

class ImportBudget;

/// A reason why what a loader read cannot be drawn; empty when it can.
QString findProblem(const aiScene *source);

/// Turns what assimp read, once it has been checked and triangulated, into an ImportedScene.
class SceneReader
{
public:
    /// `format` is the loader's first file suffix.
    SceneReader(const aiScene *source, const QByteArray &format, const QString &file, const ImportOptions &options,
        ImportBudget *budget);

    /// Paths of images that stand for several places each.
    void setImagePlaces(const QHash<QString, QStringList> &places) { m_images.setPlaces(places); }
    /// False with a problem. Cut short where the budget has no time left, which its own problem says.
    bool read(ImportedScene *scene, QString *problem);

private:
    void readNodes();
    void readAnimations();
    bool findRoot(QMatrix4x4 *root, QString *problem);
    void readSkins();
    void readItems(int node);
    void readCameras();
    void readLights();
    int meshNumber(unsigned sourceNumber);
    VertexColours coloursOf(const QVector<QVector4D> &colours);
    int materialNumber(unsigned sourceNumber, VertexColours colours);

    const aiScene *m_source;
    QByteArray m_format;
    QString m_file;
    ImportOptions m_options;
    ImportBudget *m_budget;
    ImportedScene m_scene;
    SceneImages m_images;
    MaterialReader m_materials;
    ItemFlags m_flags;
    QVector<const aiNode *> m_nodes; // of the numbers of the scene's nodes
    QHash<QString, int> m_nodeNumbers; // by name, the first of each
    QVector<NodePose> m_poses; // by node
    QVector<QMatrix4x4> m_world; // by node
    QHash<unsigned, QMatrix4x4> m_skins; // by assimp's index of a mesh: its place in bind pose
    QHash<unsigned, int> m_meshNumbers; // by assimp's index, what nodes use alone; -1: no triangles
    QHash<QPair<unsigned, int>, int> m_materialNumbers; // by assimp's index and the VertexColours of the mesh
    QHash<const QVector4D *, VertexColours> m_colours; // by where they lie: nodes share meshes
    QVector<ImportedPrimitives> m_points; // one for each mesh of assimp; without positions where it has none
    QVector<ImportedPrimitives> m_lines;
};

} // namespace Velmora::Kvz
