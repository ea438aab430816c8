// SPDX-License-Identifier: MIT
#include <Chain/running/HeldPicture.h>

#include <Chain/PassInfo.h>
#include <Chain/running/ObjectIn.h>
#include <Chain/running/SlotList.h>
#include <Core/Log.h>
#include <Core/RenderPassHelper.h>
#include <GL/AutoBinder.h>
#include <GL/AutoDisabler.h>
#include <GL/FramebufferObject.h>
#include <GL/GLErrors.h>
#include <GL/InternalFormat.h>
#include <GL/Texture.h>
#include <GL/UnpackState.h>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

GLint copyStateOf(GLenum name)
{
    GLint value = 0;
    glGetIntegerv(name, &value);
    return value;
}

bool holdsDepth(const InputInfo &input)
{
    return input.texture.kind == TextureKind::Depth;
}

/// Where a pass presents to: textures of the host, its framebuffer, or the default one.
struct Destination
{
    explicit Destination(const PassSlot &slot)
    {
        for (int i = 0; i < int(slot.inputs.size()); ++i) {
            const InputInfo &input = *slot.inputs[size_t(i)].info;
            if (input.type == ValueType::Framebuffer)
                framebuffer = objectIn<FramebufferObject>(slot.inputValue(i));
            else if (input.type == ValueType::Texture && input.drawnInto)
                (holdsDepth(input) ? depth : colour) = objectIn<Texture>(slot.inputValue(i));
        }
    }

    Texture *colour = nullptr; ///< Takes precedence over the framebuffer.
    Texture *depth = nullptr; ///< Counts beside a colour.
    FramebufferObject *framebuffer = nullptr;
};

/// Keeps what a copy changes, and binds a destination for drawing, or for reading as well, for a scope.
class CopyState
{
public:
    CopyState(const Destination &destination, GLenum target)
        : m_read(copyStateOf(GL_READ_FRAMEBUFFER_BINDING)),
          m_draw(copyStateOf(GL_DRAW_FRAMEBUFFER_BINDING))
    {
        if (destination.colour) {
            m_textures.bind();
            m_textures.attach(destination.colour, GL_COLOR_ATTACHMENT0, 0);
            if (destination.depth)
                m_textures.attach(destination.depth, GL_DEPTH_ATTACHMENT, 0);
            m_textures.unbind();
            m_name = m_textures.getFBO();
        } else if (destination.framebuffer) {
            m_name = destination.framebuffer->getFBO();
        }
        glBindFramebuffer(target, m_name);
        if (m_name == 0)
            return;
        glDrawBuffer(GL_COLOR_ATTACHMENT0); // As the passes do.
        if (target == GL_DRAW_FRAMEBUFFER)
            return;
        m_readBuffer = copyStateOf(GL_READ_BUFFER);
        glReadBuffer(GL_COLOR_ATTACHMENT0);
    }
    ~CopyState()
    {
        if (m_readBuffer != 0) {
            glBindFramebuffer(GL_READ_FRAMEBUFFER, m_name);
            glReadBuffer(GLenum(m_readBuffer));
        }
        glBindFramebuffer(GL_READ_FRAMEBUFFER, GLuint(m_read));
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, GLuint(m_draw));
    }

    GLuint name() const { return m_name; }

private:
    Q_DISABLE_COPY(CopyState)

    // Neither scissor nor a conversion of colours may touch a copy.
    AutoDisabler m_scissor{GL_SCISSOR_TEST};
    AutoDisabler m_conversion{GL_FRAMEBUFFER_SRGB};
    GLint m_read;
    GLint m_draw;
    GLint m_readBuffer = 0; ///< Of the destination, before.
    GLuint m_name = 0;
    FramebufferObject m_textures;
};

GLint attachmentParameter(GLenum attachment, GLenum parameter)
{
    GLint value = 0;
    glGetFramebufferAttachmentParameteriv(GL_READ_FRAMEBUFFER, attachment, parameter, &value);
    return value;
}

/// The format of a texture, which is bound for the question.
GLint formatOfTexture(GLuint name, GLint level)
{
    const bool isMultisampled = copyStateOf(GL_SAMPLES) > 0;
    const GLenum target = isMultisampled ? GL_TEXTURE_2D_MULTISAMPLE : GL_TEXTURE_2D;
    const GLint before = copyStateOf(isMultisampled ? GL_TEXTURE_BINDING_2D_MULTISAMPLE : GL_TEXTURE_BINDING_2D);
    GLint format = 0;
    glBindTexture(target, name);
    glGetTexLevelParameteriv(target, level, GL_TEXTURE_INTERNAL_FORMAT, &format);
    glBindTexture(target, GLuint(before));
    return format;
}

