// Arguments that several commands take.
#pragma once

#include <CLI/CLI.hpp>
#include <limits>
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

// Accepts a 32-bit number, decimal or hexadecimal; the text stays as it is.
inline CLI::Validator NumberValidator() {
    return CLI::Validator(
        [](std::string& text) {
            return ParseNumber(text, std::numeric_limits<std::uint32_t>::max())
                       ? std::string()
                       : "\"" + text + "\" is no number from 0 to 4294967295";
        },
        "");
}

}  // namespace zd
