// SPDX-License-Identifier: MIT
#pragma once

#include "GltfLibrary.h"

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QString>
#include <QtCore/QVector>
#include <QtGui/QVector2D>
#include <QtGui/QVector3D>
#include <QtGui/QVector4D>

#include <initializer_list>
#include <memory>

namespace Velmora::Kvz {

class DracoMesh;
class ImportBudget;

/// A glTF 2 file: its document, and the numbers of its accessors, whatever they are packed in.
class GltfFile
{
public:
    GltfFile();
    ~GltfFile();
    Q_DISABLE_COPY(GltfFile)

    /// Whether a file of this suffix and content is glTF 2, as text or GLB. glTF 1 is another format.
    static bool isGltf2(const QString &suffix, const QByteArray &content);

    /// Reads the document and its buffers. False with a problem for one that is damaged, and for one that requires an extension
    /// that is not read.
    bool load(const QString &file, const QByteArray &content, ImportBudget *budget, QString *problem);

    const tinygltf::Model &document() const { return m_document; }
    /// What is wrong with the document and can be drawn without, a line each.
    QStringList remarks() const { return m_remarks; }

    /// Makes the accessors of a primitive readable where KHR_draco_mesh_compression holds their data alone; until the next call
    /// these have the decoded vertices, which then count against the budget. False with a problem for damaged data. Where there is
    /// the same data without the extension, that is read; then damaged data of one that the file does not require is a remark.
    bool unpack(const tinygltf::Primitive &primitive, ImportBudget *budget, QString *remark, QString *problem);
    /// Whether the last primitive was such a one.
    bool isPacked() const { return m_packed != nullptr; }
    /// Its triangles.
    QVector<quint32> packedCorners() const;

    /// The elements of an accessor as floats, missing components 0 and w 1, normalized integers from -1 or 0 to 1. False with a
    /// problem for an accessor that reaches past its data or has another number of components than one of `types`.
    bool readVectors(int accessor, std::initializer_list<int> types, QVector<QVector4D> *values, QString *problem);
    /// The same for vectors of two and three, without the way through four.
    bool readVectors(int accessor, QVector<QVector3D> *values, QString *problem);
    bool readVectors(int accessor, QVector<QVector2D> *values, QString *problem);
    bool readNumbers(int accessor, QVector<float> *values, QString *problem);
    /// The first matrix of an accessor, by columns.
    bool readMatrix(int accessor, QVector<float> *values, QString *problem);
    bool readIndices(int accessor, QVector<quint32> *values, QString *problem);
    /// The bytes of a buffer view; null for one that is not there.
    QByteArray bytes(int bufferView);

private:
    struct Elements
    {
        QByteArray data;
        int stride = 0;
        int componentType = 0;
        int components = 0;
        int count = 0;
        bool isNormalized = false;
    };

    bool open(int accessor, Elements *elements, QString *problem);
    bool openPacked(int accessor, Elements *elements, QString *problem) const;
    bool applySparse(const tinygltf::Accessor &accessor, Elements *elements, QString *problem);
    bool isCompressed(int bufferView) const;
    QByteArray decompressed(int bufferView, const tinygltf::Value &extension);

    tinygltf::Model m_document;
    QStringList m_remarks;
    QHash<int, QByteArray> m_decompressed; // by buffer view
    std::unique_ptr<DracoMesh> m_packed;
    QHash<int, int> m_packedAttributes; // of m_packed, by accessor
};

/// A member of an extension, or `fallback` where it is not there or of another type.
double numberOf(const tinygltf::Value &object, const char *key, double fallback);
int integerOf(const tinygltf::Value &object, const char *key, int fallback);

/// The extension of that name; a null value where there is none.
const tinygltf::Value &extensionOf(const tinygltf::ExtensionMap &extensions, const char *name);

} // namespace Velmora::Kvz
