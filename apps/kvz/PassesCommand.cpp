// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "Console.h"

#include <Chain/PassRegistry.h>

namespace Velmora::Kvz {

namespace {

const QString indent = QStringLiteral(" ");

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

QVector<QStringList> inputRows(const PassInfo &pass)
{
    QVector<QStringList> rows{{indent, QStringLiteral("#"), QStringLiteral("input"), QStringLiteral("type"),
        QStringLiteral("default"), QStringLiteral("meaning")}};
    for (int i = 0; i < pass.inputs.size(); ++i) {
        const InputInfo &input = pass.inputs[i];
        QString meaning = input.description;
        if (input.required)
            meaning += QStringLiteral(" Required.");
        else if (!input.whenNull.isEmpty())
            meaning += QStringLiteral(" Null: %1.").arg(input.whenNull);
        rows.append({indent, QString::number(i), input.name, typeOf(input), defaultOf(input.defaultValue), meaning});
    }
    return rows;
}

QVector<QStringList> outputRows(const PassInfo &pass)
{
    QVector<QStringList> rows{
        {indent, QStringLiteral("#"), QStringLiteral("output"), QStringLiteral("type"), QStringLiteral("meaning")}};
    for (int i = 0; i < pass.outputs.size(); ++i) {
        const OutputInfo &output = pass.outputs[i];
        rows.append({indent, QString::number(i), output.name, typeOf(output), output.description});
    }
    return rows;
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
        rows->append({indent, prefix + option.name, type,
            option.fields.isEmpty() ? defaultOf(option.defaultValue) : QStringLiteral("[]"), meaning});
        appendOptionRows(option.fields, prefix + option.name + QLatin1Char('.'), rows);
    }
}

void printSection(const QVector<QStringList> &rows)
{
    print(QString());
    print(formatTable(rows));
}

void describe(const PassInfo &pass)
{
    print(QStringLiteral("%1: %2").arg(pass.className, pass.summary));
    const QStringList traits = toStringList(pass.traits);
    if (!traits.isEmpty())
        print(QStringLiteral("Traits: %1").arg(traits.join(QLatin1String(", "))));
    if (!pass.inputs.isEmpty())
        printSection(inputRows(pass));
    if (!pass.outputs.isEmpty())
        printSection(outputRows(pass));
    if (pass.completePorts)
        print(QStringLiteral("\nIts options name further ports."));
    if (!pass.options.isEmpty()) {
        QVector<QStringList> rows{{indent, QStringLiteral("option"), QStringLiteral("type"), QStringLiteral("default"),
            QStringLiteral("meaning")}};
        appendOptionRows(pass.options, QString(), &rows);
        printSection(rows);
    }
}

} // namespace

int runPasses(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Lists the passes that chains are made of, or describes one: its inputs, outputs\n"
                       "and options, as chain files name them."));
    parser.addPositionalArgument(
        QStringLiteral("CLASS"), QStringLiteral("Class name of a pass."), QStringLiteral("[CLASS]"));
    if (const auto status = parseCommandLine(&parser, arguments, 0, 1))
        return *status;

    const PassRegistry &registry = PassRegistry::standard();
    if (!parser.positionalArguments().isEmpty()) {
        const QString name = parser.positionalArguments().constFirst();
        const PassInfo *pass = registry.find(name);
        if (!pass)
            return fail(
                QStringLiteral("no pass of class \"%1\"%2")
                    .arg(name, nearestNamesHint(name, registry.classNames(), QStringLiteral("see kvz passes"))));
        describe(*pass);
        return Success;
    }
    QVector<QStringList> rows;
    for (const QString &name : registry.classNames())
        rows.append({name, registry.find(name)->summary});
    print(formatTable(rows));
    return Success;
}

} // namespace Velmora::Kvz
