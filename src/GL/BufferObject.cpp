// SPDX-License-Identifier: MIT
#include <GL/BufferObject.h>

#include "CurrentContext.h"
#include "GLStatisticsPrivate.h"

#include <GL/TrackedGL.h>

#include <vector>

namespace Velmora::Kvz {

namespace {

/// The query for what is bound at a buffer target.
GLenum bindingQuery(GLenum target)
{
    switch (target) {
    case GL_ELEMENT_ARRAY_BUFFER:
        return GL_ELEMENT_ARRAY_BUFFER_BINDING;
    case GL_PIXEL_UNPACK_BUFFER:
        return GL_PIXEL_UNPACK_BUFFER_BINDING;
    case GL_PIXEL_PACK_BUFFER:
        return GL_PIXEL_PACK_BUFFER_BINDING;
    case GL_UNIFORM_BUFFER:
        return GL_UNIFORM_BUFFER_BINDING;
    case GL_TRANSFORM_FEEDBACK_BUFFER:
        return GL_TRANSFORM_FEEDBACK_BUFFER_BINDING;
    case GL_ATOMIC_COUNTER_BUFFER:
        return GL_ATOMIC_COUNTER_BUFFER_BINDING;
    case GL_SHADER_STORAGE_BUFFER:
        return GL_SHADER_STORAGE_BUFFER_BINDING;
    case GL_DRAW_INDIRECT_BUFFER:
        return GL_DRAW_INDIRECT_BUFFER_BINDING;
    case GL_TEXTURE_BUFFER:
        return GL_TEXTURE_BUFFER; // The one target that is asked for by its own name.
    case GL_COPY_READ_BUFFER:
        return GL_COPY_READ_BUFFER;
    case GL_COPY_WRITE_BUFFER:
        return GL_COPY_WRITE_BUFFER;
    default:
        return GL_ARRAY_BUFFER_BINDING;
    }
}

GLint boundAt(GLenum target)
{
    GLint name = 0;
    glGetIntegerv(bindingQuery(target), &name);
    return name;
}

/// Binds a buffer for data transfer at a target that no vertex array and no draw looks at.
class TransferBinding
{
public:
    explicit TransferBinding(GLuint name)
        : m_previous(boundAt(GL_ARRAY_BUFFER))
    {
        glBindBuffer(GL_ARRAY_BUFFER, name);
    }
    ~TransferBinding() { glBindBuffer(GL_ARRAY_BUFFER, GLuint(m_previous)); }

private:
    Q_DISABLE_COPY(TransferBinding)
    GLint m_previous;
};

/// Bytes behind GL_ARRAY_BUFFER, also where a direct glBufferData made them.
GLint storedBytes()
{
    GLint bytes = 0;
    glGetBufferParameteriv(GL_ARRAY_BUFFER, GL_BUFFER_SIZE, &bytes);
    return bytes;
}

} // namespace

BufferObject::BufferObject(QObject *parent)
    : QObject(parent),
      m_owner(GLObject::Sharing::ShareGroup),
      m_target(GL_ARRAY_BUFFER)
{ }

BufferObject::~BufferObject()
{
    if (!m_name)
        return;
    if (m_owner.isKnownToCurrentContext())
        glDeleteBuffers(1, &m_name);
    --liveNames().buffers;
}

void BufferObject::setTarget(unsigned int target)
{
    m_target = target;
}

unsigned int BufferObject::target() const
{
    return m_target;
}

void BufferObject::bind()
{
    m_saved.append({m_target, boundAt(m_target)});
    glBindBuffer(m_target, getBO());
}

void BufferObject::unbind()
{
    const SavedBinding saved = m_saved.isEmpty() ? SavedBinding{m_target, 0} : m_saved.last();
    if (!m_saved.isEmpty())
        m_saved.removeLast();
    glBindBuffer(saved.target, GLuint(saved.buffer));
}

void BufferObject::upload(const float *data, int count, unsigned int usage)
{
    uploadBytes(data, long(count) * long(sizeof(float)), usage);
}

void BufferObject::uploadGLuintData(const unsigned int *data, int count, unsigned int usage)
{
    uploadBytes(data, long(count) * long(sizeof(unsigned int)), usage);
}

void BufferObject::uploadBytes(const void *data, long size, unsigned int usage)
{
    TransferBinding binding(getBO());
    glBufferData(GL_ARRAY_BUFFER, size, data, usage);
    m_size = size;
}

void BufferObject::uploadRange(const void *data, long offset, long size)
{
    TransferBinding binding(getBO());
    glBufferSubData(GL_ARRAY_BUFFER, offset, size, data);
}

void *BufferObject::map(unsigned int access)
{
    TransferBinding binding(getBO());
    return storedBytes() > 0 ? glMapBuffer(GL_ARRAY_BUFFER, access) : nullptr;
}

bool BufferObject::unmap()
{
    TransferBinding binding(getBO());
    return glUnmapBuffer(GL_ARRAY_BUFFER) == GL_TRUE;
}

void BufferObject::setIndexedTarget(unsigned int target, unsigned int index, long offset, long size)
{
    m_target = target;
    {
        TransferBinding binding(getBO());
        if (storedBytes() < offset + size) {
            const std::vector<char> zeros(size_t(offset + size));
            uploadBytes(zeros.data(), offset + size, GL_DYNAMIC_DRAW);
        }
    }
    const GLint previous = boundAt(target);
    glBindBufferRange(target, index, getBO(), offset, size);
    glBindBuffer(target, GLuint(previous));
}

unsigned int BufferObject::getBO() const
{
    if (!m_name && currentContextHandle()) {
        glGenBuffers(1, &m_name);
        m_owner.claim();
        ++liveNames().buffers;
    }
    return m_name;
}

long BufferObject::size() const
{
    return m_size;
}

} // namespace Velmora::Kvz
