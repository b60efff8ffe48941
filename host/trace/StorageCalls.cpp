#include "trace/StorageCalls.h"

#include <atomic>
#include <cstddef>
#include <cstring>

#include "hul.h"
#include "trace/CallScope.h"
#include "zdvfs.h"

namespace zd::host {

namespace {

std::atomic<CRecorder*> g_recorder = nullptr;

// Text as a template's argument: each name has a stand-in and an original of its own.
template <std::size_t kSize>
struct CText {
    // NOLINTNEXTLINE(google-explicit-constructor): a literal is to become one by itself
    consteval CText(const char (&literal)[kSize]) {
        for (std::size_t i = 0; i < kSize; ++i) text[i] = literal[i];
    }
    char text[kSize] = {};
};

template <CText kName>
void* g_original = nullptr;

CRecorder* Recorder() noexcept {
    return g_recorder.load(std::memory_order_relaxed);
}

// `kArguments` names the arguments as Fields.h tells.
template <CText kName, CText kArguments, EFailure kFailure, class Function>
struct CStandIn;

template <CText kName, CText kArguments, EFailure kFailure, class Result, class... Arguments>
struct CStandIn<kName, kArguments, kFailure, Result(Arguments...)> {
    static Result Call(Arguments... arguments) {
        const auto original = reinterpret_cast<Result (*)(Arguments...)>(g_original<kName>);
        CCallScope scope(Recorder(), kName.text);
        scope.Begin([&](TraceFields& in) { ReadFields(in, kArguments.text, EDirection::In, arguments...); });
        if constexpr (std::is_void_v<Result>) {
            original(arguments...);
            scope.End();
        } else {
            const Result result = original(arguments...);
            scope.End(kFailure, result,
                      [&](TraceFields& out) { ReadFields(out, kArguments.text, EDirection::Out, arguments...); });
            return result;
        }
    }
};

// ---- Control requests -------------------------------------------------------------------------------------------

constexpr std::size_t kForwardedSlots = 6;
using Slot = std::uint64_t;

// A request whose arguments are a value and its length.
bool TakesValue(int request) {
    switch (request) {
        case kZdvfsIoctlSetSegmentSize:
        case kZdvfsIoctlSetEncryption:
        case kZdvfsIoctlSetCompression:
        case kZdvfsIoctlTaskTime:
        case kZdvfsIoctlSyncFileCount:
        case kZdvfsIoctlSetStreamSegmentSize:
            return true;
        default:
            return false;
    }
}

// Arguments are shown where the request tells what they are. A caller from outside may name a request and hand over
// something else, so that its text is not followed.
void DescribeRequest(TraceFields& in, int descriptor, int request, const Slot* slots, bool followText) {
    in.push_back(NumberField("descriptor", descriptor));
    in.push_back(NumberField("request", request));
    if (slots == nullptr) return;
    if (TakesValue(request)) {
        in.push_back(NumberField("value", static_cast<std::int32_t>(slots[0])));
        in.push_back(NumberField("length", static_cast<std::int32_t>(slots[1])));
    } else if (request == kZdvfsIoctlSetStorageLocality && followText) {
        const auto* const text = reinterpret_cast<const char*>(slots[2]);
        in.push_back(text == nullptr ? NullField("locality") : TextField("locality", text));
    }
}

void NoOut(TraceFields& /*out*/) {}

// A caller with fewer arguments leaves slots of its own stack there, which the function does not look at either.
int IoctlStandIn(int descriptor, int request, Slot a, Slot b, Slot c, Slot d, Slot e, Slot f) {
    const auto original = reinterpret_cast<int (*)(int, int, ...)>(g_original<"ZdvfsIoctl">);
    const Slot slots[kForwardedSlots] = {a, b, c, d, e, f};
    CCallScope scope(Recorder(), "ZdvfsIoctl");
    scope.Begin([&](TraceFields& in) { DescribeRequest(in, descriptor, request, slots, /*followText=*/true); });
    const int result = original(descriptor, request, a, b, c, d, e, f);
    scope.End(EFailure::Negative, result, NoOut);
    return result;
}

int VIoctlStandIn(int descriptor, int request, va_list arguments) {
    const auto original = reinterpret_cast<int (*)(int, int, va_list)>(g_original<"ZdvfsVIoctl">);
    CCallScope scope(Recorder(), "ZdvfsVIoctl");
    scope.Begin([&](TraceFields& in) {
        Slot slots[2] = {};
        const bool given = arguments != nullptr && TakesValue(request);
        if (given) std::memcpy(slots, arguments, sizeof(slots));
        DescribeRequest(in, descriptor, request, given ? slots : nullptr, /*followText=*/false);
    });
    const int result = original(descriptor, request, arguments);
    scope.End(EFailure::Negative, result, NoOut);
    return result;
}

// The mount's block is shown by what the plug-in sets in it.
int MountStandIn(const char* version, void* block, std::uint32_t blockSize) {
    const auto original = reinterpret_cast<decltype(&MountStandIn)>(g_original<"ZdvfsMountV1">);
    CCallScope scope(Recorder(), "ZdvfsMountV1");
    scope.Begin([&](TraceFields& in) {
        const auto* const mount = static_cast<const ZdvfsMountBlock*>(block);
        ReadFields(in, "version", EDirection::In, version);
        if (mount == nullptr || blockSize != sizeof(*mount)) return;
        const auto* const pool = static_cast<const char*>(mount->poolName);
        const auto* const file = static_cast<const char*>(mount->configurationFile);
        ReadFields(in, "poolName,logLevel,syncFileCount,configurationFile", EDirection::In, pool, mount->logLevel,
                   mount->syncFileCount, file);
    });
    const int result = original(version, block, blockSize);
    scope.End(EFailure::Negative, result, NoOut);
    return result;
}

// ---- The table --------------------------------------------------------------------------------------------------

struct Row {
    std::string_view library;
    std::string_view function;
    CImportTable::Replacement replacement;
};

template <CText kName, CText kArguments, class Function, EFailure kFailure = EFailure::Negative>
Row Storage() {
    auto* const standIn = &CStandIn<kName, kArguments, kFailure, Function>::Call;
    return Row{"zdvfs.dll", kName.text, {reinterpret_cast<void*>(standIn), &g_original<kName>}};
}

template <CText kName, CText kArguments, class Function>
Row Utility() {
    auto* const standIn = &CStandIn<kName, kArguments, EFailure::None, Function>::Call;
    return Row{"hul.dll", kName.text, {reinterpret_cast<void*>(standIn), &g_original<kName>}};
}

template <CText kName, class Function>
Row Special(Function* standIn) {
    return Row{"zdvfs.dll", kName.text, {reinterpret_cast<void*>(standIn), &g_original<kName>}};
}

const std::vector<Row>& Rows() {
    static const std::vector<Row> rows = {
        Special<"ZdvfsMountV1">(&MountStandIn),
        Special<"ZdvfsIoctl">(&IoctlStandIn),
        Special<"ZdvfsVIoctl">(&VIoctlStandIn),
        Storage<"ZdvfsUmount", "poolName", decltype(::ZdvfsUmount)>(),
        Storage<"ZdvfsOpen", "path,flags:x,mode:x", decltype(::ZdvfsOpen)>(),
        Storage<"ZdvfsClose", "descriptor", decltype(::ZdvfsClose)>(),
        Storage<"ZdvfsPread", "descriptor,,length,offset", decltype(::ZdvfsPread)>(),
        Storage<"ZdvfsPwrite", "descriptor,,length,offset", decltype(::ZdvfsPwrite)>(),
        Storage<"ZdvfsAppend", "target,length,sourceOffset,source,flags", decltype(::ZdvfsAppend)>(),
        Storage<"ZdvfsLseek", "descriptor,offset,whence", decltype(::ZdvfsLseek)>(),
        Storage<"ZdvfsFtruncate", "descriptor,size", decltype(::ZdvfsFtruncate)>(),
        Storage<"ZdvfsStat", "path,>record", decltype(::ZdvfsStat)>(),
        Storage<"ZdvfsFstat", "descriptor,>record", decltype(::ZdvfsFstat)>(),
        Storage<"ZdvfsStatvfs", "path,>record", decltype(::ZdvfsStatvfs)>(),
        Storage<"ZdvfsOpendir", "path", decltype(::ZdvfsOpendir), EFailure::Null>(),
        Storage<"ZdvfsOpendirForList", "path,refresh", decltype(::ZdvfsOpendirForList), EFailure::Null>(),
        Storage<"ZdvfsReaddir", "directory", decltype(::ZdvfsReaddir), EFailure::NullWithErrno>(),
        Storage<"ZdvfsClosedir", "directory", decltype(::ZdvfsClosedir)>(),
        Storage<"ZdvfsMkdir", "path,mode:x", decltype(::ZdvfsMkdir)>(),
        Storage<"ZdvfsUnlink", "path", decltype(::ZdvfsUnlink)>(),
        Storage<"ZdvfsRename", "oldPath,newPath", decltype(::ZdvfsRename)>(),
        Storage<"ZdvfsChmod", "path,mode:x", decltype(::ZdvfsChmod)>(),
        Storage<"ZdvfsUtime", "path,times", decltype(::ZdvfsUtime)>(),
        Storage<"ZdvfsGetNTAclStr", "path,>text,size", decltype(::ZdvfsGetNTAclStr), EFailure::NotZero>(),
        Storage<"ZdvfsFgetNTAclStr", "descriptor,>text,size", decltype(::ZdvfsFgetNTAclStr), EFailure::NotZero>(),
        Storage<"ZdvfsGetDsidNTAclStr", "path,>text,size,>flag", decltype(::ZdvfsGetDsidNTAclStr), EFailure::NotZero>(),
        Storage<"ZdvfsFgetDsidNTAclStr", "descriptor,>text,size,>flag", decltype(::ZdvfsFgetDsidNTAclStr),
                EFailure::NotZero>(),
        Storage<"ZdvfsSetNTAclStr", "path,text", decltype(::ZdvfsSetNTAclStr), EFailure::NotZero>(),
        Storage<"ZdvfsFsetNTAclStr", "descriptor,text", decltype(::ZdvfsFsetNTAclStr), EFailure::NotZero>(),
        Utility<"InifileGetValueA", "file,section,key,defaultValue,>value,size", decltype(::InifileGetValueA)>(),
        Utility<"InifileGetIntegerA", "file,section,key,defaultValue", decltype(::InifileGetIntegerA)>(),
        Utility<"InifileReleaseA", "file", decltype(::InifileReleaseA)>(),
        Utility<"wcstoutf8_malloced", "text", decltype(::wcstoutf8_malloced)>(),
        Utility<"wcstoutf8_buf", "text,,size", decltype(::wcstoutf8_buf)>(),
        Utility<"_HulFree", "memory", decltype(::_HulFree)>(),
    };
    return rows;
}

bool SameLibrary(std::string_view left, std::string_view right) {
    return left.size() == right.size() && ::_strnicmp(left.data(), right.data(), left.size()) == 0;
}

}  // namespace

void RecordStorageCallsIn(CRecorder* recorder) noexcept {
    g_recorder.store(recorder, std::memory_order_relaxed);
}

CImportTable::Replacement StandInFor(std::string_view library, std::string_view function) {
    for (const Row& row : Rows()) {
        if (row.function == function && SameLibrary(row.library, library)) return row.replacement;
    }
    return {};
}

}  // namespace zd::host
