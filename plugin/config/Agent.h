// The storage agent: its directory and its type.
#pragma once

#include <windows.h>

#include <string>

#include "base/SharedString.h"

namespace zd {

// Agent types that keep the configuration files of pools in the pool list.
constexpr DWORD kFirstPoolAgent = 1;
constexpr DWORD kLastPoolAgent = 3;

// Finds the agent's directory, once per process: file names are appended to it as it stands.
void DiscoverAgentPath(bool formerMaker);
CWideString AgentPath();

// A path as the ini reader takes it: in the thread's code page, empty where it does not convert.
std::string AnsiPath(const std::wstring& path);

// The agent type, 0 when none is set.
DWORD ReadAgentType() noexcept;

}  // namespace zd
