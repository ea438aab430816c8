// SPDX-License-Identifier: MIT
#include "CommandLine.h"

#include "Console.h"

#include <Chain/NearestNames.h>

#include <QtCore/QMap>

#include <algorithm>

namespace Velmora::Kvz {

QString dashed(const QString &name)
{
    return (name.size() == 1 ? QStringLiteral("-") : QStringLiteral("--")) + name;
}

namespace {

/// What the left one of two columns takes at most; longer texts push the right one aside.
constexpr int widestLeft = 22;

/// Two columns, indented; the right one may have several lines.
QString columns(const QVector<QPair<QString, QString>> &rows)
{
    QVector<QStringList> cells;
    QMap<int, QString> tooLong; // By their row.
    for (const auto &row : rows) {
        const QStringList lines = row.second.split(QLatin1Char('\n'));
        const bool isLong = row.first.size() > widestLeft;
        if (isLong)
            tooLong.insert(cells.size(), row.first);
        for (int line = 0; line < lines.size(); ++line)
            cells.append({QString(), line == 0 && !isLong ? row.first : QString(), lines[line]});
    }
    QStringList lines = formatTable(cells).split(QLatin1Char('\n'));
    for (auto it = tooLong.constBegin(); it != tooLong.constEnd(); ++it)
        lines[it.key()] = QStringLiteral("  %1  %2").arg(it.value(), lines[it.key()].trimmed());
    return lines.join(QLatin1Char('\n'));
}

/// Why an option is not known, with the nearest names.
QString unknownOption(const CommandSpec &command, const QString &name)
{
    QStringList known;
    for (const OptionSpec &option : command.options)
        known.append(option.longName());
    const QString given = dashed(name);
    const QStringList near = nearestNames(given, known);
    return QStringLiteral("unknown option \"%1\"%2")
        .arg(given, near.isEmpty() ? QString() : nearestNamesHint(given, known));
}

} // namespace

QString OptionSpec::longName() const
{
    return dashed(*std::max_element(
        names.begin(), names.end(), [](const QString &a, const QString &b) { return a.size() < b.size(); }));
}

OptionSpec optionSpec(const char *names, const char *value, const char *help, const char *detail)
{
    OptionSpec spec;
    spec.names = QString::fromUtf8(names).split(QLatin1Char(','));
    spec.value = QString::fromUtf8(value);
    spec.help = QString::fromUtf8(help);
    spec.detail = QString::fromUtf8(detail);
    return spec;
}

QStringList wordList(const char *text)
{
    return QString::fromUtf8(text).split(QLatin1Char(' '));
}

CommandSpec withHelp(CommandSpec command)
{
    command.options.append(optionSpec("h,help", "", "Prints this help."));
    return command;
}

QString usageOf(const CommandSpec &command)
{
    QString usage = QStringLiteral("kvz ") + command.name;
    const ArgumentSpec &argument = command.argument;
    if (!argument.name.isEmpty()) {
        const QString name = argument.name + (argument.most < 0 ? QStringLiteral("...") : QString());
        usage += QLatin1Char(' ') + (argument.least > 0 ? name : QStringLiteral("[%1]").arg(name));
    }
    for (const OptionSpec &option : command.options) {
        if (option.isRequired)
            usage += QStringLiteral(" %1 %2").arg(dashed(option.names.constFirst()), option.value);
    }
    return usage + QStringLiteral(" [options]");
}

QString helpOf(const CommandSpec &command)
{
    QStringList parts{QStringLiteral("Usage: %1\n%2").arg(usageOf(command), command.summary)};
    if (!command.examples.isEmpty()) {
        QVector<QStringList> rows;
        for (const ExampleSpec &example : command.examples)
            rows.append({QString(), example.line});
        parts.append(QStringLiteral("Examples:\n") + formatTable(rows));
    }
    QVector<QPair<QString, QString>> rows;
    if (!command.argument.name.isEmpty())
        rows.append({command.argument.name, command.argument.help});
    for (const OptionSpec &option : command.options) {
        QStringList names;
        for (const QString &name : option.names)
            names.append(dashed(name));
        QString text = names.join(QStringLiteral(", "));
        if (!option.value.isEmpty())
            text += QLatin1Char(' ') + option.value;
        rows.append({text, option.help});
    }
    parts.append(columns(rows));
    parts.append(exitStatusHelp());
    return parts.join(QStringLiteral("\n\n"));
}

std::optional<int> parseCommandLine(
    const CommandSpec &command, const QStringList &arguments, QCommandLineParser *parser)
{
    const CommandSpec all = withHelp(command);
    for (const OptionSpec &option : all.options)
        parser->addOption(QCommandLineOption(option.names, option.help, option.value, option.standard));
    const bool isRead = parser->parse(arguments);
    if (parser->isSet(QStringLiteral("help"))) {
        print(helpOf(all));
        return Success;
    }
    if (!parser->unknownOptionNames().isEmpty())
        return failUsage(unknownOption(all, parser->unknownOptionNames().constFirst()));
    if (!isRead) {
        QString error = parser->errorText();
        error[0] = error[0].toLower();
        return failUsage(error.endsWith(QLatin1Char('.')) ? error.chopped(1) : error);
    }
    const QStringList given = parser->positionalArguments();
    if (given.size() < command.argument.least)
        return failUsage(QStringLiteral("an argument is missing: %1").arg(command.argument.name));
    if (command.argument.most >= 0 && given.size() > command.argument.most)
        return failUsage(QStringLiteral("unexpected argument \"%1\"").arg(given[command.argument.most]));
    return std::nullopt;
}

} // namespace Velmora::Kvz
