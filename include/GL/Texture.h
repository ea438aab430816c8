// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Bindable.h>
#include <GL/GLObject.h>

#include <QtCore/QHash>
#include <QtCore/QMap>
#include <QtCore/QObject>
#include <QtCore/QPair>
#include <QtCore/QVarLengthArray>

namespace Velmora::Kvz {

/// A GL texture of any target.
///
/// The object records what it is told about its storage and allocates none: its owner binds it and calls glTexImage2D
/// or a sibling. The GL name is created on first use.
///
/// bind() takes a free texture unit, from 1 up (unit 0 stays empty, for samplers that a program leaves unset), and makes
/// that unit the active one. A texture that is bound already keeps its unit, which becomes the active one again; so its
/// parameters can be set after a further bind(). The last unbind() frees the unit.
class KVZ_GL_EXPORT Texture : public QObject, public Bindable
{
    Q_OBJECT

public:
    /// An empty object; setTarget() gives it its kind. The target is GL_TEXTURE_2D until then.
    explicit Texture(QObject *parent = nullptr);
    /// Sizes are in texels; `depth` counts layers or slices, and 0 means that the target has none.
    Texture(unsigned int target, int internalFormat, int width, int height, int depth, QObject *parent);
    /// Deletes the GL texture, or drops its name when its context is not current.
    ~Texture() override;

    /// Sets the target. It has no effect on a texture that has its GL name already.
    void setTarget(unsigned int target);
    /// Records format and size of a level, in texels.
    void setSize(int level, int internalFormat, int width, int height, int depth);
    /// Makes the texture read-only: attaching it to a framebuffer is refused with one log line.
    void setReadOnly();
    bool isReadOnly() const;

    unsigned int target() const;
    /// The texture unit while bound, 0 otherwise.
    int unit() const;
    /// The GL name, created if there is none yet and a context is current; 0 if that is not possible.
    unsigned int textureID() const;

    /// Size of a level in texels: what GL holds where the storage exists and the context is current, else what was
    /// recorded, else 0.
    int width(int level) const;
    int height(int level) const;
    /// The recorded internal format of a level, else the one that GL holds, else 0.
    int internalFormat(int level) const;
    /// Samples for each texel: 1 for a texture that is not multisampled.
    int samples() const;

    void bind() override;
    void unbind() override;

private:
    struct Level
    {
        int internalFormat;
        int width;
        int height;
        int depth;
    };
    struct SavedBinding
    {
        int activeTexture;
        int texture;
    };

    friend class TextureManager;

    int levelParameter(int level, unsigned int parameter) const;
    /// Whether GL has level 0 as given.
    bool isStoredAs(unsigned int internalFormat, int width, int height) const;

    unsigned int m_target;
    mutable unsigned int m_name = 0;
    mutable GLObject m_owner;
    QMap<int, Level> m_levels;
    bool m_readOnly = false;
    int m_unit = 0;
    QVarLengthArray<SavedBinding, 4> m_saved;
    /// What frames of chains have learned from GL, by level and parameter, while nothing has been respecified.
    mutable QHash<QPair<int, unsigned int>, int> m_stored;
    mutable quint64 m_storedRevision = 0;
};

} // namespace Velmora::Kvz
