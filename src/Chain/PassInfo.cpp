// SPDX-License-Identifier: MIT
#include <Chain/PassInfo.h>

#include <GL/TrackedGL.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

template <typename Named> int indexOf(const QVector<Named> &items, const QString &name)
{
    const auto it = std::find_if(items.begin(), items.end(), [&](const Named &item) { return item.name == name; });
    return it == items.end() ? -1 : int(it - items.begin());
}

template <typename Named> QStringList namesOf(const QVector<Named> &items)
{
    QStringList names;
    for (const Named &item : items)
        names.append(item.name);
    return names;
}

} // namespace

int PassInfo::findInput(const QString &name) const
{
    return indexOf(inputs, name);
}

int PassInfo::findOutput(const QString &name) const
{
    return indexOf(outputs, name);
}

int PassInfo::findOption(const QString &name) const
{
    return indexOf(options, name);
}

QStringList PassInfo::inputNames() const
{
    return namesOf(inputs);
}

QStringList PassInfo::outputNames() const
{
    return namesOf(outputs);
}

QStringList PassInfo::optionNames() const
{
    return namesOf(options);
}

PassUse::~PassUse() = default;

QString toString(TextureKind kind)
{
    switch (kind) {
    case TextureKind::Any:
        return QStringLiteral("any");
    case TextureKind::Colour:
        return QStringLiteral("colour");
    case TextureKind::Depth:
        return QStringLiteral("depth");
    case TextureKind::Normal:
        return QStringLiteral("normal");
    case TextureKind::TexCoord:
        return QStringLiteral("texcoord");
    case TextureKind::Id:
        return QStringLiteral("id");
    case TextureKind::Diffuse:
        return QStringLiteral("diffuse");
    case TextureKind::Specular:
        return QStringLiteral("specular");
    case TextureKind::Emission:
        return QStringLiteral("emission");
    case TextureKind::Positions:
        return QStringLiteral("positions");
    case TextureKind::Obscurance:
        return QStringLiteral("obscurance");
    case TextureKind::Luminance:
        return QStringLiteral("luminance");
    case TextureKind::Overlay:
        return QStringLiteral("overlay");
    case TextureKind::Velocity:
        return QStringLiteral("velocity");
    case TextureKind::Stencil:
        return QStringLiteral("stencil");
    case TextureKind::Environment:
        return QStringLiteral("environment");
    case TextureKind::NodeList:
        return QStringLiteral("node list");
    }
    return QString();
}

QString toString(TextureDisplay display)
{
    switch (display) {
    case TextureDisplay::Colour:
        return QStringLiteral("colour");
    case TextureDisplay::Depth:
        return QStringLiteral("depth");
    case TextureDisplay::Normal:
        return QStringLiteral("normal");
    case TextureDisplay::TexCoord:
        return QStringLiteral("texcoord");
    case TextureDisplay::Id:
        return QStringLiteral("id");
    case TextureDisplay::Positions:
        return QStringLiteral("positions");
    case TextureDisplay::Scalar:
        return QStringLiteral("scalar");
    case TextureDisplay::Motion:
        return QStringLiteral("motion");
    case TextureDisplay::ListLength:
        return QStringLiteral("list length");
    case TextureDisplay::Hidden:
        return QStringLiteral("hidden");
    }
    return QString();
}

QString toString(ColourSpace space)
{
    switch (space) {
    case ColourSpace::Linear:
        return QStringLiteral("linear");
    case ColourSpace::SRgb:
        return QStringLiteral("sRGB");
    case ColourSpace::Data:
        return QStringLiteral("data");
    }
    return QString();
}

QString toString(Multisampling multisampling)
{
    switch (multisampling) {
    case Multisampling::Refused:
        return QStringLiteral("refused");
    case Multisampling::Resolved:
        return QStringLiteral("resolved");
    case Multisampling::Taken:
        return QStringLiteral("taken");
    }
    return QString();
}

QStringList toStringList(PassTraits traits)
{
    static const struct
    {
        PassTrait trait;
        const char *text;
    } texts[] = {
        {PassTrait::NeverReleasesInputs, "never releases its inputs"},
        {PassTrait::JittersCamera, "jitters the camera"},
        {PassTrait::AccumulatesFrames, "accumulates frames"},
        {PassTrait::Shades, "shades"},
        {PassTrait::Obscures, "computes obscurance"},
        {PassTrait::Transparent, "composites transparency"},
        {PassTrait::AntiAliases, "smooths edges"},
        {PassTrait::Culls, "culls"},
        {PassTrait::ResetsCulling, "resets culling"},
        {PassTrait::Presents, "presents"},
        {PassTrait::Background, "fills the background"},
        {PassTrait::LosesAlpha, "loses alpha"},
        {PassTrait::BasicSurfaces, "draws basic surfaces"},
        {PassTrait::PhysicalSurfaces, "draws physical surfaces"},
        {PassTrait::BringsLights, "brings lights"},
        {PassTrait::ComparesFrames, "compares frames"},
        {PassTrait::Reprojects, "follows motion"},
        {PassTrait::CountsFrames, "counts frames"},
        {PassTrait::RestsUnchanged, "rests while nothing changes"},
    };
    QStringList list;
    for (const auto &text : texts) {
        if (traits.testFlag(text.trait))
            list.append(QLatin1String(text.text));
    }
    return list;
}

QString formatName(unsigned int internalFormat)
{
    static const struct
    {
        unsigned int format;
        const char *name;
    } names[] = {
        {GL_RGBA, "GL_RGBA"},
        {GL_RGBA8, "GL_RGBA8"},
        {GL_RGBA16F, "GL_RGBA16F"},
        {GL_RGBA32F, "GL_RGBA32F"},
        {GL_RGB32F, "GL_RGB32F"},
        {GL_RG32F, "GL_RG32F"},
        {GL_R32F, "GL_R32F"},
        {GL_R32UI, "GL_R32UI"},
        {GL_RG32UI, "GL_RG32UI"},
        {GL_RGBA32UI, "GL_RGBA32UI"},
        {GL_R32I, "GL_R32I"},
        {GL_DEPTH_COMPONENT32F, "GL_DEPTH_COMPONENT32F"},
        {GL_DEPTH24_STENCIL8, "GL_DEPTH24_STENCIL8"},
    };
    for (const auto &entry : names) {
        if (entry.format == internalFormat)
            return QLatin1String(entry.name);
    }
    return QStringLiteral("0x%1").arg(internalFormat, 4, 16, QLatin1Char('0'));
}

} // namespace Velmora::Kvz
