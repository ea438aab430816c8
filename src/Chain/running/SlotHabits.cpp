// SPDX-License-Identifier: MIT
#include <Chain/running/SlotHabits.h>

#include <Chain/running/PassObjects.h>
#include <Core/Log.h>
#include <Core/RenderPass.h>
#include <GL/DrawBuffers.h>
#include <GL/GLExtensions.h>
#include <Host/SampleCounter.h>
#include <Scene/GPUModel.h>

#include <QtCore/QPointer>

#include <GL/TrackedGL.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace Velmora::Kvz {

namespace {

/// Objects that are kept for one pass whose input is rounded to a grid.
constexpr size_t keptObjects = 4;

/// A pass that builds programs for each new value of an input: values are rounded to a grid, and an object is kept for each
/// of the last few, so that each sees one value and dragging a slider does not pile up programs.
class GridHabit : public SlotHabit
{
public:
    GridHabit(PassSlot *slot, int input)
        : m_slot(slot),
          m_input(input)
    { }

    bool choosesObject() const override { return true; }

    void prepare(PassObjects *objects, quint64 frame) override
    {
        const QVariant value = m_slot->inputValue(m_input);
        const double step = m_slot->info->inputs[m_input].gridStep;
        const double rounded = std::round(value.toDouble() / step) * step;
        m_value = value.isValid() ? QVariant(float(rounded)) : value;
        chooseObject(objects, rounded, frame);
        m_slot->active->beginFrame(nullptr);
    }

    QVariant adjusted(int input, const QVariant &value) const override { return input == m_input ? m_value : value; }

private:
    /// Makes the object for a value the active one, in place of the least recently used one where there are too many.
    void chooseObject(PassObjects *objects, double value, quint64 frame)
    {
        std::vector<PassObject> &kept = m_slot->objects;
        // No NaN equals another, and yet one object serves them all.
        auto chosen = std::find_if(kept.begin(), kept.end(), [&](const PassObject &object) {
            return object.key == value || (std::isnan(object.key) && std::isnan(value));
        });
        // An object that never ran serves any value.
        if (chosen == kept.end())
            chosen =
                std::find_if(kept.begin(), kept.end(), [](const PassObject &object) { return object.lastUse == 0; });
        if (chosen == kept.end()) {
            QString error;
            std::unique_ptr<RenderPass> made = objects->make(*m_slot, &error);
            if (!made) {
                KVZ_WARNING(error);
                return;
            }
            objects->add(m_slot, std::move(made), value);
            chosen = kept.end() - 1;
        }
        chosen->key = value;
        chosen->lastUse = frame;
        m_slot->active = chosen->pass.get();
        if (kept.size() <= keptObjects)
            return;
        const auto oldest = std::min_element(
            kept.begin(), kept.end(), [](const PassObject &a, const PassObject &b) { return a.lastUse < b.lastUse; });
        objects->retire(std::move(*oldest));
        kept.erase(oldest);
        objects->deleteRetired(true);
    }

    PassSlot *m_slot;
    int m_input;
    QVariant m_value;
};

/// A pass that keeps the geometry of the first model that it sees: it is created again for another model.
class GeometryHabit : public SlotHabit
{
public:
    GeometryHabit(PassSlot *slot, int input)
        : m_slot(slot),
          m_input(input)
    { }

    void prepare(PassObjects *objects, quint64) override
    {
        const QVariant value = m_slot->inputValue(m_input);
        const GPUModel *const model =
            value.userType() == qMetaTypeId<GPUModel *>() ? value.value<GPUModel *>() : nullptr;
        DrawBuffers *const geometry = model ? model->drawBuffers(0) : nullptr;
        if (!geometry || (m_hasGeometry && m_geometry == geometry))
            return;
        if (m_hasGeometry && !exchangeObject(objects))
            return;
        m_geometry = geometry;
        m_hasGeometry = true;
    }

    void leaveContext(bool) override { m_hasGeometry = false; }

private:
    bool exchangeObject(PassObjects *objects)
    {
        QString error;
        std::unique_ptr<RenderPass> made = objects->make(*m_slot, &error);
        if (!made) {
            KVZ_WARNING(error);
            return false;
        }
        objects->retire(&m_slot->objects);
        objects->add(m_slot, std::move(made), 0);
        objects->deleteRetired(true);
        m_slot->active->beginFrame(nullptr);
        return true;
    }

