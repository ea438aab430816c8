// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QSharedPointer>
#include <QtCore/QString>

#include <memory>

namespace Velmora::Kvz {

class DrawBuffers;
class FramebufferObject;
class ShaderProgram;

/// The vertex stage of a full-screen pass: it passes `vo_TexCoord`, from 0 to 1, to the fragment stage.
extern const QString screenQuadVertexSource;

/// Makes the framebuffer when there is none. Returns whether it was made now.
bool ensureFramebuffer(std::unique_ptr<FramebufferObject> &framebuffer);

/// Makes the quad of a full-screen pass when there is none, with the arrays enabled that the program reads.
void ensureScreenQuad(QSharedPointer<DrawBuffers> &quad, const ShaderProgram &program);
/// The same with the device's second quad.
void ensureScreenQuad2(QSharedPointer<DrawBuffers> &quad, const ShaderProgram &program);

/// Enables the arrays of a quad that the program reads: for a pass that draws one quad with several programs.
void enableArrays(const QSharedPointer<DrawBuffers> &quad, const ShaderProgram &program);

} // namespace Velmora::Kvz
