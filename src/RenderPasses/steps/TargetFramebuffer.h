// SPDX-License-Identifier: MIT
#pragma once

#include <Core/NamedValue.h>
#include <GL/FramebufferObject.h>

#include <QtCore/QSize>
#include <QtCore/QVariant>
#include <QtCore/QVector>

#include <memory>

namespace Velmora::Kvz {

/// A framebuffer that owns the targets made through it: each lives until its attachment gets another one, or until the
/// framebuffer is deleted. What attach() puts there is not owned, as with any framebuffer.
class TargetFramebuffer : public FramebufferObject
{
public:
    explicit TargetFramebuffer(QObject *parent = nullptr);
    /// Detaches and deletes the targets, in the order in which their attachments were first used, and then the framebuffer.
    ~TargetFramebuffer() override;

    /// Deletes the target at an attachment and puts a new 2D texture there, both its filters nearest. The framebuffer must
    /// be bound. The size is in texels; `format` and `type` accompany the internal format in glTexImage2D, whose data is
    /// null.
    Texture *remakeTarget(
        unsigned int attachment, int internalFormat, const QSize &size, unsigned int format, unsigned int type);
    /// The same with a texture of the caller's, which has no storage yet.
    void replaceTarget(unsigned int attachment, std::unique_ptr<Texture> target, int internalFormat, const QSize &size,
        unsigned int format, unsigned int type);
    /// A GL_DEPTH_COMPONENT32F target at GL_DEPTH_ATTACHMENT.
    void remakeDepthTarget(const QSize &size);

private:
    void deleteTarget(unsigned int attachment);

    QVector<unsigned int> m_owned; ///< The attachments that have had a target.
};

/// Makes the framebuffer when there is none. Returns whether it was made now.
bool ensureFramebuffer(std::unique_ptr<TargetFramebuffer> &framebuffer);

/// Writes the texture at an attachment, or a null `Texture*`, to an output. No reference is counted.
void publishTarget(NamedValue<QVariant> &output, const FramebufferObject &framebuffer, unsigned int attachment);

} // namespace Velmora::Kvz
