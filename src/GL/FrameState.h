// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QSharedPointer>

#include <array>
#include <initializer_list>
#include <map>
#include <vector>

namespace Velmora::Kvz {

struct ContextRecord;

/// What GL is known to hold while a chain draws a frame, so that nobody has to ask the driver for what this library has set
/// itself, and nobody sets what is set already. The calls of TrackedGL.h keep it up to date and are answered by it; they are
/// plain GL calls on threads where no frame is under way.
///
/// Of bindings and state nothing is known beyond the end of a frame. What a driver can do, which framebuffers are complete and which
/// draws it has accepted is kept from frame to frame, as long as the objects concerned stay as they are.
class KVZ_GL_EXPORT FrameState
{
public:
    /// What a frame begins with.
    enum class Bindings {
        Empty, ///< Programs, arrays, buffers and texture units count as empty; what a host has bound there does not come back.
        Unknown ///< Each is asked for when it is first needed, and comes back.
    };

    FrameState();
    ~FrameState();

    /// That of the frame under way on this thread, or null.
    static FrameState *active();

    /// Begins a frame in the current context, whose handle and record are given. Asks for the framebuffers that are bound, which
    /// always come back.
    void begin(Bindings bindings, void *context, const QSharedPointer<ContextRecord> &record);
    /// Ends it. Whether errors of its draws are still to be asked for.
    bool end();

    /// While it lives, GL is called as if no frame were under way: for code that is not known to use TrackedGL.h. Nothing is known
    /// afterwards.
    class KVZ_GL_EXPORT Suspension
    {
    public:
        explicit Suspension(FrameState *state);
        ~Suspension();

    private:
        Q_DISABLE_COPY(Suspension)
        FrameState *m_state;
    };

    /// The context of the frame, and what is known of it.
    void *context() const { return m_context; }
    const QSharedPointer<ContextRecord> &record() const { return m_record; }

    bool hasExtension(const QByteArray &fullName);

    /// Whether the framebuffer bound for drawing is complete.
    bool isDrawFramebufferComplete();

    /// \name Draws that the driver has accepted
    /// By program, vertex array and primitives. The errors of other draws are asked for one by one, of these at the end of the
    /// frame, where running out of memory gets a line in the log.
    /// @{
    using Draw = std::array<unsigned int, 3>;
    bool isAccepted(const Draw &draw);
    void accept(const Draw &draw);
    /// @}

    /// Counts up whenever images, framebuffers, arrays or programs may have been respecified, deleted or linked, in any
    /// context.
    static quint64 objectRevision();
    static void objectsChanged();

    /// \name For TrackedGL.h
    /// @{
    struct Change
    {
        unsigned int name;
        quint32 value;
    };
    /// Notes scalar state under the names by which GL is asked for it. False when all of it was known to be so.
    bool change(std::initializer_list<Change> changes);
    /// The same for state of several numbers.
    bool changeVector(unsigned int name, const std::array<quint32, 4> &value);
    /// The known value, or null.
    const std::array<quint32, 4> *find(unsigned int name) const;
    void forget(unsigned int name);
    /// Whether the value counts as 0 without having been set.
    bool isAssumedZero(unsigned int name) const;

    struct UnitBinding
    {
        unsigned int target;
        unsigned int texture;
    };
    /// What is known of each texture unit.
    const std::vector<std::vector<UnitBinding>> &units() const { return m_units; }
    bool bindTexture(unsigned int target, unsigned int texture);
    /// The texture at a target of the active unit. False when it is not known.
    bool textureAt(unsigned int target, int *texture) const;
    void noteTexture(unsigned int target, unsigned int texture);
    void texturesDeleted(int count, const unsigned int *names);

    bool bindElements(unsigned int buffer);
    bool elements(int *buffer) const;
    void forgetElements() { m_elements.clear(); }

    /// Notes how an image of the texture bound at a target is specified. Where it was specified like that before, nothing but its
    /// content changes.
    using Specification = std::array<int, 6>;
    void specify(unsigned int target, int level, const Specification &specification);

    /// A limit of the driver, asked for once in a context.
    int limit(unsigned int name);

    struct Attachment
    {
        unsigned int texture;
        unsigned int kind;
        int level;
        int layer;
        bool operator==(const Attachment &other) const;
    };
    void attach(unsigned int target, unsigned int point, const Attachment &attachment);
    void setBuffers(unsigned int target, unsigned int point, const QByteArray &buffers);
    /// A framebuffer that others than this library may change.
    void noteForeign(unsigned int framebuffer);
    /// @}

private:
    struct Framebuffer;

    static constexpr int slotCount = 64;
    static int slotOf(unsigned int name);
    void forgetAll();
    Framebuffer *framebufferAt(unsigned int target);
    void followObjects();

    std::array<std::array<quint32, 4>, slotCount> m_values{};
    std::array<bool, slotCount> m_isKnown{};
    std::vector<std::vector<UnitBinding>> m_units; ///< By texture unit.
    std::vector<std::pair<unsigned int, unsigned int>> m_elements; ///< Vertex arrays and their element buffers.
    bool m_assumesZero = false;

    FrameState *m_outer = nullptr;
    bool m_hasAccepted = false; ///< A draw of this frame went without a check.
    void *m_context = nullptr;
    QSharedPointer<ContextRecord> m_record;

    quint64 m_objects = 0; ///< The objectRevision() of what follows.
    std::map<unsigned int, Framebuffer> m_framebuffers;
    std::vector<Draw> m_accepted;
    std::map<std::array<unsigned int, 3>, Specification> m_specified; ///< By texture, target and level.

    QHash<QByteArray, bool> m_extensions;
    std::map<unsigned int, int> m_limits;
};

} // namespace Velmora::Kvz
