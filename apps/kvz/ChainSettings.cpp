// SPDX-License-Identifier: MIT
#include "ChainSettings.h"

#include "Console.h"

#include <Chain/ChainBackground.h>
#include <Chain/ChainLibrary.h>
#include <Chain/LinearLight.h>
#include <Chain/NearestNames.h>
#include <Chain/PassInfo.h>

#include <QtCore/QDir>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QMap>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

/// A value that --set gives to an input.
struct Setting
{
    QString text; ///< As it was given.
    QString pass;
    QString port; ///< The whole name.
};

/// The last word of a port's name, such as "ColorTop".
QString wordOf(const QString &port)
{
    return port.section(QLatin1Char('_'), -1);
}

/// What a text stands for: JSON, as a chain file has it, or text without quotes. Files count from the working directory.
QVariant readValue(const QString &text, const InputInfo &input)
{
    if (input.namesFile(text) && text != QLatin1String("null"))
        return QDir::isRelativePath(text) ? QDir::current().absoluteFilePath(text) : text;
    // A document is a list or an object, so the value goes into a list.
    const QJsonDocument json = QJsonDocument::fromJson("[" + text.toUtf8() + "]");
    const bool isOne = json.isArray() && json.array().size() == 1;
    if (!isOne || (input.type == ValueType::String && !json.array().first().isString()))
        return text == QLatin1String("null") ? QVariant() : QVariant(text);
    return json.array().first().toVariant();
}

/// The input that a name or a last word means; -1, with the reason, where none does.
int findInput(const PassInfo &pass, const QString &name, QString *problem)
{
    QVector<int> found;
    QStringList words;
    for (int i = 0; i < pass.inputs.size(); ++i) {
        const QString &port = pass.inputs[i].name;
        if (port == name)
            return i;
        if (wordOf(port) == name)
            found.append(i);
        if (isPlain(pass.inputs[i].type))
            words.append(wordOf(port));
    }
    if (found.size() == 1)
        return found.first();
    if (found.size() > 1) {
        QStringList names;
        for (const int i : qAsConst(found))
            names.append(QStringLiteral("\"%1\"").arg(pass.inputs[i].name));
        *problem = QStringLiteral("\"%1\" may be %2; write one of them").arg(name, names.join(QStringLiteral(" or ")));
    } else {
        const QString all = QStringLiteral("see kvz passes %1").arg(pass.className);
        *problem =
            QStringLiteral("no input \"%1\" of %2%3").arg(name, pass.className, nearestNamesHint(name, words, all));
    }
    return -1;
}

/// Puts the value of a --set into a chain; what is wrong with it otherwise.
QString applySetting(const QString &text, ChainDescription *chain, Setting *setting)
{
    const int equals = text.indexOf(QLatin1Char('='));
    const QString place = text.left(equals);
    const int dot = place.indexOf(QLatin1Char('.'));
    if (equals < 0 || dot < 1)
        return QStringLiteral("expected PASS.PORT=VALUE, such as background.ColorTop=red");
    const QString pass = place.left(dot);
    const int index = chain->findPass(pass);
    if (index < 0)
        return QStringLiteral("no pass \"%1\"%2")
            .arg(pass,
                nearestNamesHint(pass, chain->passNames(),
                    QStringLiteral("its passes are %1").arg(chain->passNames().join(QStringLiteral(", ")))));
    ChainPass &target = chain->passes[index];
    const auto info = PassRegistry::standard().describe(target.className, target.options);
    if (!info)
        return {}; // The chain's own error.
    QString problem;
    const int input = findInput(*info, place.mid(dot + 1), &problem);
    if (input < 0)
        return problem;
    *setting = {text, pass, info->inputs[input].name};
    target.connections.remove(setting->port);
    target.values.insert(setting->port, readValue(text.mid(equals + 1), info->inputs[input]));
    return {};
}

} // namespace

QString chainProblem(const QVector<ChainFinding> &findings, const QString &chain, const QString &check)
{
    QVector<ChainFinding> errors;
    for (const ChainFinding &finding : findings) {
        if (finding.severity == ChainFinding::Severity::Error)
            errors.append(finding);
    }
    if (errors.isEmpty()) {
        for (const ChainFinding &finding : findings)
            warn(QStringLiteral("%1: %2").arg(chain, finding.description()));
        return {};
    }
    const QString more = errors.size() > 1
        ? QStringLiteral(" (and %1 more, see %2 %3)").arg(QString::number(errors.size() - 1), check, chain)
        : QString();
    return QStringLiteral("%1: %2%3").arg(chain, errors.constFirst().toString(), more);
}

