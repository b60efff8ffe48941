// Names that one side can hold and the other cannot.
#pragma once

#include <string>

namespace zd::host {

// Why an entry of the pool cannot have its name in a local directory, or would stand elsewhere than in that directory;
// empty where it can.
std::string WhyNotLocal(const std::wstring& name);

// Why a local entry cannot have its name in the pool, or would not be a file of its own there; empty where it can.
std::string WhyNotRemote(const std::wstring& name);

}  // namespace zd::host
