// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QVarLengthArray>

namespace Velmora::Kvz {

struct PassSlot;
class Texture;
class TextureManager;

/// Keeps the reference counts of the pooled images that one pass is given exact, whether the pass gives them back or not.
class TextureReferences
{
public:
    explicit TextureReferences(TextureManager *manager)
        : m_manager(manager)
    { }

    /// Notes an image that an input holds. `isCounted` says that its producer added a reference for the input; for an image
    /// of the host the chain adds it, so that the pass gives back what is not the host's.
    void hold(Texture *texture, bool isCounted);
    /// After the pass: brings the references of its input images to what they must be. Those are the ones before, less its
    /// inputs, plus the users of outputs that hand an image on.
    void balance(const PassSlot &slot);

private:
    struct Held
    {
        Texture *texture;
        int before; ///< References before the pass ran.
        int inputs; ///< Inputs that hold it.
    };

    TextureManager *m_manager;
    QVarLengthArray<Held, 8> m_held;
};

} // namespace Velmora::Kvz
