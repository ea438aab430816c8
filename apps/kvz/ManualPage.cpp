// SPDX-License-Identifier: MIT
#include "Manual.h"

namespace Velmora::Kvz {

namespace {

/// Text as roff takes it: no character of it is a request or a hyphen to break at.
QString roff(QString text)
{
    text.replace(QLatin1Char('\\'), QStringLiteral("\\e"));
    text.replace(QLatin1Char('-'), QStringLiteral("\\-"));
    text.replace(QLatin1Char('\''), QStringLiteral("\\(aq"));
    text.replace(QLatin1Char('"'), QStringLiteral("\\(dq")); // As it is, it groups the arguments of a request.
    if (text.startsWith(QLatin1Char('.')))
        text.prepend(QStringLiteral("\\&"));
    return text;
}

QString paragraphs(const QString &text)
{
    QStringList list;
    for (const QString &paragraph : text.split(QStringLiteral("\n\n")))
        list.append(roff(paragraph));
    return list.join(QStringLiteral("\n.PP\n"));
}

/// Help is wrapped for --help, in parts of sentences; the page wraps by itself.
QString sentence(QString help)
{
    help.replace(QLatin1Char('\n'), QLatin1Char(' '));
    return help;
}

QString optionEntry(const OptionSpec &option)
{
    QStringList names;
    for (const QString &name : option.names) {
        QString text = QStringLiteral("\\fB%1\\fR").arg(roff(dashed(name)));
        if (!option.value.isEmpty())
            text += QStringLiteral(" \\fI%1\\fR").arg(roff(option.value));
        names.append(text);
    }
    QString text = sentence(option.help);
    if (option.isRequired)
        text += QStringLiteral(" Required.");
    if (!option.detail.isEmpty())
        text += QLatin1Char(' ') + option.detail;
    if (option.isRepeatable)
        text += QStringLiteral(" May be repeated.");
    return QStringLiteral(".TP\n%1\n%2\n").arg(names.join(QStringLiteral(", ")), roff(text));
}

QString commandSection(const CommandSpec &command)
{
    QString page = QStringLiteral(".SS \"%1\"\n%2\n").arg(roff(usageOf(command)), roff(command.summary));
    if (!command.detail.isEmpty())
        page += paragraphs(command.detail) + QLatin1Char('\n');
    if (!command.argument.name.isEmpty()) {
        page += QStringLiteral(".TP\n\\fI%1\\fR\n%2\n").arg(roff(command.argument.name), roff(command.argument.help));
    }
    for (const OptionSpec &option : command.options)
        page += optionEntry(option);
    return page;
}

} // namespace

QString manualPage(const QVector<CommandSpec> &commands, const QString &version)
{
    QString page = QStringLiteral(".\\\" Written by kvz manual.\n"
                                  ".TH KVZ 1 \"\" \"kvz %1\" \"User Commands\"\n"
                                  ".SH NAME\nkvz \\- render models through chains of OpenGL passes, without a window\n"
                                  ".SH SYNOPSIS\n")
                       .arg(roff(version));
    for (const CommandSpec &command : commands)
        page += QStringLiteral(".B %1\n.br\n").arg(roff(usageOf(command)));
    page += QStringLiteral(".SH DESCRIPTION\n")
        + roff(QStringLiteral(
            "kvz renders models into pictures. What is drawn, and how, is a chain: a list of passes whose ports are "
            "connected by name. Ready chains have names; others are files. It needs no window and no display, and runs "
            "on "
            "any OpenGL 3.2 driver, software included."))
        + QStringLiteral("\n.SH COMMANDS\n");
    for (const CommandSpec &command : commands)
        page += commandSection(withHelp(command));
    page += QStringLiteral(".SH EXAMPLES\n");
    for (const CommandSpec &command : commands) {
        for (const ExampleSpec &example : command.examples)
            page += QStringLiteral(".TP\n.B %1\n%2\n").arg(roff(example.line), roff(example.meaning));
    }
    page += QStringLiteral(
        ".SH EXIT STATUS\n"
        ".TP\n.B 0\nDone; there may have been warnings.\n"
        ".TP\n.B 1\nAn input, a value or the driver is unusable; one line on standard error says what, where "
        "and what to do.\n"
        ".TP\n.B 2\nThe command line is wrong.\n"
        ".PP\nResults go to standard output. Errors, which start with \"kvz: \", and warnings, which start "
        "with \"kvz: warning: \", go to standard error.\n");
    page += QStringLiteral(".SH ENVIRONMENT\n")
        + roff(QStringLiteral(
            "The context comes from EGL: on the display if there is one, else surfaceless, else on the first "
            "EGL device. Mesa's variables work as usual, such as LIBGL_ALWAYS_SOFTWARE=1. "
            "EGL_LOG_LEVEL=debug brings back the messages of Mesa's loader, which kvz silences."))
        + QLatin1Char('\n');
    return page;
}

} // namespace Velmora::Kvz
