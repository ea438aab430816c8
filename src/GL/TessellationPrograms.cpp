// SPDX-License-Identifier: MIT
#include "TessellationPrograms.h"

#include "ContextRegistry.h"

namespace Velmora::Kvz {

namespace {

struct Names
{
    QSet<unsigned int> names;
};

} // namespace

QSet<unsigned int> &TessellationPrograms::current()
{
    return ContextRegistry::current()->group->resources.get<Names>().names;
}

} // namespace Velmora::Kvz
