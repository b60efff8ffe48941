#include "Generated.h"

#include <charconv>
#include <cstring>

namespace zd::memory {
namespace {

constexpr std::string_view kPrefix = "document-";
constexpr std::size_t kDigits = 9;
constexpr std::string_view kSuffix = ".dat";
constexpr std::string_view kFragmentSuffix = ".dat;F1";
constexpr std::int64_t kFragmentEvery = 10;
// A prime: stepping by it reaches every number below a count that it does not divide.
constexpr std::int64_t kStep = 7'368'787;

bool IsFragment(std::int64_t number) noexcept {
    return number % kFragmentEvery == kFragmentEvery - 1;
}

}  // namespace

std::size_t GeneratedName(std::int64_t count, std::int64_t place, char* name) noexcept {
    const std::int64_t number = place * kStep % count;
    const bool isFragment = IsFragment(number);
    std::memcpy(name, kPrefix.data(), kPrefix.size());
    char* digit = name + kPrefix.size() + kDigits;
    for (std::int64_t rest = isFragment ? number - 1 : number; digit != name + kPrefix.size(); rest /= 10) {
        *--digit = static_cast<char>('0' + rest % 10);
    }
    const std::string_view suffix = isFragment ? kFragmentSuffix : kSuffix;
    std::memcpy(digit + kDigits, suffix.data(), suffix.size());
    return kPrefix.size() + kDigits + suffix.size();
}

bool IsGeneratedName(std::int64_t count, std::string_view name) noexcept {
    if (!name.starts_with(kPrefix) || name.size() < kPrefix.size() + kDigits) return false;
    const char* const digits = name.data() + kPrefix.size();
    std::int64_t number = 0;
    if (std::from_chars(digits, digits + kDigits, number).ptr != digits + kDigits) return false;
    const std::string_view suffix = name.substr(kPrefix.size() + kDigits);
    if (suffix == kFragmentSuffix) return number + 1 < count && IsFragment(number + 1);
    return suffix == kSuffix && number < count && !IsFragment(number);
}

}  // namespace zd::memory
