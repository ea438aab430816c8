// SPDX-License-Identifier: MIT
#include <GL/VertexArrayObject.h>

#include "CurrentContext.h"
#include "GLStatisticsPrivate.h"
#include "StandardAttributes.h"

#include <GL/ShaderProgram.h>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

struct VertexArrayObject::Name
{
    GLObject owner{GLObject::Sharing::OneContext};
    GLuint name = 0;
    int enabledCount = 0; ///< Of the arrays that were enabled, those that are so here.
};

VertexArrayObject::VertexArrayObject() = default;

VertexArrayObject::~VertexArrayObject()
{
    for (const std::unique_ptr<Name> &each : m_names) {
        if (each->owner.isKnownToCurrentContext())
            glDeleteVertexArrays(1, &each->name);
        else
            each->owner.leaveName(GLObject::Kind::VertexArray, each->name);
        --liveNames().vertexArrays;
    }
}

void VertexArrayObject::bind()
{
    GLint previous = 0;
    glGetIntegerv(GL_VERTEX_ARRAY_BINDING, &previous);
    m_saved.append(previous);
    Name *const here = nameHere();
    glBindVertexArray(here ? here->name : 0);
    if (!here)
        return;
    // What another context has enabled since it was bound here last.
    for (; here->enabledCount < m_enabled.size(); ++here->enabledCount) {
        const Enabled &enabled = m_enabled[here->enabledCount];
        enableArray(m_arrays[enabled.array], enabled.location);
    }
}

void VertexArrayObject::unbind()
{
    const int previous = m_saved.isEmpty() ? 0 : m_saved.last();
    if (!m_saved.isEmpty())
        m_saved.removeLast();
    glBindVertexArray(GLuint(previous));
}

void VertexArrayObject::upload(
    const QString &name, const QSharedPointer<BufferObject> &buffer, int components, unsigned int type)
{
    uploadInterleaved(name, buffer, {components, type, false, 0, 0});
}

void VertexArrayObject::uploadInterleaved(
    const QString &name, const QSharedPointer<BufferObject> &buffer, const Interleaving &interleaving)
{
    if (!buffer)
        return;
    for (Array &array : m_arrays) {
        if (array.name == name) {
            array = {name, buffer, interleaving};
            return;
        }
    }
    m_arrays.append({name, buffer, interleaving});
}

QSharedPointer<BufferObject> VertexArrayObject::bo(const QString &name) const
{
    for (const Array &array : m_arrays) {
        if (array.name == name)
            return array.buffer;
    }
    return {};
}

void VertexArrayObject::enableArray(const Array &array, int location)
{
    GLint previous = 0;
    glGetIntegerv(GL_ARRAY_BUFFER_BINDING, &previous);
    glBindBuffer(GL_ARRAY_BUFFER, array.buffer->getBO());
    const Interleaving &place = array.place;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): OpenGL takes the offset as a pointer.
    const auto *const offset = reinterpret_cast<const void *>(quintptr(place.offset));
    if (place.isInteger)
        glVertexAttribIPointer(GLuint(location), place.components, place.type, place.stride, offset);
    else
        glVertexAttribPointer(GLuint(location), place.components, place.type, place.isNormalized ? GL_TRUE : GL_FALSE,
            place.stride, offset);
    if (place.divisor > 0)
        glVertexAttribDivisor(GLuint(location), GLuint(place.divisor));
    glEnableVertexAttribArray(GLuint(location));
    glBindBuffer(GL_ARRAY_BUFFER, GLuint(previous));
}

/// Enables an array in the bound vertex array, and notes it for those of other contexts.
void VertexArrayObject::enable(int array, int location)
{
    enableArray(m_arrays[array], location);
    const QWeakPointer<BufferObject> buffer = m_arrays[array].buffer;
    const auto noted = std::find_if(m_enabled.begin(), m_enabled.end(),
        [&](const Enabled &enabled) { return enabled.array == array && enabled.location == location; });
    Name *const here = nameHere();
    if (noted == m_enabled.end()) {
        m_enabled.append({array, location, buffer});
        if (here && here->enabledCount == m_enabled.size() - 1)
            ++here->enabledCount;
    } else if (noted->buffer != buffer) {
        noted->buffer = buffer;
        for (const std::unique_ptr<Name> &each : m_names)
            each->enabledCount = each.get() == here ? each->enabledCount : 0;
    }
}

void VertexArrayObject::enableStandardArrays()
{
    for (int i = 0; i < m_arrays.size(); ++i) {
        const int location = standardAttributeLocation(m_arrays[i].name);
        if (location >= 0)
            enable(i, location);
    }
}

void VertexArrayObject::enableShaderProgramArrays(const ShaderProgram *program)
{
    if (!program || !program->isLinked())
        return;
    for (int i = 0; i < m_arrays.size(); ++i) {
        const int location = program->attributeLocation(m_arrays[i].name);
        if (location >= 0)
            enable(i, location);
    }
}

/// Its name in the current context, made if there is none yet; null without a context.
VertexArrayObject::Name *VertexArrayObject::nameHere() const
{
    for (const std::unique_ptr<Name> &each : m_names) {
        if (each->owner.isKnownToCurrentContext())
            return each.get();
    }
    if (!currentContextHandle())
        return nullptr;
    const auto lost = std::remove_if(
        m_names.begin(), m_names.end(), [](const std::unique_ptr<Name> &each) { return each->owner.isLost(); });
    liveNames().vertexArrays -= int(m_names.end() - lost);
    m_names.erase(lost, m_names.end());
    const QVector<GLuint> left = GLObject::takeLeftNames(GLObject::Kind::VertexArray);
    if (!left.isEmpty())
        glDeleteVertexArrays(left.size(), left.constData());
    m_names.push_back(std::make_unique<Name>());
    Name *const made = m_names.back().get();
    glGenVertexArrays(1, &made->name);
    made->owner.claim();
    ++liveNames().vertexArrays;
    return made;
}

unsigned int VertexArrayObject::getVAO() const
{
    const Name *const here = nameHere();
    return here ? here->name : 0;
}

} // namespace Velmora::Kvz