/// The internal format of what is bound for reading, in its colour or depth; 0 where it has none. Where the window system made it, the
/// smallest format that holds it.
GLint formatOfSource(bool isOwn, bool ofDepth)
{
    const GLenum attachment =
        ofDepth ? (isOwn ? GL_DEPTH_ATTACHMENT : GL_DEPTH) : (isOwn ? GL_COLOR_ATTACHMENT0 : GL_BACK_LEFT);
    const GLint type = attachmentParameter(attachment, GL_FRAMEBUFFER_ATTACHMENT_OBJECT_TYPE);
    if (type == GL_NONE)
        return 0;
    if (type == GL_TEXTURE || type == GL_RENDERBUFFER) {
        const auto name = GLuint(attachmentParameter(attachment, GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME));
        if (type == GL_TEXTURE)
            return formatOfTexture(name, attachmentParameter(attachment, GL_FRAMEBUFFER_ATTACHMENT_TEXTURE_LEVEL));
        const GLint before = copyStateOf(GL_RENDERBUFFER_BINDING);
        GLint format = 0;
        glBindRenderbuffer(GL_RENDERBUFFER, name);
        glGetRenderbufferParameteriv(GL_RENDERBUFFER, GL_RENDERBUFFER_INTERNAL_FORMAT, &format);
        glBindRenderbuffer(GL_RENDERBUFFER, GLuint(before));
        return format;
    }
    if (ofDepth) {
        const GLint bits = attachmentParameter(attachment, GL_FRAMEBUFFER_ATTACHMENT_DEPTH_SIZE);
        if (copyStateOf(GL_STENCIL_BITS) > 0)
            return GL_DEPTH24_STENCIL8;
        return bits > 24 ? GL_DEPTH_COMPONENT32F : bits > 16 ? GL_DEPTH_COMPONENT24 : GL_DEPTH_COMPONENT16;
    }
    const GLint bits = attachmentParameter(attachment, GL_FRAMEBUFFER_ATTACHMENT_RED_SIZE);
    return bits > 10 ? GL_RGBA16F : bits > 8 ? GL_RGB10_A2 : GL_RGBA8;
}

/// The format that a sized or unsized one is stored as.
GLint sizedFormat(GLint format)
{
    return format == GL_RGBA || format == GL_RGB || format == GL_RGB8 ? GL_RGBA8 : format;
}

