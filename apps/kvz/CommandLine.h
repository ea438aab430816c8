// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QCommandLineParser>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

#include <optional>

namespace Velmora::Kvz {

/// What a shell offers for a value.
enum class Completion { None, File, Folder, Chain, Pass, Words };

/// An option of a command: all that the parser, --help, the manual page and the shells know of it.
struct OptionSpec
{
    QStringList names; ///< Without dashes, a single letter first.
    QString value; ///< What stands for its value in texts; empty for a switch.
    QString help; ///< What --help says: a line or a few, each fitting beside the names.
    QString detail; ///< What the manual page adds, in whole sentences.
    QString standard; ///< The value that holds where the option is not given.
    Completion completion = Completion::None;
    QStringList words; ///< Of Completion::Words.
    bool isRepeatable = false;
    bool isRequired = false; ///< Told in the usage; the command refuses to run without it.

    /// The longest of its names, with dashes.
    QString longName() const;
};

/// An option by its names, apart by commas, what stands for its value (empty for a switch), and the two texts.
OptionSpec optionSpec(const char *names, const char *value, const char *help, const char *detail = "");
/// Words, apart by spaces.
QStringList wordList(const char *text);

/// The arguments of a command that are not options.
struct ArgumentSpec
{
    QString name; ///< Empty: the command takes none.
    QString help;
    int least = 0;
    int most = 0; ///< Below 0: any number.
    Completion completion = Completion::None;
    QStringList words; ///< Of Completion::Words.
};

struct ExampleSpec
{
    QString line; ///< As it is typed, "kvz" included.
    QString meaning; ///< A few words; empty where the line says it.
};

/// A command of the program.
struct CommandSpec
{
    QString name;
    QString summary; ///< One line, with a full stop.
    QString detail; ///< What the manual page adds; paragraphs apart by an empty line.
    ArgumentSpec argument;
    QVector<ExampleSpec> examples;
    QVector<OptionSpec> options; ///< Without --help, which all commands have.
};

/// The command with what all of them have: --help.
CommandSpec withHelp(CommandSpec command);

/// The name of an option as it is typed, with one dash or two.
QString dashed(const QString &name);

/// How the command is written, such as "kvz check CHAIN [options]".
QString usageOf(const CommandSpec &command);

/// What `kvz COMMAND --help` prints: at most 80 columns wide, examples first.
QString helpOf(const CommandSpec &command);

/// Reads the arguments of a command, the program's name first. A value is the exit status of a command that is already done,
/// because help or an error was printed.
std::optional<int> parseCommandLine(
    const CommandSpec &command, const QStringList &arguments, QCommandLineParser *parser);

} // namespace Velmora::Kvz
