// SPDX-License-Identifier: MIT
#pragma once

#include <GL/FramebufferObject.h>
#include <GL/Texture.h>

#include <QtCore/QSize>
#include <QtGui/QImage>

namespace Velmora::Kvz {

/// A framebuffer of the program's own for a chain to present into: 8 bits per channel, with depth, opaque black at first.
/// Everything needs a current context.
class RenderTarget
{
public:
    explicit RenderTarget(const QSize &size);

    /// False when the driver had no memory for it.
    bool isComplete() const { return m_complete; }
    /// Makes it opaque black again, whatever GL state a chain left.
    void clear();
    FramebufferObject *framebuffer() { return &m_framebuffer; }
    /// What a screen would show: opaque, top row first. Null when there is no memory for it.
    QImage picture();
    /// The same with straight alpha, from colours that are multiplied by it.
    QImage pictureWithAlpha();

    /// The largest picture that the driver can draw.
    static QSize largestSize();

private:
    QImage read(QImage::Format imageFormat, unsigned int format);

    QSize m_size;
    Texture m_colour;
    Texture m_depth;
    FramebufferObject m_framebuffer;
    bool m_complete;
};

} // namespace Velmora::Kvz
