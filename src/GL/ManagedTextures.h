// SPDX-License-Identifier: MIT
#pragma once

#include "SceneSamplers.h"

#include <GL/Texture.h>

#include <QtCore/QHash>
#include <QtCore/QSize>
#include <QtCore/QVector>
#include <QtGui/QImage>

#include <memory>
#include <vector>

namespace Velmora::Kvz {

/// The images of materials: at most six array textures, one for each size, whose layers are images.
///
/// A handle is 1 + array + 6 * layer; 0 samples white. Six samplers with fixed units make every image reachable from one
/// fragment stage at GL 3.2's sixteen.
class ManagedTextures
{
public:
    static constexpr int arrayCount = managedTextureArrays;

    int add(const QImage &image);
    void release(int handle);
    void bind();
    void unbind();

private:
    struct Layer
    {
        qint64 key = 0; ///< QImage::cacheKey of what it holds.
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
    void store(Array &array, int layer, const QImage &image);
    unsigned int nameFor(int array);

    std::vector<Array> m_arrays;
    QHash<qint64, int> m_handles; ///< By QImage::cacheKey.
    std::unique_ptr<Texture> m_white;
    struct SavedBinding
    {
        int textures[arrayCount];
    };
    QVector<SavedBinding> m_saved;
};

} // namespace Velmora::Kvz
