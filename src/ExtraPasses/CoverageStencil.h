// SPDX-License-Identifier: MIT
#pragma once

class QSize;

namespace Velmora::Kvz {

class FramebufferObject;
class GPUModel;
class ShaderProgram;

/// Puts a new depth-stencil texture of a size in texels in the place of the framebuffer's, which must be bound.
void remakeDepthStencilTarget(FramebufferObject *framebuffer, const QSize &size);

/// Clears the bound framebuffer, colour to zeros, and draws all items of a model, which can be null, with a program that has
/// its uniforms. The stencil becomes 1 where the model covers a pixel and 0 elsewhere.
void drawWithCoverage(GPUModel *model, ShaderProgram *program, const QSize &size);

} // namespace Velmora::Kvz
