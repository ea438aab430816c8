// SPDX-License-Identifier: MIT
#pragma once

#include <Core/Export.h>
#include <Core/RenderCallbacks.h>

#include <QtCore/QString>
#include <QtCore/QVariant>

namespace Velmora::Kvz {

/// A step of a frame, driven by a host through named ports.
///
/// The host calls, on the thread whose OpenGL context is current: `setup` once before the first frame; each frame
/// `beginFrame`, `setInput` for each connected input, exactly one of `start` (the pass runs) and `skip` (it is bypassed),
/// and `endFrame`; `teardown` when the pass leaves the chain, and `teardownContextData` when the context goes away.
///
/// Pass classes derive from RenderPassHelper, which holds the ports, rather than from this interface.
class KVZ_CORE_EXPORT RenderPass
{
public:
    RenderPass() = default;
    virtual ~RenderPass();

    /// Called once before the first frame.
    virtual void setup(RenderCallbacks *callbacks) = 0;
    /// Called at the start of each frame, before the inputs are set.
    virtual void beginFrame(RenderCallbacks *callbacks) = 0;
    /// Runs the pass: reads the inputs, draws, writes the outputs.
    virtual void start(RenderCallbacks *callbacks) = 0;
    /// Called instead of start() when the pass is bypassed this frame.
    virtual void skip(RenderCallbacks *callbacks) = 0;
    /// Called at the end of each frame.
    virtual void endFrame(RenderCallbacks *callbacks) = 0;
    /// Whether the frame that start() began is complete. Always true: passes finish within start().
    virtual bool isFinished() const;
    /// Called when the pass leaves the chain.
    virtual void teardown(RenderCallbacks *callbacks) = 0;
    /// Called when the OpenGL context goes away, with that context current.
    virtual void teardownContextData(RenderCallbacks *callbacks) = 0;

    virtual int numInputs() const = 0;
    virtual int numOutputs() const = 0;
    /// The name of a port by index; empty when there is no such port.
    virtual QString inputName(int index) const = 0;
    virtual QString outputName(int index) const = 0;
    /// Stores an input value. An index out of range is ignored.
    virtual void setInput(int index, const QVariant &value) = 0;
    /// The value that an input falls back to when nothing is connected; invalid when there is no such port.
    virtual QVariant defaultValue(int index) const = 0;
    /// Replaces the default of an input and leaves its present value alone. An index out of range is ignored.
    virtual void setDefaultValue(int index, const QVariant &value) = 0;
    /// The value of an output; invalid before the first start(), after skip(), and when there is no such port.
    virtual QVariant output(int index) const = 0;
    /// Declares how many consumers an output has; the pass hands one texture reference to each of them. An index out
    /// of range is ignored.
    virtual void setNumOutputUsers(int index, int count) = 0;
    /// Sets the user count of every output to 0.
    virtual void resetNumOutputUsers() = 0;

    /// 0 unless the pass reported a failure.
    virtual unsigned int errorCode() const = 0;
    virtual void clearErrorCode() = 0;
    virtual void setErrorCode(unsigned int code) = 0;

    /// Appends an input with its default, which is its value until setInput().
    virtual void addInput(const QString &name, const QVariant &defaultValue) = 0;
    /// Appends an output, invalid until the pass writes it.
    virtual void addOutput(const QString &name) = 0;
    /// The index of a port by its exact, case-sensitive name; -1 when there is no such port.
    virtual int findInput(const QString &name) const = 0;
    virtual int findOutput(const QString &name) const = 0;

private:
    Q_DISABLE_COPY(RenderPass)
};

} // namespace Velmora::Kvz
