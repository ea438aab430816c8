// SPDX-License-Identifier: MIT
#pragma once

class QSize;

namespace Velmora::Kvz {

class GPUModel;
class ShaderProgram;
class TargetFramebuffer;

/// Replaces the depth-stencil target of a framebuffer, which must be bound, by one of this size in texels.
void remakeDepthStencilTarget(TargetFramebuffer &framebuffer, const QSize &size);

/// Clears the bound framebuffer, colour to zeros, and draws all items of a model, which can be null, with a program that has
/// its uniforms. The stencil becomes 1 where the model covers a pixel and 0 elsewhere.
void drawWithCoverage(GPUModel *model, ShaderProgram *program, const QSize &size);

} // namespace Velmora::Kvz
