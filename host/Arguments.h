// Arguments that several commands take.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "Text.h"

namespace zd {

// Accepts a size or an offset; the text stays as it is and is read with SizeOf.
inline CLI::Validator SizeValidator() {
    return CLI::Validator(
        [](std::string& text) {
            return ParseSize(text) ? std::string()
                                   : "\"" + text + "\" is no size: a number from 0 on, with K, M, G or T behind it";
        },
        "");
}

// Text that SizeValidator has accepted.
inline std::int64_t SizeOf(const std::string& text) {
    return ParseSize(text).value();
}

}  // namespace zd
