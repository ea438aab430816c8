// SPDX-License-Identifier: MIT
#pragma once

#include "ZipFile.h"

#include <QtCore/QHash>
#include <QtCore/QPair>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector2D>
#include <QtGui/QVector3D>
#include <QtGui/QVector4D>

#include <vector>

class QXmlStreamReader;

namespace Velmora::Kvz {

class ImportBudget;

/// What the model parts of a 3MF archive say: the core specification with the parts of the materials extension that are colours and
/// textures, and the production extension, whose objects lie in parts of their own.
class ThreeMfDocument
{
public:
    /// A resource of a model part: the part's name and the id within it.
    using Key = QPair<QString, QString>;

    /// Base materials, colours or texture coordinates, by which properties of triangles count. Empty: of a kind that is not read.
    struct Group
    {
        std::vector<QVector4D> colours; ///< Straight, as a screen shows them.
        QStringList names; ///< Of base materials.
        Key texture; ///< Without an id: it is no group of texture coordinates.
        std::vector<QVector2D> texCoords;
    };

    struct Texture
    {
        QString path; ///< In the archive.
        QString wrapU;
        QString wrapV;
        bool isNearest = false;
    };

    /// The property of the three corners of a triangle: a group and numbers in it.
    struct Property
    {
        int group = -1; ///< Index into groupKeys; -1: none.
        int numbers[3] = {0, 0, 0};
    };

    struct Placement
    {
        Key object;
        QMatrix4x4 matrix;
    };

    struct Object
    {
        QString name;
        Property property; ///< Of triangles without one.
        QVector<QVector3D> positions;
        QVector<quint32> indices;
        std::vector<Property> properties; ///< By triangle; empty where none has one.
        std::vector<Placement> components;
    };

    /// The archive is to outlive the document.
    ThreeMfDocument(const ZipFile &archive, ImportBudget *budget)
        : m_archive(archive),
          m_budget(budget)
    { }

    /// Reads the part that the archive names as its model, and those that its components and items name. False with a problem.
    bool read();

    QString problem;
    QString unit; ///< Of the root part.
    QHash<Key, Object> objects;
    QHash<Key, Group> groups;
    QHash<Key, Texture> textures;
    QVector<Key> groupKeys; ///< By the numbers of properties.
    QVector<Key> order; ///< Of objects, as the parts have them.
    std::vector<Placement> items;
    QStringList leftOut; ///< Kinds of resources that are not read.
    bool hasPaint = false; ///< Colours that slicers paint onto triangles in attributes of their own.

private:
    bool readPart(const QString &part);
    QString rootPart() const;
    void readResources();
    void readObject();
    void readMesh(Object *object);
    void readVertices(Object *object);
    void readTriangles(Object *object);
    void readTriangle(Object *object);
    void readColours(const char *element, const char *colour, const char *name);
    void readTexCoords();
    void readPlacements(std::vector<Placement> *placements, const char *element);
    bool next();
    QString attribute(const char *name) const;
    float number(const char *name);
    int index(const char *name, int otherwise);
    int groupNumber(const QString &id);
    QString partOf(const QString &path) const;
    Key keyOf(const QString &id) const { return {m_part, id}; }
    void refuse(const QString &reason);
    void refuseNumber(const QString &name, const QString &value);

    const ZipFile &m_archive;
    ImportBudget *m_budget;
    QXmlStreamReader *m_reader = nullptr;
    QString m_part;
    QStringList m_waiting; // parts that were named
    QHash<Key, int> m_groupNumbers;
};

} // namespace Velmora::Kvz
