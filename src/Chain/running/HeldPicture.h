// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QRect>
#include <QtCore/QVector>

#include <memory>
#include <vector>

namespace Velmora::Kvz {

class FramebufferObject;
struct PassSlot;
class SlotList;
class Texture;

/// A copy of what a chain has presented, to be presented again without its passes: what they presented to is the host's, who may draw
/// over it. The copies have the format of their destinations, so that they come back bit by bit.
class HeldPicture
{
public:
    HeldPicture();
    ~HeldPicture();

    bool isHeld() const { return m_isHeld; }
    /// Copies what the passes presented in the frame that has ended. False, with one log line for each reason, where a copy cannot be made;
    /// nothing is held then. A chain that presents nothing is held at once.
    bool take(const SlotList &slots, const QRect &viewport);
    /// Copies it to where the passes would present now. False, with nothing held any more, where that takes no copy of this kind.
    bool present(const SlotList &slots, const QRect &viewport);
    /// Forgets the picture. Its memory waits for the next one.
    void drop() { m_isHeld = false; }
    /// As drop(), and gives its memory back; names of a context that is not current are dropped.
    void leaveContext();

private:
    /// What one pass presented.
    struct Part
    {
        Part();
        ~Part();
        Part(Part &&);
        Part &operator=(Part &&);

        const PassSlot *slot = nullptr;
        QVector<QRect> areas; ///< In pixels of the destination.
        QRect bounds; ///< Of the areas: the copy begins at its corner.
        std::unique_ptr<Texture> colour;
        std::unique_ptr<Texture> depth; ///< Null where the pass presents none.
        std::unique_ptr<FramebufferObject> framebuffer;
    };

    bool takePart(Part *part, const QRect &viewport);
    Part *partOf(const PassSlot *slot);
    bool fail(const char *reason);

    std::vector<Part> m_parts;
    bool m_isHeld = false;
    const char *m_saidReason = nullptr;
};

} // namespace Velmora::Kvz
