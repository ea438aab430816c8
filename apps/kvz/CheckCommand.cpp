// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "Console.h"

#include <Chain/ChainLibrary.h>
#include <Chain/ChainValidation.h>
#include <Chain/ResolvedChain.h>
#include <Host/HeadlessContext.h>

namespace Velmora::Kvz {

CommandSpec checkCommand()
{
    CommandSpec command;
    command.name = QStringLiteral("check");
    command.summary = QStringLiteral("Says what is wrong with a chain, without rendering.");
    command.detail = QStringLiteral("One line for each finding. Errors keep the chain from running and make the exit "
                                    "status 1; warnings say that the "
                                    "picture is probably not what you intended.");
    command.argument.name = QStringLiteral("CHAIN");
    command.argument.help = QStringLiteral("Name of a ready chain, or a chain file.");
    command.argument.least = 1;
    command.argument.most = 1;
    command.argument.completion = Completion::Chain;
    command.examples = {
        {QStringLiteral("kvz check my-chain.json"), QStringLiteral("what keeps it from running")},
        {QStringLiteral("kvz check full --driver"), QStringLiteral("whether this machine can run it")},
    };
    command.options = {optionSpec("driver", "", "Also says what this machine's OpenGL driver cannot run.",
        "And whether shaders of the chain's own compile, and their uniforms and its inputs fit.")};
    return command;
}

int runCheck(const QStringList &arguments)
{
    QCommandLineParser parser;
    if (const auto status = parseCommandLine(checkCommand(), arguments, &parser))
        return *status;

    const QString name = parser.positionalArguments().constFirst();
    QString error;
    ChainDescription chain;
    if (!loadChain(name, &chain, &error))
        return fail(error);
    const ResolvedChain resolved(chain);
    QVector<ChainFinding> findings = resolved.findings();
    if (parser.isSet(QStringLiteral("driver"))) {
        const auto context = HeadlessContext::create(&error);
        if (!context)
            return fail(QStringLiteral("no usable OpenGL driver: %1").arg(error));
        findings += validateChainOnDriver(resolved);
    }
    for (const ChainFinding &finding : qAsConst(findings))
        print(QStringLiteral("%1: %2").arg(name, finding.toString()));
    // A host may take the exports alone.
    const bool isSeen = hasErrors(findings) || resolved.presents() || !chain.exports.isEmpty();
    if (!isSeen) {
        print(QStringLiteral("%1: warning: no enabled pass presents a picture, and nothing is exported; add a "
                             "TextureToScreenRenderPass or \"exports\"")
                  .arg(name));
    }
    if (findings.isEmpty() && isSeen) {
        print(QStringLiteral("%1: nothing wrong with its %2 %3")
                  .arg(name, QString::number(chain.passes.size()),
                      chain.passes.size() == 1 ? QStringLiteral("pass") : QStringLiteral("passes")));
    }
    return hasErrors(findings) ? BadInput : Success;
}

} // namespace Velmora::Kvz
