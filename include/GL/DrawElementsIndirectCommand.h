// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/qglobal.h>

namespace Velmora::Kvz {

/// The record that glMultiDrawElementsIndirect reads.
struct DrawElementsIndirectCommand
{
    quint32 count; ///< Indices.
    quint32 instanceCount;
    quint32 firstIndex;
    quint32 baseVertex;
    quint32 baseInstance;
};

static_assert(sizeof(DrawElementsIndirectCommand) == 20, "the record is read by GL as five packed words");

} // namespace Velmora::Kvz
