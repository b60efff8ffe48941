#include <windows.h>

#include <exception>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "text/Failure.h"
#include "text/Interrupt.h"
#include "text/Output.h"
#include "text/Text.h"

int wmain(int count, wchar_t** words) {
    try {
        zd::host::PrepareStreams();
        // Whatever a storage library loads by name alone comes from the program's or the system's folder, never from
        // the current one or from PATH.
        if (::SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_DEFAULT_DIRS) == FALSE) {
            zd::host::ThrowFailure("choosing the folders of libraries", ::GetLastError(), {});
        }
        zd::host::CatchInterrupts();
        std::vector<std::string> arguments;
        for (int i = 1; i < count; ++i) arguments.push_back(zd::host::ToUtf8(words[i]));
        return zd::host::RunCommandLine(arguments);
    } catch (const std::exception& error) {
        zd::host::WriteError(error.what());
        return zd::host::kExitFailed;
    }
}
