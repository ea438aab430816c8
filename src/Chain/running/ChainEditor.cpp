// SPDX-License-Identifier: MIT
#include <Chain/running/ChainEditor.h>

#include <Chain/NearestNames.h>
#include <Chain/ResolvedPasses.h>

namespace Velmora::Kvz {

bool ChainEditor::fail(const QString &text)
{
    m_error = text;
    return false;
}

bool ChainEditor::apply(const ChainState::Change &change)
{
    const std::optional<ChainFinding> error = m_state.tryChange(change);
    return !error || fail(error->toString());
}

bool ChainEditor::findPass(const QString &pass, int *index)
{
    *index = m_state.description().findPass(pass);
    if (*index >= 0)
        return true;
    return fail(
        QStringLiteral("no pass named \"%1\"%2").arg(pass, nearestNamesHint(pass, m_state.description().passNames())));
}

bool ChainEditor::findInput(const QString &pass, const QString &port, int *passIndex, int *inputIndex)
{
    if (!findPass(pass, passIndex))
        return false;
    const std::shared_ptr<const PassInfo> &info = m_state.resolved().passes()[*passIndex].info;
    *inputIndex = info ? info->findInput(port) : -1;
    if (*inputIndex >= 0)
        return true;
    return fail(QStringLiteral("pass \"%1\" has no input \"%2\"%3")
                    .arg(pass, port, nearestNamesHint(port, info ? info->inputNames() : QStringList())));
}

bool ChainEditor::setValue(const QString &pass, const QString &port, const QVariant &value)
{
    int index, number;
    if (!findInput(pass, port, &index, &number))
        return false;
    const InputInfo &input = m_state.resolved().passes()[index].info->inputs[number];
    const InputValue read = readInputValue(input, value, m_state.description().folder);
    const auto refuse = [&](const QString &expected) {
        return fail(
            QStringLiteral("pass \"%1\", %2: expected %3, found %4").arg(pass, port, expected, describeValue(value)));
    };
    if (read.problem == InputValue::Problem::WrongType)
        return refuse(typeName(input.type));
    if (read.problem == InputValue::Problem::EmptyViewport)
        return refuse(QStringLiteral("a width and height of 1 or more"));

    // The description keeps file names as they are written.
    const QVariant kept = input.imageFile == ImageFileUse::None ? read.value : value;
    if (m_state.exchangeValue(index, number, kept, read))
        return true;
    const std::optional<ChainFinding> error =
        m_state.tryChange([&](ChainDescription *chain) { chain->passes[index].values.insert(port, kept); });
    return !error || fail(error->description());
}

bool ChainEditor::clearValue(const QString &pass, const QString &port)
{
    int index, number;
    if (!findInput(pass, port, &index, &number))
        return false;
    if (!m_state.description().passes[index].values.contains(port))
        return true;
    return apply([&](ChainDescription *chain) { chain->passes[index].values.remove(port); });
}

bool ChainEditor::setEnabled(const QString &pass, bool enabled)
{
    int index;
    if (!findPass(pass, &index))
        return false;
    if (m_state.description().passes[index].enabled == enabled)
        return true;
    return apply([&](ChainDescription *chain) { chain->passes[index].enabled = enabled; });
}

bool ChainEditor::connect(const QString &pass, const QString &port, const ChainSource &source)
{
    int index, number;
    return findInput(pass, port, &index, &number)
        && apply([&](ChainDescription *chain) { chain->passes[index].connections.insert(port, source); });
}

bool ChainEditor::disconnect(const QString &pass, const QString &port)
{
    int index, number;
    return findInput(pass, port, &index, &number)
        && apply([&](ChainDescription *chain) { chain->passes[index].connections.remove(port); });
}

bool ChainEditor::setOption(const QString &pass, const QString &option, const QVariant &value)
{
    int index;
    return findPass(pass, &index)
        && apply([&](ChainDescription *chain) { chain->passes[index].options.insert(option, value); });
}

bool ChainEditor::addExport(const QString &name, const ChainOutput &output)
{
    return apply([&](ChainDescription *chain) { chain->exports.insert(name, output); });
}

bool ChainEditor::removeExport(const QString &name)
{
    if (!m_state.description().exports.contains(name))
        return fail(QStringLiteral("no export named \"%1\"").arg(name));
    return apply([&](ChainDescription *chain) { chain->exports.remove(name); });
}

} // namespace Velmora::Kvz
