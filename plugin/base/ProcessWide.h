// What all connections of the process share, one object a room. It is made when the library is loaded and taken apart
// when it is unloaded, but not when the process ends: threads that were cut off in the middle of their work may still
// hold locks then.
#pragma once

#include <cstddef>
#include <new>

namespace zd {

// Static storage without a static destructor, which would run at the end of the process too.
template <class State>
class CProcessWide {
public:
    State& Get() noexcept { return *std::launder(reinterpret_cast<State*>(m_bytes)); }

    // For the library's entry point, and for programs that link a room without it.
    void Create() { new (m_bytes) State; }
    void Destroy() noexcept { Get().~State(); }

private:
    alignas(State) std::byte m_bytes[sizeof(State)];
};

}  // namespace zd
