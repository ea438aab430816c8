// SPDX-License-Identifier: MIT
#include <RenderPasses/RenderPassProxy.h>

#include <GL/Texture.h>
#include <GL/TextureManager.h>

namespace Velmora::Kvz {

RenderPassProxy::RenderPassProxy() = default;

RenderPassProxy::~RenderPassProxy() = default;

void RenderPassProxy::skip(RenderCallbacks *callbacks)
{
    for (const NamedValue<QVariant> &input : qAsConst(m_inputs)) {
        if (input.value.isValid() && input.value.userType() == qMetaTypeId<Texture *>())
            TextureManager::Instance()->releaseTempTextureRef(input.value.value<Texture *>(), 1);
    }
    RenderPassHelper::skip(callbacks);
}

} // namespace Velmora::Kvz
