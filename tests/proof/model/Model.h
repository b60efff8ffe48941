// What the share must look like after each step, kept as plain strings.
//
// The model knows nothing of storage calls. Of fragments it knows only how long each is, because that decides which
// sizes a handle sees. A handle keeps the size that the file had when it was opened or that its own calls gave it; see
// ModelTest.cpp for what follows where several handles change one file's size.
#pragma once

#include <windows.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Names.h"
#include "Script.h"

namespace zd::test {

struct ModelObject {
    std::wstring name;
    bool directory = false;
    std::string content;
    std::int64_t fragment = 0;  // bytes of each stored fragment but the last
    std::uint64_t attributes = 0;
    std::string descriptor;
    std::optional<std::uint64_t> access;  // FILETIMEs that were set and cannot have changed since
    std::optional<std::uint64_t> write;

    std::int64_t Size() const { return static_cast<std::int64_t>(content.size()); }
    std::int64_t Fragments() const;
};
using ModelPointer = std::shared_ptr<ModelObject>;

// A file's storage names and sizes at the time when a directory was opened for listing.
using StorageNames = std::vector<std::pair<std::wstring, std::int64_t>>;  // file, number of fragment

struct ModelHandle {
    ModelPointer object;
    bool readable = false;
    bool writable = false;
    std::int64_t fragment = 0;
    std::int64_t view = 0;  // the file's size as this handle knows it
    bool stale = false;     // may hold descriptors of fragments that another handle removed; a stream read in part
    bool removed = false;   // the object was removed through this handle
    bool orphan = false;    // the object was removed otherwise
    bool streamOpen = false;
    bool showsDots = false;  // "." and ".." were not read from the stream yet
    StorageNames listed;

    std::int64_t Fragments() const;
};

struct ListedEntry {
    std::int64_t size = 0;
    bool directory = false;
    std::optional<std::uint64_t> attributes;
};
using ListedEntries = std::map<std::wstring, ListedEntry, NameOrder>;

// What a step must bring.
struct Expected {
    bool skipped = false;         // nothing is promised for it, so it is not done
    std::vector<DWORD> codes{0};  // one of these
    std::string data;             // of a read
    std::int64_t size = -1;       // in information records; -1: not told
    DWORD action = 0;
    ListedEntries entries;
    std::string descriptor;
    ModelPointer object;  // the object concerned, as it is after the step
    std::int64_t from = 0;
    std::int64_t to = 0;  // the bytes to look at
    bool changed = false;

    bool Succeeds() const { return codes.front() == 0; }
};

class CModel {
public:
    // `sid`: the caller's, who becomes the owner of objects without a descriptor when it is asked for.
    CModel(const Setup& setup, std::string sid);

    Expected Apply(const Step& step);

    const std::map<std::wstring, ModelPointer>& Objects() const { return m_objects; }
    const std::map<std::int64_t, ModelHandle>& Handles() const { return m_handles; }
    ModelPointer Find(const std::wstring& name) const;
    std::int64_t ConfiguredFragment() const { return m_setup.megabytes * 1048576; }
    // The handle sees at least the fragments that there are, and holds none that are gone.
    static bool IsUsable(const ModelHandle& handle);
    // The handle sees exactly the fragments that there are.
    static bool IsCurrent(const ModelHandle& handle);
    // Bytes that a read through the handle can reach.
    static std::int64_t Visible(const ModelHandle& handle);

private:
    // The dispatch's cases. `args` are the step's.
    using Args = std::array<std::int64_t, 6>;
    Expected Plant(const Args& args);
    Expected Open(const Args& args);
    Expected OpenDir(const Args& args);
    Expected Close(const Args& args);
    Expected Remove(ModelHandle& handle);
    Expected Release(const Args& args);
    Expected Read(const Args& args);
    Expected Write(const Args& args);
    Expected Size(const Args& args);
    Expected Append(const Args& args);
    Expected Rename(const Args& args);
    Expected Info(const Args& args) const;
    Expected Path(const Args& args) const;
    Expected List(const Args& args);
    Expected Basic(const Args& args);
    Expected SetSecurity(const Args& args);
    Expected GetSecurity(const Args& args);
    Expected DropHandles();

    ModelHandle* HandleOf(std::int64_t slot);
    const ModelHandle* HandleOf(std::int64_t slot) const;
    // A handle that data operations work on; where not, `expected` is what they answer.
    ModelHandle* DataHandle(std::int64_t slot, Expected& expected);
    ModelHandle& NewHandle(std::int64_t slot, const ModelPointer& object);
    ModelPointer NewObject(const std::wstring& name, bool directory, std::uint64_t attributes, std::int64_t descriptor);
    // Why an object cannot be made or moved there: codes, or none.
    std::vector<DWORD> ParentFailure(const std::wstring& name) const;
    bool HasChildren(const std::wstring& name) const;
    bool HasOpenChildren(const std::wstring& name) const;
    // The file's fragments from `keep` on are gone: others may still hold them.
    void Shrunk(const ModelObject& object, std::int64_t keep, const ModelHandle* by);
    void Detach(const ModelPointer& object, const ModelHandle* by);
    static bool AddsBehindACut(const ModelHandle& handle, std::int64_t index);
    void PutBytes(ModelHandle& handle, std::int64_t at, const std::string& bytes);
    void TouchData(ModelObject& object) const;
    void MoveTree(const std::wstring& from, const std::wstring& to);
    Expected Replace(const ModelHandle& handle, const std::wstring& target);

    Setup m_setup;
    std::string m_sid;
    std::map<std::wstring, ModelPointer> m_objects;  // without the root
    std::map<std::int64_t, ModelHandle> m_handles;
    ModelPointer m_root;
};

// A failure of one of these codes / a step that is not done.
Expected Fails(std::vector<DWORD> codes);
Expected Skipped();

}  // namespace zd::test
