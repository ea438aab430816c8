// SPDX-License-Identifier: MIT
#include <Chain/ChainLook.h>

#include <Chain/ChainBackground.h>
#include <Chain/PassInfo.h>
#include <Chain/PassOptions.h>

#include <QtCore/QMap>
#include <QtCore/QSet>
#include <QtGui/QColor>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

const QString environmentPort = QStringLiteral("Kvz_QString_Environment");
const QString automaticPort = QStringLiteral("Kvz_bool_AutoExposure");
const QString colourPort = QStringLiteral("Kvz_QColor_BackgroundColor");
const QString operatorOption = QStringLiteral("operator");

/// A value that a look gives to the passes which have all of these ports.
struct LookValue
{
    QString name; ///< Of the member.
    QStringList ports; ///< The first gets the value.
    QVariant value; ///< Invalid: not set.
};

template <typename T> QVariant variantOf(const std::optional<T> &value)
{
    return value ? QVariant::fromValue(*value) : QVariant();
}

QVector<LookValue> valuesOf(const ChainLook &look)
{
    const QVariant extent = look.ground && !*look.ground ? QVariant(0.0f) : QVariant();
    // Passes that shade take the rotation and lights from the one that brings the environment.
    return {
        {QStringLiteral("environment"), {environmentPort}, variantOf(look.environment)},
        {QStringLiteral("environmentRotation"), {QStringLiteral("Kvz_float_EnvironmentRotation"), environmentPort},
            variantOf(look.environmentRotation)},
        {QStringLiteral("exposure"), {QStringLiteral("Kvz_float_Exposure"), automaticPort}, variantOf(look.exposure)},
        {QStringLiteral("automaticExposure"), {automaticPort}, variantOf(look.automaticExposure)},
        {QStringLiteral("ground"), {QStringLiteral("Kvz_float_GroundExtent")}, extent},
        {QStringLiteral("environmentAsBackground"), {QStringLiteral("Kvz_bool_ShowsEnvironment")},
            variantOf(look.environmentAsBackground)},
    };
}

bool hasPorts(const PassInfo &info, const QStringList &ports)
{
    return std::all_of(ports.begin(), ports.end(), [&](const QString &port) { return info.findInput(port) >= 0; });
}

bool hasOperator(const PassInfo &info)
{
    return std::any_of(info.options.begin(), info.options.end(), [](const OptionInfo &option) {
        return option.name == operatorOption;
    }) && info.findInput(automaticPort) >= 0;
}

/// Does something to each enabled pass of a chain that a condition on its class picks. Returns whether there is one.
template <typename Condition, typename Action>
bool forPasses(ChainDescription *chain, const PassRegistry &registry, Condition isMeant, Action action)
{
    bool isFound = false;
    for (ChainPass &pass : chain->passes) {
        const auto info = pass.enabled ? registry.describe(pass.className, pass.options) : nullptr;
        if (!info || !isMeant(*info))
            continue;
        action(&pass);
        isFound = true;
    }
    return isFound;
}

/// The pass that composites by weight, for one that composites lists; empty for any other.
QString weightedClassFor(const QString &listClass)
{
    static const QMap<QString, QString> classes{
        {QStringLiteral("LitListRenderPass"), QStringLiteral("LitWeightedRenderPass")},
        {QStringLiteral("PhysicalListRenderPass"), QStringLiteral("PhysicalWeightedRenderPass")}};
    return classes.value(listClass);
}

bool isOfLists(const QString &className)
{
    return className == QLatin1String("FragmentListRenderPass") || className == QLatin1String("FragmentSortRenderPass");
}

bool sorts(const ChainDescription &chain)
{
    return std::any_of(chain.passes.begin(), chain.passes.end(),
        [](const ChainPass &pass) { return pass.enabled && !weightedClassFor(pass.className).isEmpty(); });
}

