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
        if (!input.value.isValid() || input.value.userType() != qMetaTypeId<Texture *>())
            continue;
        // As it is stored: QVariant::value() asks the object for its class, and the texture may be deleted by now.
        auto *const texture = *static_cast<Texture *const *>(input.value.constData());
        TextureManager::Instance()->releaseTempTextureRef(texture, 1);
    }
    RenderPassHelper::skip(callbacks);
}

} // namespace Velmora::Kvz
