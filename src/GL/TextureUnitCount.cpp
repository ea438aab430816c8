// SPDX-License-Identifier: MIT
#include "TextureUnitCount.h"

#include "ContextRegistry.h"

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

struct UnitCount
{
    GLint count = 0;

    UnitCount() { glGetIntegerv(GL_MAX_COMBINED_TEXTURE_IMAGE_UNITS, &count); }
};

} // namespace

int textureUnitCount()
{
    const QSharedPointer<ContextRecord> record = ContextRegistry::current();
    return record ? record->resources.get<UnitCount>().count : 0;
}

} // namespace Velmora::Kvz
