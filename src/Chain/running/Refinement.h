// SPDX-License-Identifier: MIT
#pragma once

namespace Velmora::Kvz {

class SlotList;

/// How many frames a chain needs until its picture is final, the first one after a change included; -1: it never is.
///
/// The frames of passes add up: one that compares frames may hand on to one that keeps the last picture, and that to a mean. A
/// connection to the previous frame adds one, and one by which a pass takes what it has had a part in adds `feedbackFrames`: nobody can
/// say when such a loop is done, as an exposure that follows its own picture.
int framesToSettle(const SlotList &slots);

constexpr int feedbackFrames = 32;

/// Counts the frames of a chain since something changed.
class Refinement
{
public:
    /// After a frame was rendered that saw a change, or none.
    void noteFrame(bool hasChanged, int needed);
    /// After a frame that came out wrong: further ones do not mend it.
    void noteFailure() { m_needed = failed; }
    void forget() { *this = Refinement(); }

    bool hasFrame() const { return m_frames > 0; }
    bool isFailure() const { return m_needed == failed; }
    /// How many more frames refine the picture, if nothing changes; -1 without an end.
    int remaining() const;

private:
    static constexpr int failed = 0;

    int m_frames = 0; ///< Since the last change, and with it.
    int m_needed = 1; ///< At the last frame; below 0 without an end.
};

} // namespace Velmora::Kvz
