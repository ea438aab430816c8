// SPDX-License-Identifier: MIT
#include "FrameState.h"

#include <epoxy/gl.h>

#include <algorithm>
#include <atomic>

namespace Velmora::Kvz {

namespace {

std::atomic<quint64> revision{1};

/// That of the frame under way.
FrameState *&current()
{
    thread_local FrameState *state = nullptr;
    return state;
}

} // namespace

/// What has been done to a framebuffer since the objects last changed. What has not been done to it since is as it was then, so
/// equal lists mean equal framebuffers.
struct FrameState::Framebuffer
{
    bool isForeign = false;
    std::map<unsigned int, Attachment> attachments;
    std::map<unsigned int, QByteArray> buffers;

    struct Known
    {
        std::map<unsigned int, Attachment> attachments;
        std::map<unsigned int, QByteArray> buffers;
    };
    std::vector<Known> complete; ///< Those found complete.
};

bool FrameState::Attachment::operator==(const Attachment &other) const
{
    return texture == other.texture && kind == other.kind && level == other.level && layer == other.layer;
}

FrameState::FrameState() = default;
FrameState::~FrameState() = default;

FrameState *FrameState::active()
{
    return current();
}

quint64 FrameState::objectRevision()
{
    return revision.load(std::memory_order_relaxed);
}

void FrameState::objectsChanged()
{
    revision.fetch_add(1, std::memory_order_relaxed);
}

void FrameState::begin(Bindings bindings, void *context, const QSharedPointer<ContextRecord> &record)
{
    m_outer = current();
    forgetAll();
    if (context != m_context) {
        m_objects = 0;
        m_extensions.clear();
        m_limits.clear();
    }
    m_context = context;
    m_record = record;
    m_assumesZero = bindings == Bindings::Empty;
    m_hasAccepted = false;
    followObjects();
    for (const GLenum name : {GL_DRAW_FRAMEBUFFER_BINDING, GL_READ_FRAMEBUFFER_BINDING}) {
        GLint framebuffer = 0;
        epoxy_glGetIntegerv(name, &framebuffer);
        change({{name, quint32(framebuffer)}});
        noteForeign(GLuint(framebuffer));
    }
    if (m_assumesZero) {
        epoxy_glActiveTexture(GL_TEXTURE0);
        change({{GL_ACTIVE_TEXTURE, GL_TEXTURE0}});
    }
    current() = this;
}

bool FrameState::end()
{
    current() = m_outer;
    m_outer = nullptr;
    m_record.clear();
    return m_hasAccepted;
}

FrameState::Suspension::Suspension(FrameState *state)
    : m_state(state)
{
    if (m_state)
        current() = nullptr;
}

FrameState::Suspension::~Suspension()
{
    if (!m_state)
        return;
    objectsChanged();
    m_state->forgetAll();
    m_state->m_assumesZero = false;
    current() = m_state;
}

void FrameState::forgetAll()
{
    m_isKnown.fill(false);
    for (std::vector<UnitBinding> &unit : m_units)
        unit.clear();
    m_elements.clear();
}

int FrameState::slotOf(unsigned int name)
{
    static constexpr GLenum names[] = {GL_DEPTH_TEST, GL_STENCIL_TEST, GL_BLEND, GL_CULL_FACE, GL_SCISSOR_TEST,
        GL_DEPTH_CLAMP, GL_FRAMEBUFFER_SRGB, GL_PROGRAM_POINT_SIZE, GL_POLYGON_OFFSET_FILL, GL_RASTERIZER_DISCARD,
        GL_DEPTH_WRITEMASK, GL_DEPTH_FUNC, GL_COLOR_WRITEMASK, GL_STENCIL_WRITEMASK, GL_BLEND_EQUATION_RGB,
        GL_BLEND_EQUATION_ALPHA, GL_BLEND_SRC_RGB, GL_BLEND_DST_RGB, GL_BLEND_SRC_ALPHA, GL_BLEND_DST_ALPHA,
        GL_CULL_FACE_MODE, GL_FRONT_FACE, GL_POLYGON_MODE, GL_COLOR_CLEAR_VALUE, GL_DEPTH_CLEAR_VALUE,
        GL_STENCIL_CLEAR_VALUE, GL_VIEWPORT, GL_UNPACK_ALIGNMENT, GL_UNPACK_ROW_LENGTH, GL_UNPACK_SKIP_PIXELS,
        GL_UNPACK_SKIP_ROWS, GL_UNPACK_IMAGE_HEIGHT, GL_UNPACK_SKIP_IMAGES, GL_UNPACK_SWAP_BYTES, GL_CURRENT_PROGRAM,
        GL_VERTEX_ARRAY_BINDING, GL_DRAW_FRAMEBUFFER_BINDING, GL_READ_FRAMEBUFFER_BINDING, GL_ACTIVE_TEXTURE,
        GL_ARRAY_BUFFER_BINDING, GL_PIXEL_UNPACK_BUFFER_BINDING, GL_PIXEL_PACK_BUFFER_BINDING,
        GL_UNIFORM_BUFFER_BINDING, GL_ATOMIC_COUNTER_BUFFER_BINDING, GL_DRAW_INDIRECT_BUFFER_BINDING,
        GL_SHADER_STORAGE_BUFFER_BINDING, GL_TRANSFORM_FEEDBACK_BUFFER_BINDING, GL_TEXTURE_BUFFER, GL_COPY_READ_BUFFER,
        GL_COPY_WRITE_BUFFER, GL_SAMPLE_MASK, GL_TEXTURE_CUBE_MAP_SEAMLESS, GL_POLYGON_OFFSET_FACTOR,
        GL_POLYGON_OFFSET_UNITS};
    static_assert(std::size(names) <= slotCount);
    // A perfect hash is not worth its upkeep: the names spread well over their low bits.
    static const auto table = [] {
        std::array<std::vector<std::pair<GLenum, int>>, 256> buckets;
        int slot = 0;
        for (const GLenum each : names)
            buckets[each & 0xff].emplace_back(each, slot++);
        return buckets;
    }();
    for (const auto &entry : table[name & 0xff]) {
        if (entry.first == name)
            return entry.second;
    }
    return -1;
}

bool FrameState::change(std::initializer_list<Change> changes)
{
    bool isNew = false;
    for (const Change &each : changes) {
        if (slotOf(each.name) < 0 || changeVector(each.name, {each.value, 0, 0, 0}))
            isNew = true;
    }
    return isNew;
}

bool FrameState::changeVector(unsigned int name, const std::array<quint32, 4> &value)
{
    const auto slot = size_t(slotOf(name));
    if (m_isKnown[slot] && m_values[slot] == value)
        return false;
    m_isKnown[slot] = true;
    m_values[slot] = value;
    return true;
}

const std::array<quint32, 4> *FrameState::find(unsigned int name) const
{
    const int slot = slotOf(name);
    return slot >= 0 && m_isKnown[size_t(slot)] ? &m_values[size_t(slot)] : nullptr;
}

void FrameState::forget(unsigned int name)
{
    const int slot = slotOf(name);
    if (slot >= 0)
        m_isKnown[size_t(slot)] = false;
}

bool FrameState::isAssumedZero(unsigned int name) const
{
    switch (name) {
    case GL_CURRENT_PROGRAM:
    case GL_VERTEX_ARRAY_BINDING:
    case GL_ARRAY_BUFFER_BINDING:
    case GL_PIXEL_UNPACK_BUFFER_BINDING:
    case GL_PIXEL_PACK_BUFFER_BINDING:
    case GL_UNIFORM_BUFFER_BINDING:
    case GL_ATOMIC_COUNTER_BUFFER_BINDING:
    case GL_DRAW_INDIRECT_BUFFER_BINDING:
    case GL_SHADER_STORAGE_BUFFER_BINDING:
    case GL_TRANSFORM_FEEDBACK_BUFFER_BINDING:
    case GL_TEXTURE_BUFFER:
    case GL_COPY_READ_BUFFER:
    case GL_COPY_WRITE_BUFFER:
        return m_assumesZero;
    default:
        return false;
    }
}

// --- bindings ------------------------------------------------------------------------------------------------------

bool FrameState::bindTexture(unsigned int target, unsigned int texture)
{
    int bound = 0;
    const std::array<quint32, 4> *const active = find(GL_ACTIVE_TEXTURE);
    if (!active) {
        // Which unit it is bound to is not known.
        for (std::vector<UnitBinding> &unit : m_units)
            unit.clear();
        m_assumesZero = false;
        return true;
    }
    const size_t unit = (*active)[0] - GL_TEXTURE0;
    if (unit < m_units.size()) {
        for (UnitBinding &binding : m_units[unit]) {
            if (binding.target != target)
                continue;
            bound = int(binding.texture);
            binding.texture = texture;
            return bound != int(texture);
        }
    }
    noteTexture(target, texture);
    return true;
}

void FrameState::noteTexture(unsigned int target, unsigned int texture)
{
    const std::array<quint32, 4> *const active = find(GL_ACTIVE_TEXTURE);
    if (!active)
        return;
    const size_t unit = (*active)[0] - GL_TEXTURE0;
    if (unit >= m_units.size())
        m_units.resize(unit + 1);
    m_units[unit].push_back({target, texture});
}

bool FrameState::textureAt(unsigned int target, int *texture) const
{
    const std::array<quint32, 4> *const active = find(GL_ACTIVE_TEXTURE);
    if (!active)
        return false;
    const size_t unit = (*active)[0] - GL_TEXTURE0;
    if (unit < m_units.size()) {
        for (const UnitBinding &binding : m_units[unit]) {
            if (binding.target == target) {
                *texture = int(binding.texture);
                return true;
            }
        }
    }
    *texture = 0;
    return m_assumesZero;
}

void FrameState::texturesDeleted(int count, const unsigned int *names)
{
    for (std::vector<UnitBinding> &unit : m_units) {
        for (UnitBinding &binding : unit) {
            if (std::find(names, names + count, binding.texture) != names + count)
                binding.texture = 0;
        }
    }
}

bool FrameState::bindElements(unsigned int buffer)
{
    const std::array<quint32, 4> *const array = find(GL_VERTEX_ARRAY_BINDING);
    if (!array)
        return true;
    for (auto &known : m_elements) {
        if (known.first == (*array)[0]) {
            const bool isNew = known.second != buffer;
            known.second = buffer;
            return isNew;
        }
    }
    m_elements.emplace_back((*array)[0], buffer);
    return true;
}

bool FrameState::elements(int *buffer) const
{
    const std::array<quint32, 4> *const array = find(GL_VERTEX_ARRAY_BINDING);
    for (const auto &known : m_elements) {
        if (array && known.first == (*array)[0]) {
            *buffer = int(known.second);
            return true;
        }
    }
    return false;
}

// --- the driver ----------------------------------------------------------------------------------------------------

bool FrameState::hasExtension(const QByteArray &fullName)
{
    const auto known = m_extensions.constFind(fullName);
    if (known != m_extensions.constEnd())
        return *known;
    const bool has = epoxy_has_gl_extension(fullName.constData());
    m_extensions.insert(fullName, has);
    return has;
}

int FrameState::limit(unsigned int name)
{
    const auto known = m_limits.find(name);
    if (known != m_limits.end())
        return known->second;
    GLint value = 0;
    epoxy_glGetIntegerv(name, &value);
    m_limits[name] = value;
    return value;
}

// --- objects -------------------------------------------------------------------------------------------------------

void FrameState::followObjects()
{
    const quint64 now = objectRevision();
    if (m_objects == now)
        return;
    m_objects = now;
    m_framebuffers.clear();
    m_accepted.clear();
    m_specified.clear();
}

void FrameState::specify(unsigned int target, int level, const Specification &specification)
{
    const bool isSide = target >= GL_TEXTURE_CUBE_MAP_POSITIVE_X && target <= GL_TEXTURE_CUBE_MAP_NEGATIVE_Z;
    int texture = 0;
    if (!textureAt(isSide ? GLenum(GL_TEXTURE_CUBE_MAP) : target, &texture) || !texture) {
        objectsChanged();
        return;
    }
    followObjects();
    const std::array<unsigned int, 3> key{unsigned(texture), target, unsigned(level)};
    const auto known = m_specified.find(key);
    if (known != m_specified.end() && known->second == specification)
        return;
    auto others = std::move(m_specified); // They stay as they are.
    objectsChanged();
    followObjects();
    m_specified = std::move(others);
    m_specified[key] = specification;
}

FrameState::Framebuffer *FrameState::framebufferAt(unsigned int target)
{
    followObjects();
    const auto *const bound =
        find(target == GL_READ_FRAMEBUFFER ? GL_READ_FRAMEBUFFER_BINDING : GL_DRAW_FRAMEBUFFER_BINDING);
    return bound && (*bound)[0] ? &m_framebuffers[(*bound)[0]] : nullptr;
}

void FrameState::attach(unsigned int target, unsigned int point, const Attachment &attachment)
{
    Framebuffer *const framebuffer = framebufferAt(target);
    if (!framebuffer)
        return;
    if (point == GL_DEPTH_STENCIL_ATTACHMENT) {
        framebuffer->attachments[GL_DEPTH_ATTACHMENT] = attachment;
        framebuffer->attachments[GL_STENCIL_ATTACHMENT] = attachment;
    } else {
        framebuffer->attachments[point] = attachment;
    }
}

void FrameState::setBuffers(unsigned int target, unsigned int point, const QByteArray &buffers)
{
    if (Framebuffer *const framebuffer = framebufferAt(target))
        framebuffer->buffers[point] = buffers;
}

void FrameState::noteForeign(unsigned int framebuffer)
{
    followObjects();
    if (framebuffer)
        m_framebuffers[framebuffer].isForeign = true;
}

bool FrameState::isDrawFramebufferComplete()
{
    Framebuffer *const framebuffer = framebufferAt(GL_DRAW_FRAMEBUFFER);
    const bool isOwn = framebuffer && !framebuffer->isForeign;
    if (isOwn) {
        for (const Framebuffer::Known &known : framebuffer->complete) {
            if (known.attachments == framebuffer->attachments && known.buffers == framebuffer->buffers)
                return true;
        }
    }
    if (epoxy_glCheckFramebufferStatus(GL_DRAW_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE)
        return false;
    constexpr size_t mostKept = 32;
    if (isOwn && framebuffer->complete.size() < mostKept)
        framebuffer->complete.push_back({framebuffer->attachments, framebuffer->buffers});
    return true;
}

bool FrameState::isAccepted(const Draw &draw)
{
    followObjects();
    const bool isKnown = std::find(m_accepted.begin(), m_accepted.end(), draw) != m_accepted.end();
    m_hasAccepted = m_hasAccepted || isKnown;
    return isKnown;
}

void FrameState::accept(const Draw &draw)
{
    m_accepted.push_back(draw);
}

} // namespace Velmora::Kvz
