// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainDescription.h>
#include <Chain/PassRegistry.h>
#include <Host/Export.h>

#include <QtCore/QString>

namespace Velmora::Kvz {

class ResolvedChain;

/// Has a chain end in light in place of display values: what comes after exposure and before tone mapping, linear and multiplied by
/// alpha, for image files of light. It has to present into a framebuffer of floats, since light goes beyond 1.
///
/// Each pass with an output `Kvz_KvzTexture*_Linear` beside its `Kvz_KvzTexture*_Frame`, as ToneMapRenderPass, is taken for a tone
/// mapper: what takes its frame takes that output instead. Passes behind it keep half floats where they can (`Kvz_bool_RenderInHDR`); layers for
/// display values (`Kvz_bool_DisplayValues`) become layers of light; the colours that a gradient or a composition lays behind the frame are
/// decoded by the transfer function of sRGB, so a gradient runs evenly in light then.
///
/// True when it is done. False, with `chain` untouched, for a chain without a tone mapper, which ends in display values, and for an image
/// that is laid behind or over display values: the latter with one line in `error`, which is empty otherwise.
KVZ_HOST_EXPORT bool setLinearLight(
    ChainDescription *chain, QString *error, const PassRegistry &registry = PassRegistry::standard());

/// Whether a chain ends in light since setLinearLight() was called for it: passes take the light of a tone mapper, and none takes its frame.
KVZ_HOST_EXPORT bool endsInLight(const ResolvedChain &chain);

} // namespace Velmora::Kvz
