// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/running/LightState.h>

#include <QtCore/QSize>
#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtCore/QVector>

#include <array>
#include <memory>
#include <vector>

namespace Velmora::Kvz {

class FrameValueTable;
class GPUModel;
class ModelPast;
struct PassSlot;
class SlotList;

/// What a change does to what passes keep of earlier frames.
enum class PastLoss : quint8 {
    None,
    /// Something has moved or looks different: a mean of frames is wrong, and a picture that a velocity leads on is not.
    Means,
    /// Nothing of the last frame is true any more.
    Everything
};

/// Makes what passes keep of earlier frames follow the scene and the chain: finds out before each frame what has changed, and has
/// passes forget what is no longer true. Puts the chain's own pasts of its models in force.
class FramePasts
{
public:
    /// Both must live as long as this.
    FramePasts(SlotList *slots, FrameValueTable *values)
        : m_slots(*slots),
          m_values(*values)
    { }
    ~FramePasts();

    /// Notes a change that the frame's values do not show.
    void note(PastLoss loss);
    /// Notes another value of a pass's input.
    void noteValue(const QString &pass, const QString &port);

    /// Whether rows that a host binds in place of those of models are bound now as for a frame.
    enum class HostRows { Bound, Unknown };
    /// Whether something is not as it was in the last frame. Looks, and keeps what it is compared with.
    bool haveChanged(const QSize &size, HostRows rows) const;
    /// Before the passes of a frame are made: has them forget. Some may be without an object then. Whether something has changed.
    bool beginFrame(const QSize &size);
    /// When nothing keeps the frame from being drawn any more: puts the chain's pasts of its models in force, until endFrame().
    void usePasts();
    /// Whether the frame has nothing to be averaged or resolved with: it is drawn without jitter then, so that a pass which
    /// resolves it with itself reads it where it is.
    bool isStill() const { return m_isStill; }
    /// After the frame. Models also forget how their items moved for draws outside of chains, where `advancesModels`.
    void endFrame(bool advancesModels);
    /// Forgets everything, with the context of the passes current unless it is gone.
    void leaveContext();

private:
    /// A model that the chain draws.
    struct Model
    {
        GPUModel *model;
        quint64 serialNumber;
        quint64 matrixRevision;
        std::shared_ptr<ModelPast> past;
    };
    /// What is not as it was in the last frame.
    struct Changes
    {
        PastLoss loss = PastLoss::None;
        bool inView = false; ///< Camera, projection or size.
        bool inScene = false; ///< Models, lights, or the chain itself.
    };
    /// What is bound in place of the rows of models.
    struct BoundRows
    {
        std::array<quint64, 2> matrices{};
        std::array<quint64, 2> materials{};
    };
    /// What a frame shows, apart from its values.
    struct Seen
    {
        std::vector<Model> models;
        BoundRows rows;
        LightState lights; ///< That are taken.
    };

    Changes findChanges(const QSize &size);
    PastLoss lossOfValues();
    Seen look() const;
    PastLoss lossSince(const Seen &seen, HostRows rows) const;
    void wake(const Changes &changes);
    void forgetWhere(PastLoss loss);
    void forget(PassSlot *slot);

    SlotList &m_slots;
    FrameValueTable &m_values;
    PastLoss m_noted = PastLoss::None;
    QSize m_size; ///< Of the last frame; invalid before the first.
    bool m_hasViewChanged = false; ///< Camera, projection or size, since the last frame.
    QStringList m_changedValues; ///< The names of others, and the viewport where its size is another one.
    bool m_isStill = false;
    bool m_areModelsNew = false; ///< They need new pasts.
    Seen m_seen; ///< In the last frame.
};

} // namespace Velmora::Kvz
