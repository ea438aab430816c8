// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "Console.h"

#include <Chain/NearestNames.h>

#include <QtCore/QCoreApplication>

#include <algorithm>
#include <vector>

using namespace Velmora::Kvz;

namespace {

struct Command
{
    const char *name;
    const char *summary;
    int (*run)(const QStringList &arguments);
};

const Command commands[] = {
    {"render", "Renders a model through a chain of passes into a picture.", runRender},
    {"check", "Says what is wrong with a chain, without rendering.", runCheck},
    {"passes", "Lists the passes that chains are made of, or describes one.", runPasses},
    {"chains", "Lists the ready chains, or prints one as a file to start from.", runChains},
    {"info", "Says what a model file holds.", runInfo},
    {"formats", "Lists the types of files that are read and written.", runFormats},
};

QString helpText()
{
    QVector<QStringList> rows;
    for (const Command &command : commands)
        rows.append({QStringLiteral(" "), QLatin1String(command.name), QLatin1String(command.summary)});
    return QStringLiteral("Usage: kvz COMMAND [options]\n"
                          "Renders models through chains of OpenGL passes, without a window.\n\n"
                          "Commands:\n%1\n\n"
                          "kvz COMMAND --help explains each of them; kvz --version prints the version.\n\n%2")
        .arg(formatTable(rows), exitStatusHelp());
}

QStringList commandNames()
{
    QStringList names;
    for (const Command &command : commands)
        names.append(QLatin1String(command.name));
    return names;
}

} // namespace

int main(int argc, char **argv)
{
    // Without a driver Mesa's loader prints its own errors; the program gives the reason in one line instead.
    if (!qEnvironmentVariableIsSet("EGL_LOG_LEVEL"))
        qputenv("EGL_LOG_LEVEL", "fatal");
    installMessageHandler();

    const QString first = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    const auto command = std::find_if(
        std::begin(commands), std::end(commands), [&](const Command &c) { return first == QLatin1String(c.name); });
    const bool known = command != std::end(commands);

    // Help texts name the program by the first argument, so that includes the command.
    QByteArray programName = known ? QByteArray("kvz ") + command->name : QByteArray("kvz");
    std::vector<char *> remaining{programName.data()};
    remaining.insert(remaining.end(), argv + std::min(argc, known ? 2 : 1), argv + argc);
    remaining.push_back(nullptr);
    int count = int(remaining.size()) - 1;
    QCoreApplication application(count, remaining.data());
    QCoreApplication::setApplicationName(QStringLiteral("kvz"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KVZ_VERSION));

    if (known)
        return command->run(QCoreApplication::arguments());
    if (first == QLatin1String("--help") || first == QLatin1String("-h")) {
        print(helpText());
        return Success;
    }
    if (first == QLatin1String("--version")) {
        print(QStringLiteral("kvz %1").arg(QCoreApplication::applicationVersion()));
        return Success;
    }
    if (first.isEmpty())
        return failUsage(QStringLiteral("a command is missing"));
    return failUsage(QStringLiteral("unknown command \"%1\"%2").arg(first, nearestNamesHint(first, commandNames())));
}
