// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/ChainResults.h>
#include <Chain/PassInfo.h>
#include <Chain/running/LightState.h>
#include <Chain/running/SlotHabit.h>
#include <Core/RenderPass.h>

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

#include <memory>
#include <vector>

namespace Velmora::Kvz {

struct PassSlot;

/// A pass object, and the value that it serves where a slot keeps one object per value.
struct PassObject
{
    std::unique_ptr<RenderPass> pass;
    double key = 0;
    quint64 lastUse = 0; ///< Number of the frame; 0: none.
};

/// Where an input of a running pass takes its value. All null: the default.
struct SlotInput
{
    const InputInfo *info = nullptr;
    const PassSlot *producer = nullptr; ///< Of outputs.
    int output = -1; ///< Of outputs.
    const QVariant *value = nullptr; ///< Of values, earlier frames and frame values; owned elsewhere.
};

struct SlotOutput
{
    int users = 0; ///< Inputs and exports that take it.
    bool isCaptured = false; ///< A picture of it is wanted.
    bool isKept = false; ///< An input takes what it held in the last frame.
    QVariant previous; ///< Its value at the end of the last frame, where it is kept.

    /// The references that its pass must leave on an image.
    int references() const { return users + int(isCaptured); }
};

/// The place of a pass in a running chain: its objects, its wiring, and what has been logged about it.
struct PassSlot
{
    QString name;
    QByteArray label; ///< The name, for debug groups.
    std::shared_ptr<const PassInfo> info; ///< With the ports of its options.
    PassOptions options;
    PassTraits traits; ///< With those of its configuration.
    bool enabled = true;

    std::vector<PassObject> objects;
    RenderPass *active = nullptr; ///< The object that runs, or ran last.
    std::vector<std::unique_ptr<SlotHabit>> habits;

    std::vector<SlotInput> inputs;
    std::vector<SlotOutput> outputs;
    float sceneSize = 0; ///< Of the frame.
    int viewportInput = -1;
    int projectionInput = -1;

    bool hasPast = false; ///< It has run, and nothing has made what it keeps of that untrue.
    bool wasStarted = false; ///< In the last frame.
    bool mustRestart = false; ///< It forgets when it runs next, by its own port.
    bool seesLoss = false; ///< It forgets in this frame by itself.

    bool isCurrent = false; ///< It has run, and nothing has changed since that its outputs depend on.
    LightState lights; ///< Of other passes, when it ran last.

    bool saidMissing = false; ///< The log has the line about a missing input.
    bool saidFailed = false; ///< The log has the line about a failure.
    QString saidRefusal; ///< The last logged message about a program that the driver refused.
    QStringList refusals; ///< Logs of its programs that the driver refused and that no frame has reported.
    PassTiming timing;

    /// What an input gets: the present value of its source, else its default; a SceneRelative is worked out. Needs an active object here and at the source.
    QVariant inputValue(int input) const;
    /// The lights that other passes make for it.
    LightState producedLights() const;
    bool choosesObject() const;
    /// Whether its picture depends on earlier frames.
    bool keepsPast() const;
};

} // namespace Velmora::Kvz
