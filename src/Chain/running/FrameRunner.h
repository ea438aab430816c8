// SPDX-License-Identifier: MIT
#pragma once

#include <GL/FrameState.h>

#include <QtCore/QSize>
#include <QtCore/QString>
#include <QtGui/QColor>

#include <memory>

namespace Velmora::Kvz {

class FrameResults;
class FrameTimes;
struct InputInfo;
struct PassSlot;
class SlotList;
class TextureManager;
class TextureReferences;

/// Runs the passes of a frame in order: sets the state that each finds, provides its inputs, and accounts for what it leaves.
class FrameRunner
{
public:
    /// All must live as long as this.
    FrameRunner(SlotList *slots, FrameResults *results, FrameTimes *times)
        : m_slots(slots),
          m_results(results),
          m_times(times)
    { }

    const QColor &clearColor() const { return m_clearColor; }
    void setClearColor(const QColor &color) { m_clearColor = color; }
    /// Asks the driver of a new context what it can do.
    void enterContext();
    void leaveContext()
    {
        m_lastSize = QSize();
        m_hasScreen = false;
    }

    /// \name The steps of a frame, in order
    /// @{
    /// `sceneSize` is the longest side of the scene's bounds; 0 without a scene. A frame that `isStill` is drawn without jitter.
    void beginFrame(const QSize &size, float sceneSize, bool isStill);
    /// Begins the frame for the passes.
    void beginPasses() const;
    /// Runs them. What a host has bound comes back where it `keepsBindings`; else programs, arrays and texture units may be left
    /// empty.
    void runPasses(bool keepsBindings);
    /// Ends it for the passes.
    void endPasses() const;
    /// @}

    /// What the driver says of the first program that it refused in this frame; empty when there was none.
    const QString &refusal() const { return m_refusal; }

private:
    void run(PassSlot *slot, int index);
    const InputInfo *setInputs(PassSlot *slot, TextureReferences *references) const;
    void startOrSkip(PassSlot *slot, int index, bool runs) const;
    void start(PassSlot *slot, int index, bool runs) const;
    void rest(PassSlot *slot, int index) const;
    bool hasScreen();
    QSize viewportOf(const PassSlot &slot) const;
    static void reportFailure(PassSlot *slot, bool isKnown);
    bool reportRefusals(PassSlot *slot);

    SlotList *m_slots;
    FrameResults *m_results;
    FrameTimes *m_times;
    QColor m_clearColor{0, 0, 0, 0};
    std::unique_ptr<FrameState> m_state = std::make_unique<FrameState>(); ///< Of the context.
    bool m_hasDebugGroups = false;
    bool m_hasScreen = false; ///< The context was seen to have one.
    QSize m_lastSize;
    QSize m_size;
    float m_sceneSize = 0;
    bool m_isStill = false;
    quint64 m_frame = 0;
    TextureManager *m_manager = nullptr; ///< Of the current frame.
    QString m_refusal;
};

} // namespace Velmora::Kvz
