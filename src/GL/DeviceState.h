// SPDX-License-Identifier: MIT
#pragma once

#include <GL/BufferObject.h>
#include <GL/FramebufferObject.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/Texture.h>

#include <QtCore/QSharedPointer>

#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace Velmora::Kvz {

/// The two framebuffers through which BlitTexture copies, and a target for resolving.
struct BlitResources
{
    FramebufferObject read;
    FramebufferObject draw;
    std::unique_ptr<Texture> resolved;
    int resolvedFormat = 0;
    int resolvedWidth = 0;
    int resolvedHeight = 0;
};

/// What the device keeps for its context.
struct OpenGLDeviceContext::Private
{
    QSharedPointer<BufferObject> quadPositions;
    QSharedPointer<BufferObject> quadTexCoords;
    std::unique_ptr<BlitResources> blit;
    std::vector<bool> usedUnits; ///< By texture unit; grows with use.
    std::map<int, std::function<void()>> endListeners; ///< By number.
    int nextListener = 0;
    int combinedUnits = 0; ///< Texture units that the driver offers; 0 until asked.
};

/// Hands out the texture units of the current context, from 1 up.
class TextureUnitAllocator
{
public:
    static int acquire();
    static void release(int unit);
    /// GL_MAX_COMBINED_TEXTURE_IMAGE_UNITS of the current context; 0 with none.
    static int count();
};

/// The blit resources of the current context.
class BlitFramebuffers
{
public:
    static BlitResources &current();
};

} // namespace Velmora::Kvz
