// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainResults.h>

#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QVariant>
#include <QtCore/QVector>

namespace Velmora::Kvz {

struct ChainOutput;
struct OutputInfo;
struct PassSlot;
class SlotList;
class Texture;

/// What a host reads from frames: exports and captures.
class FrameResults
{
public:
    using Exports = QMap<QString, ChainOutput>;

    /// Whether an output can be captured.
    static bool holdsImage(const OutputInfo &output);

    /// Gives what the last frame exported back to the pool, and forgets its captures.
    void beginFrame();
    /// Before a pass: marks its outputs, if all are wanted.
    void markCaptures(PassSlot *slot) const;
    /// After a pass: takes the pictures that are wanted of its outputs.
    void capture(PassSlot *slot);
    void endFrame(const SlotList &slots, const Exports &exports);

    void requestAllCaptures() { m_capturesAll = true; }
    void requestAllTexels() { m_capturesAll = m_takesTexels = true; }
    /// Whether the next frame must run for them: a capture is wanted.
    bool wantsCaptures(const SlotList &slots) const;
    /// Whether the exports of the last frame are still held, or there are none.
    bool hasExports(const Exports &exports) const { return m_areExportsValid || exports.isEmpty(); }
    /// The pictures of the last frame, which are then forgotten.
    QVector<PassCapture> takeCaptures();

    /// The value of an exported output of the last frame; invalid when it was released.
    QVariant exportedValue(const SlotList &slots, const Exports &exports, const QString &name) const;
    void releaseExports();

private:
    QVector<Texture *> m_exported; ///< Images that exports hold.
    bool m_areExportsValid = false;
    bool m_capturesAll = false;
    bool m_takesTexels = false; ///< In place of pictures.
    QVector<PassCapture> m_captures;
};

} // namespace Velmora::Kvz
