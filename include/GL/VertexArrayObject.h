// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Bindable.h>
#include <GL/BufferObject.h>
#include <GL/GLObject.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtCore/QVarLengthArray>
#include <QtCore/QVector>

namespace Velmora::Kvz {

class ShaderProgram;

/// A GL vertex array and the buffers behind its attributes.
class KVZ_GL_EXPORT VertexArrayObject : public Bindable
{
public:
    VertexArrayObject();
    /// Deletes the GL vertex array, or drops its name when its context is not current.
    ~VertexArrayObject() override;

    void bind() override;
    void unbind() override;

    /// Registers a buffer as the attribute `name`, tightly packed, with this many components of a type such as GL_FLOAT
    /// per vertex. A name that is already registered gets the new buffer. Null is ignored.
    void upload(const QString &name, const QSharedPointer<BufferObject> &buffer, int components, unsigned int type);
    /// The layout of an attribute in a buffer that it shares with others.
    struct Interleaving
    {
        int components;
        unsigned int type;
        bool isNormalized; ///< Integers stand for 0 to 1, or for -1 to 1 if signed.
        int stride; ///< Bytes from one vertex to the next.
        int offset; ///< Bytes before the first one.
    };
    /// The same for an attribute that shares its buffer with others.
    void uploadInterleaved(
        const QString &name, const QSharedPointer<BufferObject> &buffer, const Interleaving &interleaving);
    /// The buffer under a name, or null.
    QSharedPointer<BufferObject> bo(const QString &name) const;
    /// Points and enables the arrays that the program's active attributes read; this object must be bound and the program
    /// linked. Arrays that are enabled stay so. An attribute without a buffer keeps its constant value.
    void enableShaderProgramArrays(const ShaderProgram *program);
    /// Points and enables the arrays of standard attributes, whose location is the same in every program; this object must
    /// be bound.
    void enableStandardArrays();

    /// The GL name, created if there is none yet and a context is current; 0 if that is not possible.
    unsigned int getVAO() const;

private:
    struct Array
    {
        QString name;
        QSharedPointer<BufferObject> buffer;
        Interleaving place;
    };

    static void enableArray(const Array &array, int location);

    mutable unsigned int m_name = 0;
    mutable GLObject m_owner;
    QVector<Array> m_arrays;
    QVarLengthArray<int, 4> m_saved;
};

} // namespace Velmora::Kvz
