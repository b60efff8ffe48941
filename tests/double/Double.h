// Control of the recording double of the storage client library and of the utility library.
//
// The double is a zdvfs.dll and a hul.dll that keep everything in memory, write down every call, and fail, shorten,
// throw or call back where a test says so. A test loads both DLLs, looks up "DoubleControl" in the first and
// "HulDoubleControl" in the second, and works through the two interfaces below; tests/harness does that in its
// fixtures. DLLs and tests are built with one compiler over one C runtime, so standard types cross the border.
//
// Threads: every function may be called from several threads at once. Callbacks run on the thread of the call they
// belong to, with none of the double's locks held.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

struct ZdvfsVolumeRecord;

namespace zd::test {

// ---- Calls ------------------------------------------------------------------------------------------------------

// One call made to the double. Line() shows it as it is compared by tests:
//   ZdvfsOpen("/pool/a.txt", 0x302, 0x20) = 3
//   ZdvfsPwrite(3, 100, 0) = 100                          buffers and records are left out
//   ZdvfsIoctl(3, 46, null, 0, "vm1", 0, 32) = 0          the arguments behind the request by CDoubleControl's shapes
//   ZdvfsMountV1("6.0.0.0", block{...}, 5344) = 0
//   ZdvfsOpendir("/pool") = dir1                          streams are numbered from 1, never reused
//   ZdvfsReaddir(dir1) = "a.txt"                          null at the end
//   ZdvfsGetDsidNTAclStr("/pool/a.txt", 16384, 1) = 0     the flag on the way in
//   wcstoutf8_malloced("a.txt") = block1                  blocks are numbered from 1, never reused
struct Call {
    std::uint64_t order = 0;      // counts from 1 over both DLLs; never reused
    std::string function;         // "ZdvfsOpen"
    std::string arguments;        // as shown between the parentheses
    std::string result;           // as shown behind " = "; empty for a void function, "..." while the call runs
    std::string path;             // the object's path without leading slash, by name or through its descriptor
    int descriptor = -1;          // the descriptor argument, or the one that ZdvfsOpen answered
    std::int64_t value = 0;       // the result as a number; a pointer's address
    int error = 0;                // errno as the call left it
    std::uint32_t lastError = 0;  // the thread's last error as the call left it
    std::uint32_t threadId = 0;
    std::vector<std::uint8_t> data;  // the first 8192 bytes given to ZdvfsPwrite or ZdvfsMountV1
    std::string textOut;             // the text that an Acl query answered
    int flagOut = 0;                 // the flag that a Dsid query answered

    std::string Line() const {
        return function + "(" + arguments + ")" + (result.empty() ? std::string() : " = " + result);
    }
};

// ---- Rules ------------------------------------------------------------------------------------------------------

enum class EThrow { kNothing, kBadAlloc, kRuntimeError, kUnsignedLong };

// What shall happen in calls of one function. Built with OnCall:
//   control.Add(OnCall("ZdvfsOpen").ForPath("pool/a.txt").OnNth(2).Fails(ENOSPC));
//   control.Add(OnCall("ZdvfsPwrite").ShortenTo(10));
//   control.Add(OnCall("ZdvfsPread").OnNth(1).Answers(0));
//   control.Add(OnCall("ZdvfsStat").FailsSilently().WithLastError(1234));
//   control.Add(OnCall("ZdvfsClose").Throws(EThrow::kRuntimeError).WithLastError(31));
//   control.Add(OnCall("ZdvfsPwrite").Before([&](const Call&) { blocked.Wait(); }));
//   control.Add(OnCall("ZdvfsOpen").WithLastError(5));      // performed; success leaves a stale last error behind
// Several rules may apply to one call; the later one wins where they contradict each other.
struct Rule {
    std::string function;                    // "*" stands for every function
    std::string path;                        // empty: any
    int nth = 0;                             // 0: every matching call; n: the n-th one after the rule was added
    int seen = 0;                            // matching calls so far
    std::optional<std::int64_t> result;      // set: the call is not carried out
    std::optional<int> error;                // errno that is left behind
    std::optional<std::uint32_t> lastError;  // last error that is left behind
    std::optional<std::int64_t> cap;         // most bytes that a read, write or append moves
    EThrow thrown = EThrow::kNothing;
    unsigned long thrownCode = 0;
    std::function<void(const Call&)> before;
    std::function<void(const Call&)> after;

    Rule& ForPath(std::string text) { return path = std::move(text), *this; }
    Rule& OnNth(int number) { return nth = number, *this; }

