// SPDX-License-Identifier: MIT
#pragma once

#include <ExtraPasses/Export.h>

#include <memory>

namespace Velmora::Kvz {

class ShaderProgram;

/// A program for ModelRenderPass::setShaderProgram() that leaves out materials with an opacity below 1, for chains that
/// draw these separately. It writes the same outputs as the pass's own program. `discardOnDiffuseAlpha` does what
/// ModelRenderPass::setDiscardOnDiffuseAlpha() does for that one: fragments are left out where the alpha of the diffuse
/// image is 0.01 or less.
///
/// A context must be current. A program that the driver refuses is returned as it is, with its log.
KVZ_EXTRAPASSES_EXPORT std::unique_ptr<ShaderProgram> makeOpaqueModelProgram(bool discardOnDiffuseAlpha);

} // namespace Velmora::Kvz
