// SPDX-License-Identifier: MIT
#include "Manual.h"

namespace Velmora::Kvz {

namespace {

// The lists start with a line of headings for chains, and with a class for passes.
const QString chainNames = QStringLiteral("kvz chains 2>/dev/null | awk 'NR > 1 {print $1}'");
const QString passNames = QStringLiteral("kvz passes 2>/dev/null | awk '{print $1}'");

QStringList optionNames(const CommandSpec &command)
{
    QStringList names;
    for (const OptionSpec &option : command.options) {
        for (const QString &name : option.names)
            names.append(dashed(name));
    }
    return names;
}

/// The text of --help in one line.
QString oneLine(QString help)
{
    return help.replace(QLatin1Char('\n'), QLatin1Char(' '));
}

// --- bash ----------------------------------------------------------------------------------------------------------

QString bashAction(Completion completion, const QStringList &words)
{
    switch (completion) {
    case Completion::File:
        return QStringLiteral("_kvz_files");
    case Completion::Folder:
        return QStringLiteral("_kvz_files -d");
    case Completion::Chain:
        return QStringLiteral("_kvz_files; _kvz_words \"$(%1)\"").arg(chainNames);
    case Completion::Pass:
        return QStringLiteral("_kvz_words \"$(%1)\"").arg(passNames);
    case Completion::Words:
        return QStringLiteral("_kvz_words '%1'").arg(words.join(QLatin1Char(' ')));
    case Completion::None:
        break;
    }
    return QStringLiteral(":");
}

QString bashScript(const QVector<CommandSpec> &commands)
{
    QStringList names{QStringLiteral("--help"), QStringLiteral("--version")};
    QString values;
    QString rest;
    for (const CommandSpec &command : commands) {
        names.append(command.name);
        for (const OptionSpec &option : command.options) {
            if (option.value.isEmpty())
                continue;
            QStringList patterns;
            for (const QString &name : option.names)
                patterns.append(QStringLiteral("'%1 %2'").arg(command.name, dashed(name)));
            values += QStringLiteral("    %1) %2; return ;;\n")
                          .arg(patterns.join(QLatin1Char('|')), bashAction(option.completion, option.words));
        }
        rest += QStringLiteral("    %1)\n"
                               "        if [[ $cur == -* ]]; then _kvz_words '%2'\n"
                               "        else %3\n"
                               "        fi ;;\n")
                    .arg(command.name, optionNames(command).join(QLatin1Char(' ')),
                        bashAction(command.argument.completion, command.argument.words));
    }
    return QStringLiteral(
        "# Completion of kvz for bash. Written by kvz completion bash.\n"
        "_kvz_words() { COMPREPLY+=($(compgen -W \"$1\" -- \"$cur\")); }\n"
        "_kvz_files()\n{\n"
        "    local IFS=$'\\n'\n"
        "    compopt -o filenames 2>/dev/null\n"
        "    COMPREPLY+=($(compgen \"${1:--f}\" -- \"$cur\"))\n"
        "}\n"
        "_kvz()\n{\n"
        "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} command=${COMP_WORDS[1]}\n"
        "    COMPREPLY=()\n"
        "    if ((COMP_CWORD == 1)); then _kvz_words '%1'; return; fi\n"
        "    case \"$command $prev\" in\n%2    esac\n"
        "    case $command in\n%3    esac\n"
        "}\n"
        "complete -F _kvz kvz\n")
        .arg(names.join(QLatin1Char(' ')), values, rest);
}

// --- zsh -----------------------------------------------------------------------------------------------------------

QString zshText(QString text)
{
    return text.replace(QLatin1Char('\''), QStringLiteral("'\\''"))
        .replace(QLatin1Char('['), QStringLiteral("\\["))
        .replace(QLatin1Char(']'), QStringLiteral("\\]"))
        .replace(QLatin1Char(':'), QStringLiteral("\\:"));
}

QString zshAction(Completion completion, const QStringList &words)
{
    switch (completion) {
    case Completion::File:
        return QStringLiteral("_files");
    case Completion::Folder:
        return QStringLiteral("_files -/");
    case Completion::Chain:
        return QStringLiteral("_kvz_chains");
    case Completion::Pass:
        return QStringLiteral("_kvz_passes");
    case Completion::Words:
        return QStringLiteral("(%1)").arg(words.join(QLatin1Char(' ')));
    case Completion::None:
        break;
    }
    return QStringLiteral(" ");
}

QString zshScript(const QVector<CommandSpec> &commands)
{
    QString list;
    QString cases;
    for (const CommandSpec &command : commands) {
        list += QStringLiteral("        '%1:%2'\n").arg(command.name, zshText(command.summary));
        QString specs;
        for (const OptionSpec &option : command.options) {
            const QString value = option.value.isEmpty()
                ? QString()
                : QStringLiteral(":%1:%2").arg(zshText(option.value), zshAction(option.completion, option.words));
            for (const QString &name : option.names) {
                specs += QStringLiteral(" \\\n            '%1%2[%3]%4'")
                             .arg(option.isRepeatable ? QStringLiteral("*") : QString(), dashed(name),
                                 zshText(oneLine(option.help)), value);
            }
        }
        if (!command.argument.name.isEmpty()) {
            specs += QStringLiteral(" \\\n            '%1:%2:%3'")
                         .arg(command.argument.most < 0 ? QStringLiteral("*") : QStringLiteral("1"),
                             command.argument.name, zshAction(command.argument.completion, command.argument.words));
        }
        cases += QStringLiteral("    %1)\n        _arguments%2 ;;\n").arg(command.name, specs);
    }
    return QStringLiteral("#compdef kvz\n"
                          "# Completion of kvz for zsh. Written by kvz completion zsh.\n"
                          "_kvz_chains() { compadd -- $(%1); _files -g '*.json'; }\n"
                          "_kvz_passes() { compadd -- $(%2); }\n"
                          "_kvz()\n{\n"
                          "    local -a commands\n"
                          "    commands=(\n%3    )\n"
                          "    if (( CURRENT == 2 )); then\n"
                          "        _describe command commands\n"
                          "        return\n"
                          "    fi\n"
                          "    shift words\n"
                          "    (( CURRENT-- ))\n"
                          "    case $words[1] in\n%4    esac\n"
                          "}\n"
                          "_kvz \"$@\"\n")
        .arg(chainNames, passNames, list, cases);
}

// --- fish ----------------------------------------------------------------------------------------------------------

QString fishText(QString text)
{
    return text.replace(QLatin1Char('\\'), QStringLiteral("\\\\")).replace(QLatin1Char('\''), QStringLiteral("\\'"));
}

/// What `complete` offers for a value or an argument.
QString fishAction(Completion completion, const QStringList &words)
{
    switch (completion) {
    case Completion::File:
        return QStringLiteral(" -F");
    case Completion::Folder:
        return QStringLiteral(" -f -a '(__fish_complete_directories)'");
    case Completion::Chain:
        return QStringLiteral(" -F -a '(%1)'").arg(fishText(chainNames));
    case Completion::Pass:
        return QStringLiteral(" -f -a '(%1)'").arg(fishText(passNames));
    case Completion::Words:
        return QStringLiteral(" -f -a '%1'").arg(words.join(QLatin1Char(' ')));
    case Completion::None:
        break;
    }
    return QStringLiteral(" -f");
}

QString fishScript(const QVector<CommandSpec> &commands)
{
    QString script = QStringLiteral("# Completion of kvz for fish. Written by kvz completion fish.\n"
                                    "complete -c kvz -f\n"
                                    "complete -c kvz -n __fish_use_subcommand -l help -d 'Prints help.'\n"
                                    "complete -c kvz -n __fish_use_subcommand -l version -d 'Prints the version.'\n");
    for (const CommandSpec &command : commands) {
        script += QStringLiteral("complete -c kvz -n __fish_use_subcommand -a %1 -d '%2'\n")
                      .arg(command.name, fishText(command.summary));
        const QString start = QStringLiteral("complete -c kvz -n '__fish_seen_subcommand_from %1'").arg(command.name);
        if (!command.argument.name.isEmpty())
            script += start + fishAction(command.argument.completion, command.argument.words) + QLatin1Char('\n');
        for (const OptionSpec &option : command.options) {
            script += start;
            for (const QString &name : option.names)
                script += (name.size() == 1 ? QStringLiteral(" -s ") : QStringLiteral(" -l ")) + name;
            if (!option.value.isEmpty())
                script += QStringLiteral(" -r") + fishAction(option.completion, option.words);
            script += QStringLiteral(" -d '%1'\n").arg(fishText(oneLine(option.help)));
        }
    }
    return script;
}

} // namespace

QStringList completionShells()
{
    return {QStringLiteral("bash"), QStringLiteral("zsh"), QStringLiteral("fish")};
}

QString completionScript(const QString &shell, const QVector<CommandSpec> &commands)
{
    QVector<CommandSpec> all;
    for (const CommandSpec &command : commands)
        all.append(withHelp(command));
    if (shell == QLatin1String("bash"))
        return bashScript(all);
    if (shell == QLatin1String("zsh"))
        return zshScript(all);
    return shell == QLatin1String("fish") ? fishScript(all) : QString();
}

} // namespace Velmora::Kvz
