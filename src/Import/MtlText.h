// SPDX-License-Identifier: MIT
#pragma once

#include <assimp/material.h>

#include <QtCore/QByteArray>
#include <QtCore/QSet>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>
#include <QtGui/QVector2D>

struct aiMesh;
struct aiScene;

namespace Velmora::Kvz {

/// The material libraries of an OBJ file, of which assimp misreads legal lines: options of textures, file names in quotes or with
/// spaces behind them, haloes, both ways to say an opacity at once.
class MtlText
{
public:
    /// The text of a library, of which messages tell the name, as assimp reads it rightly; keeps what it cannot take.
    QByteArray plainText(const QByteArray &text, const QString &name);
    /// Gives the meshes of a scene, before it is triangulated, the texture coordinates that the options of their textures ask for.
    void complete(const aiScene *scene) const;
    /// Whether a library that was read has a material of this name.
    bool has(const QByteArray &material) const { return m_names.contains(material); }
    /// What there is to say, a line each without the model's name.
    QStringList warnings() const { return m_warnings; }

private:
    /// Where an image lies on a surface: its coordinates are those of the model times `scale` plus `offset`.
    struct Placement
    {
        QByteArray material;
        QByteArray keyword;
        QVector2D scale = {1, 1};
        QVector2D offset;

        bool isSameAs(const Placement &other) const { return scale == other.scale && offset == other.offset; }
    };

    /// What is known of the material whose lines are being read.
    struct Block
    {
        QByteArray name;
        QByteArray lines;
        QByteArray highlight; // the lines that say it
        QByteArray transparency; // the line with Tr
        bool hasColour = false;
        bool hasColourMap = false;
        bool hasOpacity = false;
        bool hasNoHighlight = false;
    };

    void readLine(const QByteArray &line);
    bool takesNumbers(const QByteArray &keyword, const QByteArray &line, QByteArray *values);
    QByteArray textureLine(const QByteArray &keyword, const QByteArray &values);
    QByteArray takeBlock();
    Placement placementOf(const QByteArray &material, aiTextureType type) const;
    static void layOut(aiMesh *mesh, const QVector<Placement> &sets);

    Block m_block;
    QString m_library;
    int m_line = 0;
    QVector<Placement> m_placements;
    QSet<QByteArray> m_names;
    QStringList m_warnings;
};

} // namespace Velmora::Kvz