namespace {

using Kind = LightDescription::Kind;

bool hasKind(const std::vector<LightDescription> &lights, Kind kind)
{
    return std::any_of(
        lights.begin(), lights.end(), [kind](const LightDescription &light) { return light.kind == kind; });
}

/// The lights of the chain, those of each kind that is given replaced.
std::vector<LightDescription> lightsOf(const ChainDescription &chain, const std::vector<LightDescription> &given)
{
    std::vector<LightDescription> lights;
    for (const LightDescription &light : chain.lights) {
        const bool givesWay = light.kind != Kind::ShadowCaster && hasKind(given, Kind::None);
        if (!hasKind(given, light.kind) && !givesWay)
            lights.push_back(light);
    }
    lights.insert(lights.end(), given.begin(), given.end());
    return lights;
}

/// The chain to load: without headlight and ambient light the one of basic passes, where there is one of this name.
QString chainNameOf(const RenderOptions &options)
{
    const QString basic = options.chain + QStringLiteral("-basic");
    return hasKind(options.lights, Kind::None) && readyChainNames().contains(basic) ? basic : options.chain;
}

/// The option that gives a member of ChainLook.
QString optionOf(const QString &member)
{
    static const QMap<QString, QString> options{
        {QStringLiteral("environment"), QStringLiteral("--environment")},
        {QStringLiteral("environmentRotation"), QStringLiteral("--environment-rotation")},
        {QStringLiteral("exposure"), QStringLiteral("--exposure")},
        {QStringLiteral("automaticExposure"), QStringLiteral("--exposure auto")},
        {QStringLiteral("toneMapping"), QStringLiteral("--tone-map")},
        {QStringLiteral("sortsTransparency"), QStringLiteral("--transparency")},
        {QStringLiteral("ground"), QStringLiteral("--no-ground")},
        {QStringLiteral("environmentAsBackground"), QStringLiteral("--background environment")},
        {QStringLiteral("backgroundImage"), QStringLiteral("--background")},
    };
    return options.value(member);
}

/// The ready chains that know what a look sets.
QStringList chainsKnowing(const ChainLook &look)
{
    QStringList names;
    for (const QString &name : readyChainNames()) {
        ChainDescription chain;
        QString error;
        if (loadChain(name, &chain, &error) && look.firstUnknown(chain).isEmpty())
            names.append(name);
    }
    return names;
}

bool applyLook(const RenderOptions &options, ChainDescription *chain, QString *error)
{
    const QString unknown = options.look.firstUnknown(*chain);
    if (!unknown.isEmpty()) {
        *error = QStringLiteral("%1: the chain %2 has no pass that knows it; these have: %3")
                     .arg(optionOf(unknown), options.chain, chainsKnowing(options.look).join(QStringLiteral(", ")));
        return false;
    }
    if (options.look.apply(chain, error))
        return true;
    *error = QStringLiteral("--background: %1").arg(*error);
    return false;
}

} // namespace

std::unique_ptr<ResolvedChain> resolveChain(const RenderOptions &options, QString *error)
{
    ChainDescription description;
    if (!loadChain(chainNameOf(options), &description, error))
        return nullptr;
    QVector<Setting> settings;
    for (const QString &text : options.settings) {
        Setting setting;
        const QString problem = applySetting(text, &description, &setting);
        if (!problem.isEmpty()) {
            *error = QStringLiteral("--set %1: %2").arg(text, problem);
            return nullptr;
        }
        settings.append(setting);
    }
    description.lights = lightsOf(description, options.lights);
    if (options.background && !setBackground(&description, *options.background, error)) {
        *error =
            QStringLiteral("--background %1: %2")
                .arg(options.background->alpha() == 0 ? QStringLiteral("none") : options.background->name(), *error);
        return nullptr;
    }
    if (!applyLook(options, &description, error))
        return nullptr;
    if (options.written.isLight && !setLinearLight(&description, error)) {
        if (!error->isEmpty()) {
            *error = QStringLiteral("-o %1: %2").arg(options.output, *error);
            return nullptr;
        }
        warn(QStringLiteral("%1: the chain %2 ends in display values; the light in it is theirs, decoded from sRGB")
                 .arg(options.output, options.chain));
    }
    auto resolved = std::make_unique<ResolvedChain>(description);
    for (const ChainFinding &finding : resolved->findings()) {
        if (finding.severity != ChainFinding::Severity::Error)
            continue;
        for (const Setting &setting : qAsConst(settings)) {
            if (setting.pass != finding.pass || setting.port != finding.port)
                continue;
            *error =
                QStringLiteral("--set %1: expected %2, found %3").arg(setting.text, finding.expected, finding.actual)
                + (finding.remedy.isEmpty() ? QString() : QStringLiteral("; ") + finding.remedy);
            return nullptr;
        }
    }
    *error = chainProblem(resolved->findings(), options.chain, QStringLiteral("kvz check"));
    if (!error->isEmpty())
        return nullptr;
    if (!resolved->presents()) {
        warn(QStringLiteral("%1: no enabled pass presents, so the picture is empty; add a TextureToScreenRenderPass")
                 .arg(options.chain));
    }
    if ((hasKind(options.lights, Kind::Headlight) || hasKind(options.lights, Kind::Ambient))
        && !resolved->takes(FrameValues::headlightIntensity))
        warn(QStringLiteral("%1: none of its passes takes a headlight or ambient light").arg(options.chain));
    if (hasKind(options.lights, Kind::None) && resolved->has(PassTrait::BringsLights))
        warn(QStringLiteral("%1: it has no fixed light; its environment lights it, which --environment chooses")
                 .arg(options.chain));
    if (!hasKind(description.lights, Kind::ShadowCaster) && resolved->takesLights()
        && !resolved->has(PassTrait::BringsLights))
        warn(QStringLiteral("%1: it has no lights, so nothing casts a shadow; add --light").arg(options.chain));
    return resolved;
}

} // namespace Velmora::Kvz
