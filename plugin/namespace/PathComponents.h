// The components of a path, of a host's name as well as of a storage path.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

namespace zd {

// What parts the components: in a host's name both, in a storage path the slash alone.
constexpr bool IsSeparator(wchar_t unit) noexcept {
    return unit == L'\\' || unit == L'/';
}
constexpr bool IsSeparator(char unit) noexcept {
    return unit == '/';
}

template <class Char>
using CPathComponents = std::vector<std::basic_string_view<Char>>;

// The components as they are written, without empty ones.
template <class Char>
CPathComponents<Char> ComponentsOf(std::basic_string_view<Char> path) {
    CPathComponents<Char> components;
    while (!path.empty()) {
        const auto end = std::find_if(path.begin(), path.end(), [](Char unit) { return IsSeparator(unit); });
        const auto length = static_cast<std::size_t>(end - path.begin());
        if (length > 0) components.push_back(path.substr(0, length));
        path.remove_prefix(std::min(length + 1, path.size()));
    }
    return components;
}

// Whether a component is "." or "..", and which of the two.
template <class Char>
constexpr bool IsDot(std::basic_string_view<Char> component) noexcept {
    return component.size() == 1 && component[0] == Char{'.'};
}
template <class Char>
constexpr bool IsDotDot(std::basic_string_view<Char> component) noexcept {
    return component.size() == 2 && component[0] == Char{'.'} && component[1] == Char{'.'};
}

template <class Char>
bool HasDotComponents(std::basic_string_view<Char> path) {
    const CPathComponents<Char> components = ComponentsOf(path);
    return std::any_of(components.begin(), components.end(),
                       [](auto component) { return IsDot(component) || IsDotDot(component); });
}

// The components with "." and ".." resolved, as the storage would resolve them. The first `kept` of them stay whatever
// "..": of a storage path, 1, the pool's name.
template <class Char>
CPathComponents<Char> ResolvedComponents(std::basic_string_view<Char> path, std::size_t kept) {
    CPathComponents<Char> resolved;
    for (const auto component : ComponentsOf(path)) {
        if (IsDot(component)) continue;
        if (!IsDotDot(component)) {
            resolved.push_back(component);
        } else if (resolved.size() > kept) {
            resolved.pop_back();
        }
    }
    return resolved;
}

}  // namespace zd
