// SPDX-License-Identifier: MIT
#include "Commands.h"
#include "Console.h"

#include <Chain/ChainLibrary.h>
#include <Chain/ChainValidation.h>
#include <Chain/ResolvedChain.h>
#include <Host/HeadlessContext.h>

namespace Velmora::Kvz {

int runCheck(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Prints what is wrong with a chain, one line per finding. Errors keep it from running\n"
                       "and make the exit status 1; warnings say that the picture is probably not what you\n"
                       "intended."));
    parser.addPositionalArgument(QStringLiteral("CHAIN"), QStringLiteral("Name of a ready chain, or a chain file."));
    const QCommandLineOption driver(
        QStringLiteral("driver"), QStringLiteral("Also says what this machine's OpenGL driver cannot run."));
    parser.addOption(driver);
    if (const auto status = parseCommandLine(&parser, arguments, 1, 1))
        return *status;

    const QString name = parser.positionalArguments().constFirst();
    QString error;
    ChainDescription chain;
    if (!loadChain(name, &chain, &error))
        return fail(error);
    const ResolvedChain resolved(chain);
    QVector<ChainFinding> findings = resolved.findings();
    if (parser.isSet(driver)) {
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
