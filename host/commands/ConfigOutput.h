// The forms in which `zdhost config` writes what it knows.
#pragma once

#include "config/Configuration.h"

namespace zd::host {

// Every setting in force.
void ShowConfiguration(const Configuration& configuration, bool json);

// The warnings alone; true where there are any.
bool ShowWarnings(const Configuration& configuration, bool json);

// The table of all settings that there are.
void ShowSettingTable(bool json);

}  // namespace zd::host
