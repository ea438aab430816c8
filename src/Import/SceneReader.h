// SPDX-License-Identifier: MIT
#pragma once

#include "MaterialReader.h"

#include <Import/ImportedScene.h>

#include <QtCore/QHash>
#include <QtCore/QVector>

struct aiNode;
struct aiScene;

namespace Velmora::Kvz {

class ImportBudget;

const QString noTriangles = QStringLiteral("no triangles");

/// A reason why what a loader read cannot be drawn; empty when it can.
QString findProblem(const aiScene *source);

/// Turns what assimp read, once it has been checked and triangulated, into an ImportedScene.
class SceneReader
{
public:
    SceneReader(const aiScene *source, const QString &file, ImportBudget *budget);

    /// Cut short where the budget has no time left: its problem says so.
    ImportedScene read();

private:
    void readNode(const aiNode &node, const QMatrix4x4 &matrix);
    int meshNumber(unsigned sourceNumber);
    int materialNumber(unsigned sourceNumber);

    const aiScene *m_source;
    QString m_file;
    ImportBudget *m_budget;
    ImportedScene m_scene;
    MaterialReader m_materials;
    QHash<unsigned, int> m_meshNumbers; // by assimp's index, what nodes use alone; -1: no triangles
    QHash<unsigned, int> m_materialNumbers;
    QVector<bool> m_transparent; // one for each material of the scene
};

} // namespace Velmora::Kvz
