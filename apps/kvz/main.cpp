// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "Console.h"

#include <Chain/NearestNames.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFileInfo>

#include <algorithm>
#include <vector>

using namespace Velmora::Kvz;

namespace {

QString helpText(const QVector<Command> &commands)
{
    QVector<QStringList> rows;
    for (const Command &command : commands)
        rows.append({QString(), command.spec.name, command.spec.summary});
    return QStringLiteral("Usage: kvz COMMAND [options]\n"
                          "Renders models through chains of OpenGL passes, without a window.\n\n"
                          "Examples:\n"
                          "  kvz render car.glb -o car.png\n"
                          "  kvz render --help\n\n"
                          "Commands:\n%1\n\n"
                          "kvz COMMAND --help explains each of them; kvz --version prints the version.\n\n%2")
        .arg(formatTable(rows), exitStatusHelp());
}

} // namespace

int main(int argc, char **argv)
{
    // Without a driver Mesa's loader prints its own errors; the program gives the reason in one line instead.
    if (!qEnvironmentVariableIsSet("EGL_LOG_LEVEL"))
        qputenv("EGL_LOG_LEVEL", "fatal");
    installMessageHandler();

    const QVector<Command> commands = allCommands();
    // "kvz help render" is "kvz render --help".
    std::vector<char *> given(argv + std::min(argc, 1), argv + argc);
    char help[] = "--help";
    if (!given.empty() && qstrcmp(given[0], "help") == 0) {
        given.erase(given.begin());
        given.resize(std::min<size_t>(given.size(), 1));
        given.push_back(help);
    }
    const QString first = given.empty() ? QString() : QString::fromLocal8Bit(given[0]);
    const auto command =
        std::find_if(commands.begin(), commands.end(), [&](const Command &c) { return first == c.spec.name; });
    const bool known = command != commands.end();

    // Help texts name the program by the first argument, so that includes the command.
    QByteArray programName = known ? QByteArray("kvz ") + command->spec.name.toUtf8() : QByteArray("kvz");
    std::vector<char *> remaining{programName.data()};
    remaining.insert(remaining.end(), given.begin() + (known ? 1 : 0), given.end());
    remaining.push_back(nullptr);
    int count = int(remaining.size()) - 1;
    QCoreApplication application(count, remaining.data());
    QCoreApplication::setApplicationName(QStringLiteral("kvz"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KVZ_VERSION));

    if (known)
        return command->run(QCoreApplication::arguments());
    if (first == QLatin1String("--help") || first == QLatin1String("-h")) {
        print(helpText(commands));
        return Success;
    }
    if (first == QLatin1String("--version")) {
        print(QStringLiteral("kvz %1").arg(QCoreApplication::applicationVersion()));
        return Success;
    }
    if (first.isEmpty())
        return failUsage(QStringLiteral("a command is missing"));
    if (QFileInfo(first).isFile())
        return failUsage(
            QStringLiteral("\"%1\" is a file, not a command; kvz render %1 -o out.png draws it").arg(first));
    QStringList names;
    for (const Command &each : commands)
        names.append(each.spec.name);
    return failUsage(QStringLiteral("unknown command \"%1\"%2").arg(first, nearestNamesHint(first, names)));
}
