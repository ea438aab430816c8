// SPDX-License-Identifier: MIT
#pragma once

#include <GL/FramebufferObject.h>
#include <GL/Texture.h>

#include <QtCore/QRect>
#include <QtCore/QSize>
#include <QtGui/QImage>

#include <vector>

namespace Velmora::Kvz {

/// A framebuffer of the program's own for a chain to present into, with depth, opaque black at first: 8 bits a channel, or floats.
/// Everything needs a current context.
class RenderTarget
{
public:
    explicit RenderTarget(const QSize &size, bool hasFloats = false);

    /// False when the driver had no memory for it.
    bool isComplete() const { return m_complete; }
    /// Makes it opaque black again, whatever GL state a chain left.
    void clear();
    FramebufferObject *framebuffer() { return &m_framebuffer; }
    QSize size() const { return m_size; }
    /// What a screen would show of a part, whose origin is at the lower left: opaque, top row first; or with straight alpha, from colours
    /// that are multiplied by it. Null when there is no memory for it.
    QImage rows(const QRect &part, bool hasAlpha);
    /// The colours of a part as floats, four a pixel, top row first. Empty when there is no memory for them.
    std::vector<float> colours(const QRect &part);

    /// The largest picture that the driver can draw.
    static QSize largestSize();

private:
    QImage read(const QRect &part, QImage::Format imageFormat, unsigned int format);

    QSize m_size;
    Texture m_colour;
    Texture m_depth;
    FramebufferObject m_framebuffer;
    bool m_complete;
};

} // namespace Velmora::Kvz
