// SPDX-License-Identifier: MIT
#include "smaa/SmaaTextures.h"

#include "smaa/SmaaTableData.h"
#include "steps/Sampling.h"

#include <GL/AutoBinder.h>
#include <GL/UnpackState.h>

#include <QtCore/QtGlobal>

#include <GL/TrackedGL.h>

namespace Velmora::Kvz {

namespace {

std::unique_ptr<Texture> makeTable(
    int width, int height, GLint internalFormat, GLenum format, const unsigned char *texels, GLint alignment)
{
    auto texture = std::make_unique<Texture>(GL_TEXTURE_2D, internalFormat, width, height, 0, nullptr);
    AutoBinder binder(texture.get());
    sampleLinearly(texture.get());
    // With a host's row length or unpack buffer the tables would be read from elsewhere.
    UnpackState unpack;
    GLint before = 0;
    glGetIntegerv(GL_UNPACK_ALIGNMENT, &before);
    glPixelStorei(GL_UNPACK_ALIGNMENT, alignment);
    glTexImage2D(GL_TEXTURE_2D, 0, internalFormat, width, height, 0, format, GL_UNSIGNED_BYTE, texels);
    glPixelStorei(GL_UNPACK_ALIGNMENT, before);
    return texture;
}

} // namespace

std::unique_ptr<Texture> makeSmaaAreaTexture()
{
    return makeTable(SmaaTables::areaWidth, SmaaTables::areaHeight, GL_RG8, GL_RG, smaaAreaTable, 2);
}

std::unique_ptr<Texture> makeSmaaSearchTexture()
{
    return makeTable(SmaaTables::searchWidth, SmaaTables::searchHeight, GL_R8, GL_RED, smaaSearchTable, 1);
}

const float *smaaSubsampleRow(int samples, int index)
{
    static constexpr float centre[4] = {0, 0, 0, 0};
    static constexpr float twoSamples[2][4] = {{1, 1, 1, 0}, {2, 2, 2, 0}};
    static constexpr float fourSamples[4][4] = {{5, 3, 1, 3}, {4, 6, 2, 3}, {3, 5, 1, 4}, {6, 4, 2, 4}};
    switch (samples) {
    case 2:
        return twoSamples[qBound(0, index, 1)];
    case 4:
        return fourSamples[qBound(0, index, 3)];
    default:
        return centre;
    }
}

} // namespace Velmora::Kvz
