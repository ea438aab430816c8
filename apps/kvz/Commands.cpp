// SPDX-License-Identifier: MIT
#include "Commands.h"

namespace Velmora::Kvz {

QVector<Command> allCommands()
{
    return {
        {renderCommand(), runRender},
        {checkCommand(), runCheck},
        {passesCommand(), runPasses},
        {chainsCommand(), runChains},
        {infoCommand(), runInfo},
        {formatsCommand(), runFormats},
        {manualCommand(), runManual},
        {completionCommand(), runCompletion},
    };
}

} // namespace Velmora::Kvz
