// SPDX-License-Identifier: MIT
#include <Core/RenderPass.h>

namespace Velmora::Kvz {

RenderPass::~RenderPass() = default;

bool RenderPass::isFinished() const
{
    return true;
}

} // namespace Velmora::Kvz
