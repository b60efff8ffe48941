#include "config/ConfigState.h"

namespace zd {

CConfigState::~CConfigState() {
    if (const HKEY key = m_settingsKey; key != nullptr) ::RegCloseKey(key);
}

}  // namespace zd
