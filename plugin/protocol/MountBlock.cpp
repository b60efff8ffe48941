#include "protocol/MountBlock.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "log/Log.h"

namespace zd {

void ForwardToLog(std::uint32_t level, const char* message) {
    LogText(static_cast<std::int32_t>(level), message);
}

char* DuplicateText(const char* text) {
    char* const copy = ::_strdup(text);
    if (copy == nullptr) throw std::bad_alloc();
    return copy;
}

void FreeWords(ZdvfsMountBlock& block) noexcept {
    for (char** word : {&block.configurationFile, &block.secondName, &block.thirdName, &block.agentKind}) {
        std::free(std::exchange(*word, nullptr));
    }
}

}  // namespace zd
