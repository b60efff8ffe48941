// Control requests that the engine in memory understands beyond the contract.
#pragma once

namespace zd::memory {

// An int follows. 0: transfers inside a file answer as ever but move no bytes, so that the cost of the calls above them
// shows at every size. 1, as at the beginning: they move them.
inline constexpr int kMemoryIoctlMoveBytes = 0x5A440003;

// (const char* path, std::int64_t count) follow: the empty directory of that path shows `count` generated entries from
// then on; 0 takes them away.
inline constexpr int kMemoryIoctlGenerate = 0x5A440004;

}  // namespace zd::memory
