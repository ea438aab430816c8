// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

namespace Velmora::Kvz {

/// Something that can be bound in the current OpenGL context.
///
/// bind() asks GL for the current binding and remembers it; the matching unbind() restores it. Binds may be nested,
/// even of one object. Prefer AutoBinder, which pairs the two.
class KVZ_GL_EXPORT Bindable
{
public:
    Bindable() = default;
    virtual ~Bindable();

    virtual void bind() = 0;
    virtual void unbind() = 0;

private:
    Q_DISABLE_COPY(Bindable)
};

} // namespace Velmora::Kvz
