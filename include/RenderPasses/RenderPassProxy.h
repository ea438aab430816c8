// SPDX-License-Identifier: MIT
#pragma once

#include <Core/RenderPassHelper.h>
#include <RenderPasses/Export.h>

namespace Velmora::Kvz {

/// The base of nearly all passes: one whose skip() gives its input textures back.
class KVZ_RENDERPASSES_EXPORT RenderPassProxy : public RenderPassHelper
{
public:
    RenderPassProxy();
    ~RenderPassProxy() override;

    /// Releases one reference of each input that holds a `Texture*`, and makes all outputs invalid, so that consumers take
    /// their missing-input path. The inputs keep their values and are not handed on.
    void skip(RenderCallbacks *callbacks) override;
};

} // namespace Velmora::Kvz
