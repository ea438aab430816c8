// SPDX-License-Identifier: MIT
#pragma once

#include "SceneSamplers.h"

#include <GL/Bindable.h>
#include <GL/ImageUse.h>
#include <GL/Texture.h>

#include <QtCore/QHash>
#include <QtCore/QPair>
#include <QtCore/QSize>
#include <QtCore/QString>
#include <QtCore/QVector>
#include <QtGui/QImage>

#include <memory>
#include <vector>

namespace Velmora::Kvz {

/// An image for ManagedTextures.
struct ManagedImage
{
    QImage image; ///< Null: handle 0.
    ImageUse use = ImageUse::Colour;
    bool isNearest = false; ///< Enlarged by whole factors, where another size is to take it.
    QString name; ///< For messages; can be empty.
};

/// The images of a model's materials, or those that hosts add to the texture manager: at most six array textures, whose layers are
/// images.
///
/// A handle is 1 + array + 6 * layer; 0 samples white. Six samplers with fixed units make every image reachable from one
/// fragment stage at GL 3.2's sixteen. Copies of an image that are used alike share a handle.
///
/// While a set is bound, TextureManager::bindTextures() takes its images, and else those of the manager.
class ManagedTextures : public Bindable
{
public:
    static constexpr int arrayCount = managedTextureArrays;
    /// The array of a handle above 0.
    static constexpr int arrayOf(int handle) { return (handle - 1) % arrayCount; }

    ManagedTextures() = default;
    ~ManagedTextures() override;

    /// Adds images to a set without any, in arrays as planImageArrays() says, and returns their handles.
    QVector<int> addAll(const QVector<ManagedImage> &images, qint64 bytes, int arrays = arrayCount);
    /// Adds one image. Where it is of a seventh size it goes to an array that is larger, or else to the nearest.
    int add(const ManagedImage &image);
    void release(int handle);

    void bind() override;
    void unbind() override;
    /// The set that was bound last in the current context, or null.
    static ManagedTextures *bound();

    /// An array with its mip levels; null where there is none.
    Texture *array(int number);

private:
    using Key = QPair<qint64, int>; ///< QImage::cacheKey and use.

    struct Layer
    {
        Key key;
        int users = 0;
    };
    struct Array
    {
        QSize size;
        std::unique_ptr<Texture> texture;
        int capacity = 0;
        QVector<Layer> layers;
        bool mipMapsStale = false;
    };

    int chooseArray(const QSize &size);
    int chooseLayer(Array &array);
    void grow(Array &array, int capacity);
    void store(Array &array, int layer, const ManagedImage &image);

    std::vector<Array> m_arrays;
    QHash<Key, int> m_handles;
};

/// The texture units of material images.
class ManagedTextureUnits
{
public:
    /// Binds the arrays, and white ones where there is none.
    void bind(ManagedTextures &images);
    /// Restores what was bound before the latest bind().
    void unbind();

private:
    struct SavedBinding
    {
        int textures[managedTextureArrays];
    };

    Texture *white();

    std::unique_ptr<Texture> m_white;
    QVector<SavedBinding> m_saved;
};

} // namespace Velmora::Kvz
