// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Bindable.h>
#include <GL/BufferObject.h>
#include <GL/GLObject.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtCore/QVarLengthArray>
#include <QtCore/QVector>

#include <memory>
#include <vector>

namespace Velmora::Kvz {

class ShaderProgram;

/// A vertex array and the buffers behind its attributes.
///
/// Contexts share buffers, and no vertex arrays: the object has a GL name in each context that uses it, where the arrays that were enabled in
/// any of them are enabled when it is bound first. So a model may be drawn in all contexts of its share group.
class KVZ_GL_EXPORT VertexArrayObject : public Bindable
{
public:
    VertexArrayObject();
    /// Deletes the GL vertex array of the current context, and leaves others to their contexts.
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
        bool isInteger = false; ///< The shader reads integers, unconverted.
        int divisor = 0; ///< 0: a value for each vertex; else one for so many instances.
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

    /// The GL name in the current context, created if it has none yet; 0 without a context.
    unsigned int getVAO() const;

private:
    struct Array
    {
        QString name;
        QSharedPointer<BufferObject> buffer;
        Interleaving place;
    };
    /// An array that was enabled.
    struct Enabled
    {
        int array;
        int location;
        QWeakPointer<BufferObject> buffer; ///< That it was pointed at.
    };
    /// What it is in one context.
    struct Name;

    Name *nameHere() const;
    void enable(int array, int location);
    static void enableArray(const Array &array, int location);

    mutable std::vector<std::unique_ptr<Name>> m_names; ///< One for each context.
    QVector<Array> m_arrays;
    QVector<Enabled> m_enabled;
    QVarLengthArray<int, 4> m_saved;
};

} // namespace Velmora::Kvz