/// Makes `texture` one of this kind, unless it is already.
void ensureCopy(std::unique_ptr<Texture> &texture, GLint format, const QSize &size, GLint samples)
{
    const GLenum target = samples > 0 ? GL_TEXTURE_2D_MULTISAMPLE : GL_TEXTURE_2D;
    if (texture && texture->target() == target && texture->internalFormat(0) == format
        && texture->width(0) == size.width() && texture->height(0) == size.height())
        return;
    texture = std::make_unique<Texture>(target, format, size.width(), size.height(), 0, nullptr);
    UnpackState unpack;
    AutoBinder binder(texture.get());
    if (samples > 0) {
        glTexImage2DMultisample(target, samples, GLenum(format), size.width(), size.height(), GL_TRUE);
        return;
    }
    glTexImage2D(target, 0, format, size.width(), size.height(), 0, formatFromInternalFormat(GLenum(format)),
        typeFromInternalFormat(GLenum(format)), nullptr);
    glTexParameteri(target, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
}

/// Copies areas from the one bound framebuffer to the other; `from` and `to` are where their pixels begin.
bool copyAreas(const QVector<QRect> &areas, const QPoint &from, const QPoint &to, bool withDepth)
{
    if (glCheckFramebufferStatus(GL_READ_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE
        || glCheckFramebufferStatus(GL_DRAW_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE)
        return false;
    takeGLErrors();
    const GLbitfield mask = GL_COLOR_BUFFER_BIT | (withDepth ? GL_DEPTH_BUFFER_BIT : 0);
    for (const QRect &area : areas) {
        const QRect source = area.translated(-from);
        const QRect target = area.translated(-to);
        glBlitFramebuffer(source.left(), source.top(), source.left() + source.width(), source.top() + source.height(),
            target.left(), target.top(), target.left() + target.width(), target.top() + target.height(), mask,
            GL_NEAREST);
    }
    return takeGLErrors() == GL_NO_ERROR;
}

/// The areas of its destination that a pass presents to.
QVector<QRect> presentedAreas(const PassSlot &slot, const QRect &viewport)
{
    QVector<QRect> areas;
    const int out = slot.info->findInput(QStringLiteral("Kvz_QRect_ViewportOut"));
    if (out >= 0)
        RenderPassHelper::getVectorFromVariant<QRect>(slot.inputValue(out), areas);
    if (areas.isEmpty()) {
        const QRect own = slot.viewportInput < 0 ? QRect() : slot.inputValue(slot.viewportInput).toRect();
        areas.append(own.isEmpty() ? viewport : own);
    }
    areas.erase(
        std::remove_if(areas.begin(), areas.end(), [](const QRect &area) { return area.isEmpty(); }), areas.end());
    return areas;
}

bool presentsDepth(const PassSlot &slot)
{
    for (int i = 0; i < int(slot.inputs.size()); ++i) {
        const InputInfo &input = *slot.inputs[size_t(i)].info;
        if (holdsDepth(input) && !input.drawnInto && objectIn<Texture>(slot.inputValue(i)))
            return true;
    }
    return false;
}

} // namespace

HeldPicture::Part::Part() = default;
HeldPicture::Part::~Part() = default;
HeldPicture::Part::Part(Part &&) = default;
HeldPicture::Part &HeldPicture::Part::operator=(Part &&) = default;

HeldPicture::HeldPicture() = default;
HeldPicture::~HeldPicture() = default;

HeldPicture::Part *HeldPicture::partOf(const PassSlot *slot)
{
    const auto known =
        std::find_if(m_parts.begin(), m_parts.end(), [slot](const Part &part) { return part.slot == slot; });
    if (known != m_parts.end())
        return &*known;
    m_parts.emplace_back();
    m_parts.back().slot = slot;
    return &m_parts.back();
}

bool HeldPicture::fail(const char *reason)
{
    m_isHeld = false;
    if (m_saidReason != reason)
        KVZ_WARNING(
            QStringLiteral("a finished picture is rendered again for each frame, since %1").arg(QLatin1String(reason)));
    m_saidReason = reason;
    return false;
}

bool HeldPicture::take(const SlotList &slots, const QRect &viewport)
{
    m_isHeld = false;
    std::vector<const PassSlot *> presenting;
    for (const auto &slot : slots) {
        if (slot->wasStarted && slot->info->traits.testFlag(PassTrait::Presents))
            presenting.push_back(slot.get());
    }
    m_parts.erase(std::remove_if(m_parts.begin(), m_parts.end(),
                      [&](const Part &part) {
                          return std::find(presenting.begin(), presenting.end(), part.slot) == presenting.end();
                      }),
        m_parts.end());
    for (const PassSlot *slot : presenting) {
        if (!takePart(partOf(slot), viewport))
            return false;
    }
    m_isHeld = true;
    return true;
}

bool HeldPicture::takePart(Part *part, const QRect &viewport)
{
    part->areas = presentedAreas(*part->slot, viewport);
    part->bounds = QRect();
    for (const QRect &area : qAsConst(part->areas))
        part->bounds |= area;
    if (part->areas.isEmpty())
        return true;

    const Destination destination(*part->slot);
    const CopyState source(destination, GL_FRAMEBUFFER);
    const bool isOwn = source.name() != 0;
    const GLint samples = copyStateOf(GL_SAMPLES);
    const GLint colourFormat = sizedFormat(formatOfSource(isOwn, false));
    const bool withDepth = presentsDepth(*part->slot);
    const GLint depthFormat = withDepth ? formatOfSource(isOwn, true) : 0;
    if (colourFormat == 0)
        return fail("what it is presented to has no colour");
    ensureCopy(part->colour, colourFormat, part->bounds.size(), samples);
    if (depthFormat != 0)
        ensureCopy(part->depth, depthFormat, part->bounds.size(), samples);
    else
        part->depth.reset();

    if (!part->framebuffer)
        part->framebuffer = std::make_unique<FramebufferObject>();
    const GLint read = copyStateOf(GL_READ_FRAMEBUFFER_BINDING);
    part->framebuffer->bind();
    part->framebuffer->attach(part->colour.get(), GL_COLOR_ATTACHMENT0, 0);
    part->framebuffer->detach(GL_DEPTH_STENCIL_ATTACHMENT);
    if (part->depth)
        part->framebuffer->attach(part->depth.get(), GL_DEPTH_STENCIL_ATTACHMENT, 0);
    glDrawBuffer(GL_COLOR_ATTACHMENT0);
    glReadBuffer(GL_COLOR_ATTACHMENT0);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, GLuint(read));
    const bool isCopied = copyAreas(part->areas, QPoint(), part->bounds.topLeft(), depthFormat != 0);
    part->framebuffer->unbind();
    return isCopied || fail("the driver does not copy out of what it is presented to");
}

bool HeldPicture::present(const SlotList &slots, const QRect &viewport)
{
    for (const auto &slot : slots) {
        const auto part =
            std::find_if(m_parts.begin(), m_parts.end(), [&](const Part &known) { return known.slot == slot.get(); });
        if (part == m_parts.end() || part->areas.isEmpty())
            continue;
        // Where only the corner of the viewport has moved, the picture moves along.
        const QVector<QRect> areas = presentedAreas(*slot, viewport);
        const bool isMoved = areas != part->areas;
        if (isMoved && (areas.size() != 1 || part->areas.size() != 1 || areas[0].size() != part->areas[0].size())) {
            m_isHeld = false;
            return false;
        }
        const CopyState target(Destination(*slot), GL_DRAW_FRAMEBUFFER);
        glBindFramebuffer(GL_READ_FRAMEBUFFER, part->framebuffer->getFBO());
        const QPoint from = isMoved ? areas[0].topLeft() : part->bounds.topLeft();
        if (!copyAreas(areas, from, QPoint(), part->depth != nullptr)) {
            m_isHeld = false;
            return false;
        }
    }
    return true;
}

void HeldPicture::leaveContext()
{
    m_isHeld = false;
    m_parts.clear();
}

} // namespace Velmora::Kvz
