#define _CRT_RAND_S  // before the first header, which decides whether rand_s is declared
#include <stdlib.h>
#include <time.h>

#include "base/Format.h"
#include "protocol/ProtocolManager.h"

namespace zd {

std::wstring CProtocolManager::ZdGetRandomTag() {
    try {
        // The seed has no influence on rand_s; hosts see both calls made.
        ::srand(static_cast<unsigned>(::_time64(nullptr)));
        unsigned number = 0;
        ::rand_s(&number);
        const std::string text = FormatText("%6d", static_cast<int>(number));
        return std::wstring(text.begin(), text.end());
    } catch (...) {
        return {};
    }
}

}  // namespace zd
