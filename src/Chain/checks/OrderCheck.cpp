// SPDX-License-Identifier: MIT
#include <Chain/checks/OrderCheck.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

/// Passes with the trait `earlier` belong before those with `later`.
struct OrderRule
{
    PassTrait earlier;
    PassTrait later;
    bool blamesLater; ///< Which of the two is in the wrong place.
    const char *expected;
    const char *remedy;
};

const OrderRule orderRules[] = {
    {PassTrait::Obscures, PassTrait::Transparent, false, "obscurance before transparent surfaces are composited",
        "move it before the transparency passes"},
    {PassTrait::Shades, PassTrait::AntiAliases, true, "anti-aliasing after all shading",
        "move it after the last pass that shades"},
    {PassTrait::Transparent, PassTrait::AntiAliases, true, "anti-aliasing after transparent surfaces are composited",
        "move it after the transparency passes"},
    {PassTrait::ResetsCulling, PassTrait::Culls, true, "culling after the passes that reset it",
        "move it after the shadow pass, which makes all items of the model drawable again"},
};

int firstWith(const QVector<PassTraits> &traits, PassTrait trait, int from)
{
    for (int i = from; i < traits.size(); ++i) {
        if (traits[i].testFlag(trait))
            return i;
    }
    return -1;
}

int lastWith(const QVector<PassTraits> &traits, PassTrait trait, int end)
{
    for (int i = end - 1; i >= 0; --i) {
        if (traits[i].testFlag(trait))
            return i;
    }
    return -1;
}

} // namespace

void OrderCheck::checkRoles()
{
    QVector<PassTraits> traits;
    for (int i = 0; i < m_passes.size(); ++i) {
        const bool runs = m_passes[i].info && m_passes[i].enabled;
        traits.append(runs ? m_passes[i].traits : PassTraits());
        if (runs && appliesObscurance(m_passes[i]))
            traits.last() |= PassTrait::Obscures;
    }

    for (const OrderRule &rule : orderRules) {
        const int lastEarlier = lastWith(traits, rule.earlier, traits.size());
        const int firstLater = firstWith(traits, rule.later, 0);
        if (firstLater < 0 || lastEarlier <= firstLater)
            continue;
        const int blamed = rule.blamesLater ? firstLater : lastEarlier;
        const int other = rule.blamesLater ? lastEarlier : firstLater;
        report(Severity::Warning, Code::RoleOrder, passName(blamed), {}, rule.expected,
            QStringLiteral("it comes %1 pass %2")
                .arg(rule.blamesLater ? QStringLiteral("before") : QStringLiteral("after"), quoted(passName(other))),
            rule.remedy);
    }

    const int jitter = firstWith(traits, PassTrait::JittersCamera, 0);
    if (jitter >= 0 && firstWith(traits, PassTrait::AccumulatesFrames, jitter + 1) < 0) {
        report(Severity::Warning, Code::RoleOrder, passName(jitter), {}, "a later pass that accumulates frames",
            "none: the picture jitters", "add one, or disable the jitter");
    }
}

/// Whether a pass takes an obscurance image and gives colours; not one that lays the layers over them itself.
bool OrderCheck::appliesObscurance(const ResolvedPass &pass) const
{
    const auto holds = [](TextureKind kind) {
        return [kind](const OutputInfo &output) {
            return output.type == ValueType::Texture && output.texture.kind == kind;
        };
    };
    const auto takes = [&](TextureKind kind) {
        return std::any_of(pass.inputs.begin(), pass.inputs.end(),
            [&](const ResolvedInput &input) { return input.source == Source::Output && holds(kind)(outputOf(input)); });
    };
    return std::any_of(pass.info->outputs.begin(), pass.info->outputs.end(), holds(TextureKind::Colour))
        && takes(TextureKind::Obscurance) && !takes(TextureKind::Overlay);
}

void OrderCheck::checkLights()
{
    const auto castsShadows = [](const LightDescription &light) {
        return light.kind == LightDescription::Kind::ShadowCaster;
    };
    const auto &lights = chain().lights;
    if (std::any_of(lights.begin(), lights.end(), castsShadows) && !m_passes.takeLights()) {
        report(Severity::Warning, Code::UnusedLights, {}, {}, "a pass that takes the lights", "none",
            "add a ShadowMapRenderPass, or take the lights out");
    }
}

} // namespace Velmora::Kvz
