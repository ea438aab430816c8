// SPDX-License-Identifier: MIT
#include "ItemDraws.h"

#include <GL/AutoBinder.h>
#include <GL/GLExtensions.h>
#include <GL/StandardAttributes.h>
#include <GL/TrackedGL.h>
#include <GL/VertexArrayObject.h>

#include <algorithm>
#include <cstring>
#include <numeric>

namespace Velmora::Kvz {

namespace {

/// Runs of fewer commands are drawn one by one: a buffer has to be bound for the others.
constexpr size_t leastIndirect = 4;

/// The lists that are kept: those of all, of opaque and of transparent items, and one of a host.
constexpr size_t mostUses = 4;

/// GL takes offsets as pointers.
const void *offset(size_t bytes)
{
    return reinterpret_cast<const void *>(quintptr(bytes)); // NOLINT(performance-no-int-to-ptr)
}

void drawOne(const DrawElementsIndirectCommand &command, bool isIndexed, GLenum primitives)
{
    // Without indices the fourth word is the base instance, as GL reads it.
    if (isIndexed) {
        glDrawElementsInstancedBaseInstance(primitives, GLsizei(command.count), GL_UNSIGNED_INT,
            offset(command.firstIndex * sizeof(quint32)), 1, command.baseInstance);
    } else {
        glDrawArraysInstancedBaseInstance(
            primitives, GLint(command.firstIndex), GLsizei(command.count), 1, command.baseVertex);
    }
}

bool areEqual(const std::vector<DrawElementsIndirectCommand> &a, const std::vector<DrawElementsIndirectCommand> &b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(a[0])) == 0;
}

} // namespace

bool ItemDraws::isSupported()
{
    return hasGLExtension("GL_ARB_multi_draw_indirect") && hasGLExtension("GL_ARB_base_instance")
        && hasGLExtension("GL_ARB_instanced_arrays");
}

void ItemDraws::begin()
{
    m_commands.clear();
    m_runs.clear();
}

void ItemDraws::add(bool isIndexed, quint32 first, quint32 count, quint32 item, unsigned int front, unsigned int query)
{
    if (m_runs.empty() || query || m_runs.back().query || m_runs.back().front != front)
        m_runs.push_back({m_commands.size(), 0, front, query});
    ++m_runs.back().count;
    m_commands.push_back({count, 1, first, isIndexed ? 0 : item, isIndexed ? item : 0});
}

void ItemDraws::draw(quint64 use, VertexArrayObject &array, int itemCount, bool isIndexed, unsigned int primitives)
{
    if (m_commands.empty())
        return;
    enableNumbers(array, itemCount);
    const bool isIndirect =
        std::any_of(m_runs.begin(), m_runs.end(), [](const Run &run) { return run.count >= leastIndirect; });
    Uploaded *const stored = isIndirect ? &uploaded(use) : nullptr;
    AutoBinder binder(stored ? &stored->buffer : nullptr);
    for (const Run &run : m_runs) {
        glFrontFace(run.front);
        if (run.query)
            glBeginConditionalRender(run.query, GL_QUERY_NO_WAIT);
        constexpr size_t stride = sizeof(DrawElementsIndirectCommand);
        if (run.count < leastIndirect) {
            for (size_t i = run.first; i < run.first + run.count; ++i)
                drawOne(m_commands[i], isIndexed, primitives);
        } else if (isIndexed) {
            glMultiDrawElementsIndirect(
                primitives, GL_UNSIGNED_INT, offset(run.first * stride), GLsizei(run.count), GLsizei(stride));
        } else {
            glMultiDrawArraysIndirect(primitives, offset(run.first * stride), GLsizei(run.count), GLsizei(stride));
        }
        if (run.query)
            glEndConditionalRender();
    }
}

/// Gives the bound vertex array the numbers of the items, once.
void ItemDraws::enableNumbers(VertexArrayObject &array, int itemCount)
{
    static const QString name = QStringLiteral("va_DrawNumber");
    if (m_numbers && array.bo(name) == m_numbers)
        return;
    if (!m_numbers) {
        std::vector<quint32> numbers(static_cast<size_t>(itemCount));
        std::iota(numbers.begin(), numbers.end(), 0u);
        m_numbers = QSharedPointer<BufferObject>::create();
        m_numbers->uploadGLuintData(numbers.data(), itemCount, GL_STATIC_DRAW);
    }
    VertexArrayObject::Interleaving place{1, GL_UNSIGNED_INT, false, 0, 0};
    place.isInteger = true;
    place.divisor = 1;
    array.uploadInterleaved(name, m_numbers, place);
    array.enableStandardArrays();
}

/// A buffer with the commands.
ItemDraws::Uploaded &ItemDraws::uploaded(quint64 use)
{
    auto found = std::find_if(m_uploaded.begin(), m_uploaded.end(),
        [use](const std::unique_ptr<Uploaded> &each) { return each->use == use; });
    if (found == m_uploaded.end()) {
        if (m_uploaded.size() < mostUses) {
            m_uploaded.push_back(std::make_unique<Uploaded>());
            m_uploaded.back()->buffer.setTarget(GL_DRAW_INDIRECT_BUFFER);
            found = std::prev(m_uploaded.end());
        } else {
            found = m_uploaded.begin();
        }
        (*found)->use = use;
        (*found)->commands.clear();
    }
    std::rotate(found, std::next(found), m_uploaded.end());
    Uploaded &stored = *m_uploaded.back();
    if (!areEqual(stored.commands, m_commands)) {
        stored.commands = m_commands;
        stored.buffer.uploadBytes(
            m_commands.data(), long(m_commands.size() * sizeof(DrawElementsIndirectCommand)), GL_DYNAMIC_DRAW);
    }
    return stored;
}

} // namespace Velmora::Kvz
