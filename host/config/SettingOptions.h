// The table of settings (ZdvfsSettings.h) as zdhost offers and shows it.
#pragma once

#include <span>
#include <string>

#include "ZdvfsSettings.h"

namespace zd::host {

namespace settings = zdvfs::settings;
using settings::Setting;

// An option of `zdhost setup`.
struct SettingOption {
    const Setting& setting;
    const char* option;
    const char* shownAs;  // its argument in the help
};

// Those of all values of the keys ZDVFS and Agent, in the order in which settings are listed.
std::span<const SettingOption> SettingOptions();

// The option of `zdhost setup` that writes the setting; null where there is none.
const char* OptionOf(const Setting& setting);

const settings::Description& DescriptionOf(const Setting& setting);

// The name in UTF-8.
inline std::string NameOf(const Setting& setting) {
    return setting.name.narrow;
}

// "1 to 4294967295"; empty for texts.
std::string RangeOf(const Setting& setting);

// "51200 (50 GiB); so does 0".
std::string StandardOf(const settings::Description& description);

}  // namespace zd::host
