// SPDX-License-Identifier: MIT
// What the program says about itself: help, the manual page, completions, and its page of the documentation.
#include "KvzRun.h"
#include "support/TemporaryFolder.h"

#include <Chain/ChainLibrary.h>
#include <Chain/PassRegistry.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>
#include <QtCore/QStandardPaths>

namespace Velmora::Kvz {

namespace {

const QStringList commands{"render", "check", "passes", "chains", "manual", "completion"};

/// The long options that a command's help lists.
QStringList optionsOf(const QString &command)
{
    static const QRegularExpression option("^  (?:-\\w, )?(--[a-z][a-z-]*)", QRegularExpression::MultilineOption);
    QStringList names;
    auto matches = option.globalMatch(run({command, "--help"}).output);
    while (matches.hasNext())
        names.append(matches.next().captured(1));
    return names;
}

/// Runs a program of the system with this input.
Result runOther(const QString &program, const QStringList &arguments, const QString &input = QString())
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("PATH", QFileInfo(QStringLiteral(KVZ_PROGRAM)).path() + ":" + environment.value("PATH"));
    environment.insert("LC_ALL", "C.UTF-8");
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    process.write(input.toUtf8());
    process.closeWriteChannel();
    Result result;
    if (process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit)
        result.status = process.exitCode();
    result.output = QString::fromUtf8(process.readAllStandardOutput());
    result.errors = linesOf(QString::fromUtf8(process.readAllStandardError()));
    return result;
}

/// What bash offers for a command line whose last word is being typed.
QStringList completedByBash(const QStringList &words)
{
    QStringList quoted;
    for (const QString &word : words)
        quoted.append("'" + word + "'");
    const QString script =
        QStringLiteral("%1\nCOMP_WORDS=(%2); COMP_CWORD=%3; _kvz; printf '%s\\n' \"${COMPREPLY[@]}\"")
            .arg(run({"completion", "bash"}).output, quoted.join(' '))
            .arg(words.size() - 1);
    const Result result = runOther("bash", {"--norc", "-c", script});
    EXPECT_EQ(result.errors, QStringList()) << words.join(' ').toStdString();
    return linesOf(result.output);
}

} // namespace

TEST(KvzHelpTest, helpFitsAScreenWithExamplesFirst)
{
    for (const QString &command : QStringList{QString()} + commands) {
        const QString help = run(command.isEmpty() ? QStringList{"--help"} : QStringList{command, "--help"}).output;
        const QStringList lines = help.split('\n');
        EXPECT_LE(lines.size(), 50) << command.toStdString();
        EXPECT_GT(lines.size(), 5) << command.toStdString();
        for (const QString &line : lines)
            EXPECT_LE(line.size(), 80) << line.toStdString();
        EXPECT_EQ(lines.indexOf("Examples:"), 3) << help.toStdString();
        EXPECT_TRUE(lines[4].startsWith("  ") && lines[4].contains("kvz ")) << help.toStdString();
    }
}

TEST(KvzHelpTest, theProgramListsItsCommands)
{
    const QString help = run({"--help"}).output;
    for (const QString &command : commands)
        EXPECT_TRUE(
            help.contains(QRegularExpression("^  " + command + "  +[A-Z]", QRegularExpression::MultilineOption)))
            << command.toStdString();
    EXPECT_EQ(run({"help"}).output, help);
    EXPECT_EQ(run({"help", "check"}).output, run({"check", "--help"}).output);
    EXPECT_EQ(run({"-h"}).output, help);
    // Help is printed whatever else is on the command line.
    EXPECT_EQ(run({"render", "--colour", "--help"}).output, run({"render", "--help"}).output);
}

TEST(KvzHelpTest, misspeltNamesAreAnsweredWithTheNearest)
{
    expectLine({"render", "a.obj", "--chian", "full", "-o", "x.png"}, 2,
        "unknown option \"--chian\"; did you mean \"--chain\"? (see kvz render --help)");
    expectLine(
        {"render", "a.obj", "--turntable", "-o", "x.png"}, 2, "unknown option \"--turntable\" (see kvz render --help)");
    expectLine({"render", "a.obj", "-x", "-o", "x.png"}, 2, "unknown option \"-x\" (see kvz render --help)");
    expectLine({"check", "--drivers", "full"}, 2,
        "unknown option \"--drivers\"; did you mean \"--driver\"? (see kvz check --help)");
    const QString model = QStringLiteral(KVZ_SOURCE_DIR "/Media/Models/still-life.obj");
    expectLine({model}, 2,
        "\"" + model + "\" is a file, not a command; kvz render " + model + " -o out.png draws it (see kvz --help)");
    expectLine({"chain"}, 2, "unknown command \"chain\"; did you mean \"chains\"? (see kvz --help)");
    expectLine({"help", "rendr"}, 2, "unknown command \"rendr\"; did you mean \"render\"? (see kvz --help)");
    expectLine({"chains", "fulll"}, 1, "no chain named \"fulll\"; did you mean \"full\"?");
    expectLine({"completion", "fishy"}, 1, "no completion for \"fishy\"; did you mean \"fish\"?");
}