    // The call answers -1 (null) and sets errno; the last error is the one that belongs to `code`, or WithLastError's.
    Rule& Fails(int code) { return result = -1, error = code, *this; }
    Rule& Fails(int code, std::uint32_t last) { return Fails(code).WithLastError(last); }
    // The call answers -1 (null) and leaves errno and last error as they were.
    Rule& FailsSilently() { return result = -1, *this; }
    // The call is not carried out and answers `value`; a pointer answer is null.
    Rule& Answers(std::int64_t value) { return result = value, *this; }
    // The call is carried out for at most `bytes`.
    Rule& ShortenTo(std::int64_t bytes) { return cap = bytes, *this; }
    // The call throws instead of answering: std::bad_alloc, std::runtime_error or `code`.
    Rule& Throws(EThrow what, unsigned long code = 0) { return thrown = what, thrownCode = code, *this; }
    Rule& WithErrno(int code) { return error = code, *this; }
    Rule& WithLastError(std::uint32_t code) { return lastError = code, *this; }
    // Runs in the call before it is carried out (the call's result is "..." then), or after it.
    Rule& Before(std::function<void(const Call&)> callback) { return before = std::move(callback), *this; }
    Rule& After(std::function<void(const Call&)> callback) { return after = std::move(callback), *this; }
};

inline Rule OnCall(std::string function) {
    Rule rule;
    rule.function = std::move(function);
    return rule;
}

// ---- The store --------------------------------------------------------------------------------------------------

// What the store keeps of an object beside its bytes. Times are seconds since 1970-01-01 UTC.
struct NodeState {
    bool directory = false;
    std::uint16_t attributes = 0;
    std::uint32_t mode = 0;  // 0x41FF for directories and 0x81FF for files unless set
    std::int64_t size = 0;
    std::int64_t accessTime = 0;
    std::int64_t modificationTime = 0;
    std::int64_t creationTime = 0;
    std::string sddl;                     // what the plain queries answer; empty: nothing stored
    std::optional<std::string> dsidText;  // what the Dsid queries answer; unset: `sddl`
    std::optional<int> dsidFlag;          // the flag they answer; unset: 1 where the text is empty, else 0
};

struct OpenDescriptor {
    int number = -1;
    std::string path;  // without leading slash
    int flags = 0;
    std::int64_t position = 0;
};

struct ICallBook;  // where calls of both DLLs are written down

// Paths of the functions below may begin with slashes or without. The plug-in reaches only objects in pools that are
// mounted; these functions reach all.
class IDoubleControl {
public:
    // Rules apply to the functions of both DLLs.
    virtual void Add(const Rule& rule) = 0;
    virtual void ClearRules() = 0;

    // The calls since the last ClearCalls, in the order in which they began; those of hul.dll among them.
    virtual std::vector<Call> Calls() = 0;
    virtual void ClearCalls() = 0;
    // Calls of a function since the last ClearCalls.
    virtual std::size_t Count(const std::string& function) = 0;
    // From now on each call's line is also appended to that file when the call ends; empty: no longer. For processes
    // that end inside a call.
    virtual void MirrorTo(const std::wstring& file) = 0;

    // Make an object, its missing parents included. An existing file is replaced, an existing directory stays. A size
    // beyond the content reads as zero and takes no memory; -1 is the size of the content. New objects have attributes
    // 0x20 (a directory 0x10) and all times 1700000000.
    virtual void MakeFile(const std::string& path, const std::string& content = std::string(),
                          std::int64_t size = -1) = 0;
    virtual void MakeDirectory(const std::string& path) = 0;
    virtual void Remove(const std::string& path) = 0;

    virtual bool Exists(const std::string& path) = 0;
    // The state of an object; all zero where it is missing. SetState takes everything but `directory` and `size`, and
    // makes nothing: a missing object is ignored and answers false.
    virtual NodeState State(const std::string& path) = 0;
    virtual bool SetState(const std::string& path, const NodeState& state) = 0;
    // Up to `length` bytes from `offset`; the whole file by default.
    virtual std::string Bytes(const std::string& path, std::int64_t offset = 0, std::int64_t length = -1) = 0;
    // Names in the order of creation, without "." and "..".
    virtual std::vector<std::string> Names(const std::string& directory) = 0;
    // What a stream on the directory answers from now on, taken as it stands ("." and ".." too); an empty list puts
    // the directory's own entries back.
    virtual void SetListing(const std::string& directory, const std::vector<std::string>& names) = 0;

    virtual std::vector<OpenDescriptor> OpenDescriptors() = 0;
    virtual std::vector<std::string> OpenStreams() = 0;  // their paths
    // Calls so far that named a descriptor or stream which was not open; a negative descriptor does not count.
    virtual int BadDescriptorUses() = 0;
    virtual void SetNextDescriptor(int number) = 0;

    // Pools and how often each is mounted, and the address of the block of its last mount (null where not mounted).
    virtual std::map<std::string, int> Mounts() = 0;
    virtual void* MountBlock(const std::string& pool) = 0;
    virtual void SetVolume(const ZdvfsVolumeRecord& record) = 0;

    // The arguments behind a control request as they are shown and read: one letter each, i (int), u (unsigned, shown
    // in hex), l (64-bit), p (pointer, shown as null or ptr), s (text). Requests without a shape show none.
    virtual void SetIoctlShape(int request, const std::string& shape) = 0;

    virtual ICallBook* Book() = 0;

protected:
    ~IDoubleControl() = default;
};

class IHulControl {
public:
    // Writes the calls of hul.dll into the other DLL's book, in one order with its calls.
    virtual void UseBook(ICallBook* book) = 0;

    // The value of a key of an ini file; sections and keys compare as they are written. Loose keys belong to
    // "__dummy__section__".
    virtual void SetValue(const std::string& file, const std::string& section, const std::string& key,
                          const std::string& value) = 0;
    virtual void RemoveValue(const std::string& file, const std::string& section, const std::string& key) = 0;

    // Blocks handed out by wcstoutf8_malloced and not freed yet.
    virtual int LiveBlocks() = 0;
    // Calls of _HulFree for an address that is no live block; such a call frees nothing.
    virtual int BadFrees() = 0;

protected:
    ~IHulControl() = default;
};

using DoubleControlFunction = IDoubleControl* (*)();
using HulDoubleControlFunction = IHulControl* (*)();

}  // namespace zd::test
