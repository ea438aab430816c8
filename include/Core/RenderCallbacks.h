// SPDX-License-Identifier: MIT
#pragma once

namespace Velmora::Kvz {

/// The host's own context of a frame, handed through the lifecycle operations of every pass.
///
/// Opaque: no pass looks inside, and every operation takes a null pointer.
class RenderCallbacks;

} // namespace Velmora::Kvz
