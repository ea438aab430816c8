// SPDX-License-Identifier: MIT
#include "Uniforms.h"

#include <GL/ShaderProgram.h>
#include <GL/Texture.h>

namespace Velmora::Kvz {

int unitOf(const Texture *texture)
{
    return texture ? texture->unit() : 0;
}

void setSampler(ShaderProgram &program, const QString &name, const Texture *texture)
{
    program.setUniform(name, unitOf(texture));
}

void setIfPresent(ShaderProgram &program, const QString &name, const QVariant &value)
{
    if (program.hasUniform(name))
        program.setUniform(name, value);
}

} // namespace Velmora::Kvz
