// Owners of storage descriptors, directory streams and texts of the conversion library. They are used while failures
// are on their way, so whatever the storage library lets through stays here.
#pragma once

#include "base/UniqueHandle.h"
#include "hul.h"
#include "zdvfs.h"

namespace zd {

constexpr int kNoDescriptor = -1;

struct CDescriptorTraits {
    using Raw = int;
    static Raw Empty() noexcept { return kNoDescriptor; }
    static bool IsValid(Raw raw) noexcept { return raw >= 0; }
    static void Close(Raw raw) noexcept {
        try {
            ::ZdvfsClose(raw);
        } catch (...) {
            // The descriptor is gone either way.
        }
    }
};
using CUniqueDescriptor = CUniqueHandle<CDescriptorTraits>;

struct CDirectoryTraits {
    using Raw = ZdvfsDirectory*;
    static Raw Empty() noexcept { return nullptr; }
    static bool IsValid(Raw raw) noexcept { return raw != nullptr; }
    static void Close(Raw raw) noexcept {
        try {
            ::ZdvfsClosedir(raw);
        } catch (...) {
            // The stream is gone either way.
        }
    }
};
using CUniqueDirectory = CUniqueHandle<CDirectoryTraits>;

struct CHulGiver {
    static void Give(char* text) noexcept {
        try {
            ::_HulFree(text);
        } catch (...) {
            // The failure on its way is the one to report.
        }
    }
};
using CUniqueHulText = CUniqueHandle<CPointerTraits<char*, CHulGiver>>;

}  // namespace zd