TEST(KvzHelpTest, chainsSayWhatTheyAreForAndCost)
{
    const QStringList lines = linesOf(run({"chains"}).output);
    EXPECT_TRUE(QRegularExpression("^chain +passes  images$").match(lines[0]).hasMatch()) << lines[0].toStdString();
    EXPECT_EQ(lines.size(), 1 + readyChainNames().size());
    const QString deferred = lines.filter(QRegularExpression("^deferred ")).value(0);
    // Gradient, six of the geometry, shading, layers, and the picture.
    EXPECT_TRUE(QRegularExpression("^deferred +6 +10  A model").match(deferred).hasMatch()) << deferred.toStdString();
}

TEST(KvzHelpTest, theManualPageIsCleanAndHasEveryOption)
{
    const QString page = run({"manual"}).output;
    // groff warns about what it does not understand.
    const Result shown = runOther("groff", {"-man", "-Tutf8", "-ww", "-P-cbou", "-rLL=100n"}, page);
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.errors, QStringList());
    EXPECT_TRUE(shown.output.contains("KVZ(1)"));
    for (const QString &command : commands) {
        EXPECT_TRUE(shown.output.contains("kvz " + command)) << command.toStdString();
        for (const QString &option : optionsOf(command))
            EXPECT_TRUE(shown.output.contains(QRegularExpression("\\s" + option + "\\b"))) << option.toStdString();
    }
    EXPECT_TRUE(shown.output.contains("--frames 36 --orbit 10 -o 'car-{frame:02}.png'")) << "typed as it is";
    EXPECT_TRUE(shown.output.contains("eval \"$(kvz completion bash)\"")) << "its quotes group no words of the page's";
}

TEST(KvzHelpTest, thePageOfTheDocumentationHasEveryOption)
{
    QFile page(QStringLiteral(KVZ_SOURCE_DIR "/docs/kvz.md"));
    ASSERT_TRUE(page.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(page.readAll());
    QStringList told;
    static const QRegularExpression row("^\\| `(?:-\\w`, `)?(--[a-z][a-z-]*)", QRegularExpression::MultilineOption);
    auto rows = row.globalMatch(text);
    while (rows.hasNext())
        told.append(rows.next().captured(1));
    QStringList known = optionsOf("render");
    EXPECT_GT(known.size(), 15);
    known.removeOne("--help");
    known.sort();
    told.sort();
    EXPECT_EQ(told, known);
    for (const QString &command : commands)
        EXPECT_TRUE(text.contains("\n## " + command + "\n")) << command.toStdString();
}

TEST(KvzHelpTest, bashCompletes)
{
    EXPECT_EQ(completedByBash({"kvz", "ch"}), (QStringList{"check", "chains"}));
    EXPECT_EQ(completedByBash({"kvz", "render", "--s"}), (QStringList{"--size", "--samples", "--set"}));
    EXPECT_EQ(completedByBash({"kvz", "render", "a.obj", "--chain", "smaa-1"}), QStringList("smaa-1x"));
    EXPECT_EQ(completedByBash({"kvz", "check", "temp"}), QStringList("temporal"));
    EXPECT_EQ(completedByBash({"kvz", "passes", "Gradient"}), QStringList("GradientRenderPass"));
    EXPECT_EQ(completedByBash({"kvz", "render", "--camera", "bo"}), QStringList("bottom"));
    EXPECT_EQ(completedByBash({"kvz", "completion", ""}), (QStringList{"bash", "zsh", "fish"}));
    EXPECT_EQ(completedByBash({"kvz", "render", "/usr/share/glmark2/models/bunny.o"}),
        QStringList("/usr/share/glmark2/models/bunny.obj"));
    // All options, and nothing else.
    QStringList all = completedByBash({"kvz", "render", "--"});
    all.sort();
    QStringList known = optionsOf("render");
    known.sort();
    EXPECT_EQ(all, known);
}

TEST(KvzHelpTest, zshAndFishTakeTheirCompletions)
{
    TemporaryFolder folder;
    const QString zsh = run({"completion", "zsh"}).output;
    EXPECT_TRUE(zsh.startsWith("#compdef kvz\n"));
    EXPECT_EQ(runOther("zsh", {"-f", "-n"}, zsh).status, 0);
    EXPECT_EQ(runOther("zsh", {"-f", "-n"}, zsh).errors, QStringList());
    const QString fish = run({"completion", "fish"}).output;
    const QString ask = fish + "\ncomplete -C'%1'\n";
    const auto completed = [&](const QString &line) {
        const Result result = runOther("fish", {"--no-config"}, ask.arg(line));
        EXPECT_EQ(result.errors, QStringList());
        QStringList words;
        for (const QString &offer : linesOf(result.output))
            words.append(offer.section('\t', 0, 0));
        words.sort();
        return words;
    };
    EXPECT_EQ(completed("kvz ch"), (QStringList{"chains", "check"}));
    EXPECT_EQ(completed("kvz render --s"), (QStringList{"--samples", "--set", "--size"}));
    EXPECT_EQ(completed("kvz render --chain smaa-1"), QStringList("smaa-1x"));
    EXPECT_EQ(completed("kvz passes Gradient"), QStringList("GradientRenderPass"));
    for (const QString &command : commands) {
        for (const QString &option : optionsOf(command)) {
            EXPECT_TRUE(zsh.contains("'" + option + "[") || zsh.contains("'*" + option + "[")) << option.toStdString();
            EXPECT_TRUE(fish.contains(" -l " + option.mid(2) + " ")) << option.toStdString();
        }
    }
}

} // namespace Velmora::Kvz
