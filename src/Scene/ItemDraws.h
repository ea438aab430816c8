// SPDX-License-Identifier: MIT
#pragma once

#include <GL/BufferObject.h>
#include <GL/DrawElementsIndirectCommand.h>
#include <GL/Export.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QtGlobal>

#include <memory>
#include <vector>

namespace Velmora::Kvz {

class VertexArrayObject;

/// Draws many items by few calls, for programs that read the number of the item from the vertex attribute `va_DrawNumber`: an
/// array of all numbers, one for each instance, of which a command takes that of its base instance.
class KVZ_GL_EXPORT ItemDraws
{
public:
    /// Whether the driver has what it takes: indirect draws of many commands, base instances and arrays by instance.
    static bool isSupported();

    /// \name A list of draws, in order
    /// @{
    void begin();
    /// `first` and `count` are of the index buffer where `isIndexed`, else of the vertices. `query` is a query that may hold the
    /// draw back; 0 for none.
    void add(bool isIndexed, quint32 first, quint32 count, quint32 item, unsigned int front, unsigned int query);
    /// Issues the list with the bound program and vertex array, whose item numbers go up to `itemCount`. `use` says which lists are alike:
    /// one that is as the last of its use is not uploaded again. GL_FRONT_FACE is left as the last draw needs it.
    void draw(quint64 use, VertexArrayObject &array, int itemCount, bool isIndexed, unsigned int primitives);
    /// @}

private:
    /// Commands that one call can draw.
    struct Run
    {
        size_t first;
        size_t count;
        unsigned int front;
        unsigned int query;
    };
    /// What the buffer of a use holds.
    struct Uploaded
    {
        quint64 use = 0;
        std::vector<DrawElementsIndirectCommand> commands;
        BufferObject buffer;
    };

    void enableNumbers(VertexArrayObject &array, int itemCount);
    Uploaded &uploaded(quint64 use);

    std::vector<DrawElementsIndirectCommand> m_commands;
    std::vector<Run> m_runs;
    std::vector<std::unique_ptr<Uploaded>> m_uploaded; ///< The one used last at the end.
    QSharedPointer<BufferObject> m_numbers; ///< Null until a vertex array needs them.
};

} // namespace Velmora::Kvz
