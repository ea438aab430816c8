// SPDX-License-Identifier: MIT
#include <Chain/checks/ChainChecks.h>

#include <Chain/ResolvedPasses.h>
#include <Chain/checks/ConnectionCheck.h>
#include <Chain/checks/InputCheck.h>
#include <Chain/checks/OrderCheck.h>
#include <Chain/checks/PassCheck.h>

#include <algorithm>

namespace Velmora::Kvz {

QVector<ChainFinding> checkChain(const ResolvedPasses &passes)
{
    QVector<ChainFinding> findings;
    PassCheck pass(passes, &findings);
    ConnectionCheck connections(passes, &findings);
    InputCheck inputs(passes, &findings);
    OrderCheck order(passes, &findings);

    if (passes.size() == 0)
        pass.reportEmptyChain();
    for (int i = 0; i < passes.size(); ++i) {
        pass.checkName(i);
        if (!pass.checkClass(i))
            continue;
        pass.checkOptions(i);
        pass.checkValues(i);
        connections.checkConnections(i);
        if (passes[i].enabled) {
            inputs.checkInputs(i);
            inputs.checkRules(i);
        }
    }
    connections.checkExports();
    order.checkRoles();
    order.checkLights();
    std::stable_sort(findings.begin(), findings.end(),
        [](const ChainFinding &a, const ChainFinding &b) { return a.severity < b.severity; });
    return findings;
}

} // namespace Velmora::Kvz
