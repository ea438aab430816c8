// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Bindable.h>
#include <GL/GLObject.h>

#include <QtCore/QObject>
#include <QtCore/QVarLengthArray>

namespace Velmora::Kvz {

/// A GL buffer.
class KVZ_GL_EXPORT BufferObject : public QObject, public Bindable
{
    Q_OBJECT

public:
    explicit BufferObject(QObject *parent = nullptr);
    /// Deletes the GL buffer, or drops its name when its context is not current.
    ~BufferObject() override;

    /// The target that bind() uses: GL_ARRAY_BUFFER (the default), GL_ELEMENT_ARRAY_BUFFER (part of the vertex array,
    /// which must be bound then), GL_PIXEL_UNPACK_BUFFER, ….
    void setTarget(unsigned int target);
    unsigned int target() const;

    void bind() override;
    void unbind() override;

    /// Replaces the content with `count` floats; null data allocates only. The buffer need not be bound.
    void upload(const float *data, int count, unsigned int usage);
    /// Replaces the content with `count` unsigned integers; null data allocates only.
    void uploadGLuintData(const unsigned int *data, int count, unsigned int usage);
    /// Replaces the content with bytes; null data allocates only.
    void uploadBytes(const void *data, long size, unsigned int usage);
    /// Replaces a part of the content. A range outside the buffer is refused by GL.
    void uploadRange(const void *data, long offset, long size);

    /// Maps the whole buffer with an access such as GL_WRITE_ONLY. Null when the driver refuses, or when it is empty.
    void *map(unsigned int access);
    /// Ends the mapping. False when the driver lost the content.
    bool unmap();

    /// Makes an indexed target, such as GL_ATOMIC_COUNTER_BUFFER, the buffer's target and binds a range of it there.
    /// Missing or insufficient storage is allocated first: `offset + size` bytes of zeros. The general binding of the
    /// target is restored.
    void setIndexedTarget(unsigned int target, unsigned int index, long offset, long size);

    /// The GL name, created if there is none yet and a context is current; 0 if that is not possible.
    unsigned int getBO() const;
    /// Bytes of storage.
    long size() const;

private:
    struct SavedBinding
    {
        unsigned int target; ///< Where it was bound: setIndexedTarget() may have changed the target since.
        int buffer;
    };

    mutable unsigned int m_name = 0;
    mutable GLObject m_owner;
    unsigned int m_target;
    long m_size = 0;
    QVarLengthArray<SavedBinding, 2> m_saved;
};

} // namespace Velmora::Kvz
