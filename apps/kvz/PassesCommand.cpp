// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "Console.h"

#include <Chain/NearestNames.h>
#include <Chain/PassInfo.h>
#include <Chain/PassRegistry.h>

namespace Velmora::Kvz {

namespace {

QString typeOf(const PortInfo &port)
{
    if (port.type != ValueType::Texture)
        return typeName(port.type);
    const QString kind = QStringLiteral("%1, %2").arg(typeName(port.type), toString(port.texture.kind));
    return port.texture.internalFormat ? QStringLiteral("%1, %2").arg(kind, formatName(port.texture.internalFormat))
                                       : kind;
}

/// A default as a chain file would hold it; "-" for none.
QString defaultOf(const QVariant &value)
{
    return value.isValid() ? describeValue(value) : QStringLiteral("-");
}

QString defaultOf(const OptionInfo &option)
{
    if (!option.fields.isEmpty())
        return QStringLiteral("[]");
    if (option.defaultValue.isValid() && !option.enumerators.isEmpty())
        return option.enumerators.value(option.defaultValue.toInt());
    return defaultOf(option.defaultValue);
}

/// What a pass has of one sort: inputs, outputs or options.
struct Table
{
    QString title;
    QStringList columns;
    int nameColumn;
    QVector<QStringList> rows;
};

Table inputsOf(const PassInfo &pass)
{
    Table table{QStringLiteral("Inputs"),
        {QStringLiteral("#"), QStringLiteral("input"), QStringLiteral("type"), QStringLiteral("default"),
            QStringLiteral("meaning")},
        1, {}};
    for (const InputInfo &input : pass.inputs) {
        QString meaning = input.description;
        if (input.required)
            meaning += QStringLiteral(" Required.");
        else if (!input.whenNull.isEmpty())
            meaning += QStringLiteral(" Null: %1.").arg(input.whenNull);
        table.rows.append(
            {QString::number(table.rows.size()), input.name, typeOf(input), defaultOf(input.defaultValue), meaning});
    }
    return table;
}

Table outputsOf(const PassInfo &pass)
{
    Table table{QStringLiteral("Outputs"),
        {QStringLiteral("#"), QStringLiteral("output"), QStringLiteral("type"), QStringLiteral("meaning")}, 1, {}};
    for (const OutputInfo &output : pass.outputs)
        table.rows.append({QString::number(table.rows.size()), output.name, typeOf(output), output.description});
    return table;
}

/// Rows of options, the fields of records below them under dotted names.
void appendOptionRows(const QVector<OptionInfo> &options, const QString &prefix, QVector<QStringList> *rows)
{
    for (const OptionInfo &option : options) {
        QString meaning = option.description;
        if (!option.enumerators.isEmpty())
            meaning += QStringLiteral(" One of %1.").arg(option.enumerators.join(QLatin1String(", ")));
        if (option.required)
            meaning += QStringLiteral(" Required.");
        const QString type = option.type == ValueType::Enumeration ? QStringLiteral("name or number")
            : option.type == ValueType::Records                    ? QStringLiteral("list of objects")
                                                                   : typeName(option.type);
        rows->append({prefix + option.name, type, defaultOf(option), meaning});
        appendOptionRows(option.fields, prefix + option.name + QLatin1Char('.'), rows);
    }
}

Table optionsOf(const PassInfo &pass)
{
    Table table{QStringLiteral("Options"),
        {QStringLiteral("option"), QStringLiteral("type"), QStringLiteral("default"), QStringLiteral("meaning")}, 0,
        {}};
    appendOptionRows(pass.options, QString(), &table.rows);
    return table;
}

/// In aligned columns below an empty line; nothing without rows.
void printAligned(const Table &table)
{
    if (table.rows.isEmpty())
        return;
    QVector<QStringList> lines{table.columns};
    lines += table.rows;
    for (QStringList &line : lines)
        line.prepend(QStringLiteral(" "));
    print(QString());
    print(formatTable(lines));
}

/// As the pages of the documentation have it; nothing without rows.
void printMarkdown(const Table &table)
{
    if (table.rows.isEmpty())
        return;
    const auto line = [](const QStringList &cells) {
        return QStringLiteral("| %1 |").arg(cells.join(QLatin1String(" | ")));
    };
    QStringList headings = table.columns;
    headings[table.nameColumn] = QStringLiteral("name");
    for (QString &heading : headings)
        heading[0] = heading[0].toUpper();
    print(QStringLiteral("### %1\n\n%2\n|%3")
              .arg(table.title, line(headings), QStringLiteral("---|").repeated(headings.size())));
    for (QStringList row : table.rows) {
        row[table.nameColumn] = QStringLiteral("`%1`").arg(row[table.nameColumn]);
        print(line(row.replaceInStrings(QStringLiteral("|"), QStringLiteral("\\|"))));
    }
    print(QString());
}

void describe(const PassInfo &pass)
{
    print(QStringLiteral("%1: %2").arg(pass.className, pass.summary));
    const QStringList traits = toStringList(pass.traits);
    if (!traits.isEmpty())
        print(QStringLiteral("Traits: %1").arg(traits.join(QLatin1String(", "))));
    printAligned(inputsOf(pass));
    printAligned(outputsOf(pass));
    if (pass.completePorts)
        print(QStringLiteral("\nIts options name further ports."));
    printAligned(optionsOf(pass));
}

void describeInMarkdown(const PassInfo &pass)
{
    for (const Table &table : {inputsOf(pass), outputsOf(pass), optionsOf(pass)})
        printMarkdown(table);
}

} // namespace

CommandSpec passesCommand()
{
    CommandSpec command;
    command.name = QStringLiteral("passes");
    command.summary = QStringLiteral("Lists the passes that chains are made of, or describes one.");
    command.detail = QStringLiteral("With a class, its inputs, outputs and options, as chain files name them.");
    command.argument.name = QStringLiteral("CLASS");
    command.argument.help = QStringLiteral("Class name of a pass.");
    command.argument.most = 1;
    command.argument.completion = Completion::Pass;
    command.examples = {
        {QStringLiteral("kvz passes"), QStringLiteral("all of them")},
        {QStringLiteral("kvz passes BlendRenderPass"), QStringLiteral("the ports and options of one")},
    };
    OptionSpec markdown;
    markdown.names = QStringList{QStringLiteral("markdown")};
    markdown.help = QStringLiteral("Prints the tables of CLASS as Markdown.");
    command.options = {markdown};
    return command;
}

int runPasses(const QStringList &arguments)
{
    QCommandLineParser parser;
    if (const auto status = parseCommandLine(passesCommand(), arguments, &parser))
        return *status;

    const PassRegistry &registry = PassRegistry::standard();
    if (!parser.positionalArguments().isEmpty()) {
        const QString name = parser.positionalArguments().constFirst();
        const PassInfo *pass = registry.find(name);
        if (!pass)
            return fail(
                QStringLiteral("no pass of class \"%1\"%2")
                    .arg(name, nearestNamesHint(name, registry.classNames(), QStringLiteral("see kvz passes"))));
        if (parser.isSet(QStringLiteral("markdown")))
            describeInMarkdown(*pass);
        else
            describe(*pass);
        return Success;
    }
    if (parser.isSet(QStringLiteral("markdown")))
        return failUsage(QStringLiteral("--markdown wants a CLASS"));
    QVector<QStringList> rows;
    for (const QString &name : registry.classNames())
        rows.append({name, registry.find(name)->summary});
    print(formatTable(rows));
    return Success;
}

} // namespace Velmora::Kvz
