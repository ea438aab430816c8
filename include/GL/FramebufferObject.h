// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Bindable.h>
#include <GL/GLObject.h>
#include <GL/Texture.h>

#include <QtCore/QMap>
#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QSize>
#include <QtCore/QVarLengthArray>

namespace Velmora::Kvz {

/// A GL framebuffer with textures attached. It does not own them.
///
/// bind() binds for reading and drawing; unbind() restores each of the two bindings. The viewport follows one rule: an
/// attach() at GL_COLOR_ATTACHMENT0 made while the framebuffer is bound takes effect, at the next setDrawBuffers() of
/// that same binding, as glViewport(0, 0, width, height) of the attached level. No other call touches the viewport.
class KVZ_GL_EXPORT FramebufferObject : public QObject, public Bindable
{
    Q_OBJECT

public:
    explicit FramebufferObject(QObject *parent = nullptr);
    /// Deletes the GL framebuffer, or drops its name when its context is not current.
    ~FramebufferObject() override;

    /// Wraps a framebuffer of the host, such as a widget's, so that it can be the value of a port. Its name is never
    /// deleted.
    static FramebufferObject *wrap(unsigned int name, QObject *parent = nullptr);

    void bind() override;
    void unbind() override;

    /// Attaches a level of a texture; the framebuffer must be bound. Of an array texture this is layer 0, of a cube map
    /// the face +X. A depth texture without stencil at GL_DEPTH_STENCIL_ATTACHMENT becomes the depth attachment, and
    /// attachment() still finds it under the point given. A null texture detaches.
    void attach(Texture *texture, unsigned int attachment, int level);
    /// Attaches one layer of an array texture, a face of a cube map or a slice of a 3D texture.
    void attach3D(Texture *texture, unsigned int attachment, int layer, int level);
    /// Attaches all layers, for layered rendering.
    void attachLayers(Texture *texture, unsigned int attachment, int level);

    /// The attached texture; null when there is none and when it was deleted.
    Texture *attachment(unsigned int attachment) const;
    bool hasAttachment(unsigned int attachment) const;
    /// Detaches and returns what was attached, or null. The framebuffer need not be bound.
    Texture *detach(unsigned int attachment);
    void detachAll();
    /// Enables the colour attachments as draw buffers, in attachment order, and reads from the first; the framebuffer
    /// must be bound. A wrapped framebuffer keeps the draw and read buffers that the host gave it.
    void setDrawBuffers();

    /// The GL name, created if there is none yet and a context is current; 0 if that is not possible.
    unsigned int getFBO() const;

private:
    struct Attachment
    {
        QPointer<Texture> texture;
        unsigned int point; ///< Where GL has it.
    };
    struct Binding
    {
        int previousRead;
        int previousDraw;
        QSize viewport; ///< What the next setDrawBuffers() sets; not valid for nothing.
    };

    enum class Kind { Level, Layer, Layers };
    void attachAs(Kind kind, Texture *texture, unsigned int attachment, int layer, int level);

    mutable unsigned int m_name = 0;
    mutable GLObject m_owner;
    bool m_wrapped = false;
    QMap<unsigned int, Attachment> m_attachments;
    QVarLengthArray<Binding, 2> m_bindings;
};

} // namespace Velmora::Kvz