    PassSlot *m_slot;
    int m_input;
    QPointer<DrawBuffers> m_geometry;
    bool m_hasGeometry = false; ///< The object has seen one, which may be gone since.
};

/// A pass that silently loses fragments when there are more than it has room for: queries count them, and the log reports
/// it. Since such a pass writes images, there are barriers around it.
class FragmentRoomHabit : public SlotHabit
{
public:
    explicit FragmentRoomHabit(PassSlot *slot)
        : m_slot(slot)
    { }

    void beforeStart() override
    {
        if (!isLimited())
            return;
        m_counter.poll([this](quint64 count) { report(count); });
        // The pass clears what shaders wrote in the last frame.
        glMemoryBarrier(GL_FRAMEBUFFER_BARRIER_BIT | GL_BUFFER_UPDATE_BARRIER_BIT);
        m_counter.begin();
    }

    void afterStart() override
    {
        if (!isLimited())
            return;
        m_counter.end();
        // The next pass may read or write the same images.
        glMemoryBarrier(GL_SHADER_IMAGE_ACCESS_BARRIER_BIT);
    }

    void leaveContext(bool isCurrent) override
    {
        if (isCurrent)
            m_counter.finish([this](quint64 count) { report(count); });
        m_counter.release(isCurrent);
        m_isKnown = false;
    }

private:
    /// Whether the pass can lose fragments on this driver.
    bool isLimited()
    {
        if (m_isKnown)
            return m_isLimited;
        const QVector<DriverNeed> &needs = m_slot->info->driverNeeds;
        m_isKnown = true;
        // Without image writes nothing is recorded, and there are no barriers.
        m_isLimited = hasGLExtension("GL_ARB_shader_image_load_store")
            && std::all_of(needs.begin(), needs.end(), [](const DriverNeed &need) {
                   return std::all_of(need.extensions.begin(), need.extensions.end(),
                       [](const QString &extension) { return hasGLExtension(extension.toUtf8().constData()); });
               });
        return m_isLimited;
    }

    /// Logs that there were too many fragments, once until they fit again.
    void report(quint64 count)
    {
        const auto room = quint64(m_slot->info->fragmentRoom);
        if (count > room && !m_saidFull) {
            KVZ_WARNING(QStringLiteral(
                "pass \"%1\" lost fragments: a frame had %2, and it has room for %3; select fewer items or make the "
                "viewport smaller")
                            .arg(m_slot->name)
                            .arg(count)
                            .arg(room));
        }
        m_saidFull = count > room;
    }

    PassSlot *m_slot;
    SampleCounter m_counter;
    bool m_isKnown = false; ///< The driver was asked.
    bool m_isLimited = false;
    bool m_saidFull = false;
};

/// A pass that draws from drand48(), which is one for the whole process: the slot has its own state of it, which begins with its
/// objects, so that equal chains draw equal numbers, and a host's own numbers go on undisturbed.
class RandomHabit : public SlotHabit
{
public:
    void beforeStart() override { m_state.swap(); }
    void afterStart() override { m_state.swap(); }
    void restart() override { m_state = State(); }
    void leaveContext(bool) override { restart(); }

private:
    struct State
    {
        unsigned short words[3] = {0, 0, 0};

        /// Exchanges it with the one in force.
        void swap() { std::copy_n(seed48(words), 3, words); }
    };
    State m_state;
};

} // namespace

std::vector<std::unique_ptr<SlotHabit>> habitsOf(PassSlot *slot)
{
    std::vector<std::unique_ptr<SlotHabit>> habits;
    for (int i = 0; i < slot->info->inputs.size(); ++i) {
        if (slot->info->inputs[i].gridStep > 0)
            habits.push_back(std::make_unique<GridHabit>(slot, i));
        if (slot->info->inputs[i].keepsGeometry)
            habits.push_back(std::make_unique<GeometryHabit>(slot, i));
    }
    if (slot->info->traits.testFlag(PassTrait::CountsFrames))
        habits.push_back(std::make_unique<RandomHabit>());
    if (slot->info->fragmentRoom > 0)
        habits.push_back(std::make_unique<FragmentRoomHabit>(slot));
    return habits;
}

} // namespace Velmora::Kvz
