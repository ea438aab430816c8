// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>
#include <GL/ImageUse.h>
#include <GL/Texture.h>
#include <GL/TextureFormat.h>

#include <QtCore/QHash>
#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtCore/QVector>
#include <QtGui/QColor>
#include <QtGui/QImage>

#include <memory>
#include <vector>

namespace Velmora::Kvz {

class ManagedTextures;
class ManagedTextureUnits;
class ShaderProgram;

/// How TextureManager::loadTexture() turns an image file into a texture. Members are in the order in which callers
/// fill the record. Images of every pixel format, also palettes, grey and 16 bits a channel, are read as red, green, blue
/// and alpha from 0 to 1; no colour space is converted.
struct TextureLoadOptions
{
    float offset = 0.0f; ///< Added to every channel after scaling.
    float scale = 1.0f; ///< Factor on every channel, of values from 0 to 1.
    bool linearFilter = true; ///< GL_LINEAR, else GL_NEAREST.
    bool mipMaps = false; ///< Builds mip levels and samples between them.
    bool repeat = false; ///< GL_REPEAT, else GL_CLAMP_TO_EDGE.
    int maximumSize = 0; ///< Longest edge in texels; a larger image is scaled down. 0: the driver's limit.
    int format = int(TextureFormat::HighDynamicRange); ///< Storage, a TextureFormat.

    bool operator==(const TextureLoadOptions &other) const;
};

/// The textures that passes share: the pool of temporary ones, single colours, image files, and the images of materials.
///
/// There is one manager for each group of contexts that share objects. All operations run on the thread of the current
/// context.
class KVZ_GL_EXPORT TextureManager
{
public:
    /// The manager of the current context. Fetch it at each use. With no current context this is a manager that owns
    /// nothing and gives null textures.
    static TextureManager *Instance();

    TextureManager();
    virtual ~TextureManager();

    /// A texture from the pool, or a new one, with one reference that belongs to the caller.
    ///
    /// Sizes are in texels; negative ones count as 0. `depth` above 1 gives a GL_TEXTURE_2D_ARRAY with as many layers,
    /// `samples` above 1 a GL_TEXTURE_2D_MULTISAMPLE (at most what the driver offers); below 1 counts as 1 for both.
    /// Content, filters and wrap modes are those that the last user left; a new texture has linear filters and is
    /// clamped to its edges. Null for a format that does not exist and without a current context.
    Texture *tempTexture(TextureFormat format, int width, int height, int depth, int samples);
    /// Adds references. Null, a texture that the pool does not own, and counts below 1 are ignored.
    void addTempTextureRef(Texture *texture, int count);
    /// Drops references; at 0 the texture can be handed out again. Null, a texture that the pool does not own, a texture
    /// without references and counts below 1 are ignored. The pointer is compared, never read through.
    void releaseTempTextureRef(Texture *texture, int count);
    /// Frees the pool's textures that have no references.
    void deleteUnusedTempTextures();

    /// A 1 by 1 texture of one colour, its channels stored as they are given, kept by the manager and not counted.
    virtual Texture *colorTexture(const QColor &color);
    /// The texture of an image file, kept by the manager under path and options: a second call reads no file and gives
    /// the same pointer. Row 0 of the texture is the image's bottom row. Null for an empty path, silently, and for a file
    /// that cannot be read: that is logged once, and each call tries again.
    virtual Texture *loadTexture(const QString &path, const TextureLoadOptions &options = TextureLoadOptions());
    /// Makes images available to `managedTexture` in shaders until unbindTextures(): those of the model whose rows of material
    /// data are bound, or those of addManagedTexture() where none are. They lie on fixed units that every linked program
    /// knows, so `program` can be null.
    virtual void bindTextures(ShaderProgram *program);
    virtual void unbindTextures(ShaderProgram *program);

    /// Stores an image for a host's own draws and returns the handle by which `managedTexture` samples it. (A model
    /// keeps images of its own, with handles of its own: GPUModel::addImage().) Row 0 of the texture is the image's
    /// bottom row; repeat wrap, mip levels, trilinear filter. Copies of one QImage with the same use share a handle,
    /// and each call counts: pair it with releaseManagedTexture(). 0, which samples white, for a null image, without a
    /// context, and, with one log line, when the driver holds no more. Images of more than six sizes are enlarged to
    /// one of the six, or scaled down with one log line if all are smaller.
    int addManagedTexture(const QImage &image, ImageUse use = ImageUse::Colour);
    /// Gives a handle back. 0 and unknown handles are ignored.
    void releaseManagedTexture(int handle);

    /// One texture of the pool.
    struct PooledTexture
    {
        const Texture *texture;
        TextureFormat format;
        int width;
        int height;
        int depth;
        int samples;
        int references; ///< 0: free.
        qint64 bytes; ///< Estimated from the format.
        QString holder; ///< The label in force when it was handed out last.
    };
    struct PoolStatistics
    {
        int live = 0; ///< Textures with references.
        int free = 0; ///< Textures without.
        int references = 0; ///< Over all textures.
        qint64 bytes = 0; ///< Of all textures, live and free.
    };
    PoolStatistics poolStatistics() const;
    /// The pool, oldest texture first.
    QVector<PooledTexture> pooledTextures() const;
    /// The references of a pooled texture; -1 for null and for what the pool does not own.
    int tempTextureRefs(const Texture *texture) const;
    /// A label that is recorded with each temporary texture handed out from now on, such as the name of the pass that
    /// runs.
    void setHolderLabel(const QString &label);

private:
    Q_DISABLE_COPY(TextureManager)

    struct Entry
    {
        std::unique_ptr<Texture> texture;
        TextureFormat format;
        int width;
        int height;
        int depth;
        int samples;
        int references;
        QString holder;
    };
    struct LoadedTexture
    {
        QString path;
        TextureLoadOptions options;
        std::unique_ptr<Texture> texture;
    };

    ManagedTextures &managed();
    Entry *findEntry(const Texture *texture);
    const Entry *findEntry(const Texture *texture) const;

    std::vector<Entry> m_pool;
    std::vector<LoadedTexture> m_loaded;
    QHash<QString, QString> m_reported; ///< By path, what was last said of an image that could not be read.
    QHash<QRgb, QSharedPointer<Texture>> m_colors;
    std::unique_ptr<ManagedTextures> m_managed;
    std::unique_ptr<ManagedTextureUnits> m_managedUnits;
    QString m_holderLabel;
};

} // namespace Velmora::Kvz