/// Composites by weight what the chain sorts.
void weighTransparency(ChainDescription *chain)
{
    QSet<QString> removed;
    for (const ChainPass &pass : qAsConst(chain->passes)) {
        if (isOfLists(pass.className))
            removed.insert(pass.name);
    }
    for (int i = chain->passes.size() - 1; i >= 0; --i) {
        ChainPass &pass = chain->passes[i];
        const QString weighted = weightedClassFor(pass.className);
        if (!weighted.isEmpty())
            pass.className = weighted;
        for (const QString &port : pass.connections.keys()) {
            if (removed.contains(pass.connections[port].pass))
                pass.connections.remove(port);
        }
        if (removed.contains(pass.name))
            chain->passes.removeAt(i);
    }
}

/// The name for a pass that no pass of the chain has.
QString freeName(const ChainDescription &chain, const QString &wanted)
{
    QString name = wanted;
    for (int i = 2; chain.findPass(name) >= 0; ++i)
        name = QStringLiteral("%1-%2").arg(wanted).arg(i);
    return name;
}

/// Shows an image where a chain can show a colour; its backgrounds are gone by now.
void insertBackgroundImage(ChainDescription *chain, const QString &file, const PassRegistry &registry)
{
    int taker = -1;
    for (int i = 0; i < chain->passes.size(); ++i) {
        const ChainPass &pass = chain->passes[i];
        const auto info = pass.enabled ? registry.describe(pass.className, pass.options) : nullptr;
        if (info && info->findInput(colourPort) >= 0)
            taker = i;
    }
    ChainPass image;
    image.name = freeName(*chain, QStringLiteral("backdrop"));
    image.className = QStringLiteral("BackdropRenderPass");
    image.values[QStringLiteral("Kvz_QString_ImagePath")] = file;
    chain->passes[taker].connections[QStringLiteral("Kvz_KvzTexture*_Background")] =
        ChainSource::output(image.name, QStringLiteral("Kvz_KvzTexture*_Frame"));
    chain->passes.insert(taker, image);
}

} // namespace

QString ChainLook::firstUnknown(const ChainDescription &chain, const PassRegistry &registry) const
{
    ChainDescription copy = chain;
    const auto nothing = [](ChainPass *) {};
    for (const LookValue &value : valuesOf(*this)) {
        const auto isMeant = [&](const PassInfo &info) { return hasPorts(info, value.ports); };
        if (value.value.isValid() && !forPasses(&copy, registry, isMeant, nothing))
            return value.name;
    }
    if (toneMapping && !forPasses(&copy, registry, hasOperator, nothing))
        return QStringLiteral("toneMapping");
    if (sortsTransparency && !sorts(chain))
        return QStringLiteral("sortsTransparency");
    const auto takesColour = [](const PassInfo &info) { return info.findInput(colourPort) >= 0; };
    if (backgroundImage && !forPasses(&copy, registry, takesColour, nothing))
        return QStringLiteral("backgroundImage");
    return {};
}

bool ChainLook::apply(ChainDescription *chain, QString *error, const PassRegistry &registry) const
{
    const QString unknown = firstUnknown(*chain, registry);
    if (!unknown.isEmpty()) {
        *error = QStringLiteral("no pass of the chain %1 knows %2").arg(chain->name, unknown);
        return false;
    }
    ChainDescription result = *chain;
    const bool replacesBackground = backgroundImage || (environmentAsBackground && *environmentAsBackground);
    // What lies behind all stays transparent: an environment is part of the frame, and an image covers it.
    if (replacesBackground && !setBackground(&result, QColor(0, 0, 0, 0), error, registry))
        return false;
    if (backgroundImage)
        insertBackgroundImage(&result, *backgroundImage, registry);
    for (const LookValue &value : valuesOf(*this)) {
        if (!value.value.isValid())
            continue;
        forPasses(
            &result, registry, [&](const PassInfo &info) { return hasPorts(info, value.ports); },
            [&](ChainPass *pass) {
                pass->connections.remove(value.ports.first());
                pass->values[value.ports.first()] = value.value;
            });
    }
    static const QString operators[] = {QStringLiteral("neutral"), QStringLiteral("filmic"), QStringLiteral("none")};
    if (toneMapping) {
        forPasses(&result, registry, hasOperator,
            [this](ChainPass *pass) { pass->options[operatorOption] = operators[int(*toneMapping)]; });
    }
    if (sortsTransparency && !*sortsTransparency)
        weighTransparency(&result);
    *chain = result;
    return true;
}

} // namespace Velmora::Kvz
