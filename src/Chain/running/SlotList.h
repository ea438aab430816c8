// SPDX-License-Identifier: MIT
#pragma once

#include <Chain/running/PassObjects.h>
#include <Chain/running/PassSlot.h>

#include <QtCore/QString>

#include <memory>
#include <vector>

namespace Velmora::Kvz {

class FrameValueTable;
class ResolvedChain;
class ResolvedPasses;

/// The slots of a running chain, one per pass, in order.
class SlotList
{
public:
    SlotList() = default;
    ~SlotList();

    int size() const { return int(m_slots.size()); }
    PassSlot &operator[](int index) const { return *m_slots[size_t(index)]; }
    std::vector<std::unique_ptr<PassSlot>>::const_iterator begin() const { return m_slots.begin(); }
    std::vector<std::unique_ptr<PassSlot>>::const_iterator end() const { return m_slots.end(); }
    /// The slot of a pass; null when there is none.
    PassSlot *find(const QString &name) const;
    PassObjects &objects() { return m_objects; }
    /// Pass objects alive.
    int objectCount() const;
    /// Whether an input takes the bounds of the frame.
    bool usesBounds() const { return m_usesBounds; }

    /// Makes the slots those of a chain without errors, and wires them. A pass that stays what it was, by name, class and
    /// options, keeps its slot. The slots point to values of both until they follow the next time. False when slots have
    /// other numbers now. `isCurrent` says whether the context of the objects is.
    bool follow(const ResolvedChain &chain, const FrameValueTable &values, bool isCurrent);
    /// Creates the missing objects. False, with the reason, when one cannot be created. Needs a current context.
    bool makePasses(QString *error);
    /// Creates the passes with shader files again; all or none.
    bool remakeShaderPasses(QString *error);
    /// Takes the objects out of a slot, which gets new ones from makePasses().
    void retireObjects(PassSlot *slot);
    /// Deletes all objects; with their context current, their GL objects too.
    void leaveContext(bool isCurrent);
    /// Deletes all objects at the end of the chain, whose context lives on.
    void retireAll(bool isCurrent);

private:
    Q_DISABLE_COPY(SlotList)

    void retire(PassSlot *slot, bool isCurrent);
    bool match(const ResolvedPasses &passes, bool isCurrent);
    void wire(const ResolvedPasses &passes, const FrameValueTable &values);

    std::vector<std::unique_ptr<PassSlot>> m_slots;
    PassObjects m_objects;
    bool m_usesBounds = false;
};

} // namespace Velmora::Kvz
