#include "Script.h"

#include "CommandLine.h"
#include "Lines.h"
#include "text/Failure.h"
#include "text/Interrupt.h"

namespace zd::host {

int RunScript(CommandContext& context, bool keepGoing) {
    CommandContext inner{context.session, context.quiet, /*standardInputFree=*/false};
    int status = kExitOk;
    for (CInputLines lines; lines.Next();) {
        CheckInterrupted();
        int result = kExitFailed;
        bool fatal = false;
        try {
            result = RunLine(lines.Text(), inner, lines.Where(), &RunScriptCommand);
        } catch (const CFatalFailure&) {
            fatal = true;
        }
        if (status == kExitOk) status = result;
        if (fatal || (result != kExitOk && !keepGoing)) return status;
    }
    return status;
}

}  // namespace zd::host
