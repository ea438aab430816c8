// SPDX-License-Identifier: MIT
#include "EnvironmentTexture.h"

#include "FilteredEnvironment.h"
#include "ReflectanceTable.h"

#include <GL/AutoBinder.h>
#include <GL/Texture.h>
#include <GL/UnpackState.h>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

std::unique_ptr<Texture> makeArray(int side, int levels)
{
    auto texture = std::make_unique<Texture>(nullptr);
    texture->setTarget(GL_TEXTURE_2D_ARRAY);
    UnpackState unpack;
    AutoBinder binder(texture.get());
    for (int level = 0; level < levels; ++level) {
        glTexImage3D(
            GL_TEXTURE_2D_ARRAY, level, GL_RGBA16F, side >> level, side >> level, 2, 0, GL_RGB, GL_FLOAT, nullptr);
    }
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MAX_LEVEL, levels - 1);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MIN_FILTER, levels > 1 ? GL_LINEAR_MIPMAP_NEAREST : GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D_ARRAY, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    for (const GLenum wrap : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T})
        glTexParameteri(GL_TEXTURE_2D_ARRAY, wrap, GL_CLAMP_TO_EDGE);
    glTexSubImage3D(GL_TEXTURE_2D_ARRAY, 0, 0, 0, 1, ReflectanceTable::width, ReflectanceTable::height, 1, GL_RGB,
        GL_FLOAT, reflectanceTable().rgb.data());
    return texture;
}

} // namespace

std::unique_ptr<Texture> makeEnvironmentTexture(const FilteredEnvironment &environment)
{
    std::unique_ptr<Texture> texture = makeArray(FilteredEnvironment::side, FilteredEnvironment::levels);
    UnpackState unpack;
    AutoBinder binder(texture.get());
    for (int level = 0; level < FilteredEnvironment::levels; ++level) {
        const int side = FilteredEnvironment::sideOf(level);
        glTexSubImage3D(GL_TEXTURE_2D_ARRAY, level, 0, 0, 0, side, side, 1, GL_RGB, GL_FLOAT,
            environment.rgb[size_t(level)].data());
    }
    return texture;
}

std::unique_ptr<Texture> makeReflectanceTexture()
{
    return makeArray(ReflectanceTable::width, 1);
}

} // namespace Velmora::Kvz
