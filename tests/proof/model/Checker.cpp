#include "Checker.h"

#include <algorithm>
#include <set>
#include <sstream>
#include <stdexcept>

#include "Storage.h"

namespace zd::test {

namespace {

constexpr std::int64_t kAround = 40;  // bytes looked at on both sides of what a step touched
constexpr std::int64_t kMostLookedAt = 1 << 18;
constexpr std::uint64_t kSecond = 10000000;
constexpr std::uint64_t kDoubleCreation = (1700000000ULL + 11644473600ULL) * kSecond;

template <class... Parts>
[[noreturn]] void Differ(const Parts&... parts) {
    std::ostringstream text;
    (text << ... << parts);
    throw std::runtime_error(text.str());
}

template <class Value>
void Same(const std::string& what, const Value& expected, const Value& found) {
    if (expected != found) Differ(what, ": expected ", expected, ", found ", found);
}

void SameBytes(const std::string& what, std::int64_t at, std::string_view expected, std::string_view found) {
    if (expected == found) return;
    const auto [wanted, got] = std::mismatch(expected.begin(), expected.end(), found.begin(), found.end());
    const std::int64_t place = at + (wanted - expected.begin());
    Differ(what, ": expected ", expected.size(), " bytes from ", at, ", found ", found.size(), "; they differ at byte ",
           place, wanted == expected.end() || got == found.end() ? " (one ends there)" : "");
}

std::string_view Part(const std::string& content, std::int64_t from, std::int64_t to) {
    if (from >= to) return {};
    return std::string_view(content).substr(static_cast<std::size_t>(from), static_cast<std::size_t>(to - from));
}

std::uint64_t Now() {
    FILETIME now;
    ::GetSystemTimeAsFileTime(&now);
    return (static_cast<std::uint64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
}

std::string Shown(const ModelObject& object) {
    return Narrow(object.name);
}

std::string Canonical(const std::string& sddl) {
    return sddl.empty() ? sddl : SddlOf(CDescriptor(sddl).Raw());
}

}  // namespace

CChecker::CChecker(CShare& share, const CModel& model, const Setup& setup)
    : m_share(share), m_model(model), m_localEngine(setup.localEngine != 0), m_begun(Now()) {}

void CChecker::CheckCreationTime(std::uint64_t time, const ModelObject& object) {
    if (!m_localEngine) return Same("creation time of " + Shown(object), kDoubleCreation, time);
    const auto [seen, isNew] = m_created.try_emplace(m_model.Find(object.name), time);
    if (!isNew) return Same("creation time of " + Shown(object), seen->second, time);
    // An earlier process may have made it.
    if (time > Now() || time + 3600 * kSecond < m_begun) Differ("creation time of ", Shown(object), " is ", time);
}

void CChecker::CheckInformation(const FileInformation& information, const ModelObject& object, std::int64_t size,
                                bool timesJustSet) {
    const std::string of = " of " + Shown(object);
    Same("size" + of, static_cast<std::uint64_t>(size), information.size);
    Same("directory bit" + of, object.directory, (information.mode & 0x4000) != 0);
    Same("change time" + of, information.lastWriteTime, information.changeTime);
    if (object.name == L"\\") return;
    Same("attributes" + of, object.attributes, information.attributes);
    // On a disk, changes in a directory move its time, and reading moves access times.
    if (object.write && (!m_localEngine || !object.directory)) {
        Same("last write time" + of, *object.write, information.lastWriteTime);
    }
    if (object.access && (!m_localEngine || timesJustSet)) {
        Same("last access time" + of, *object.access, information.lastAccessTime);
    }
    CheckCreationTime(information.creationTime, object);
}

void CChecker::CheckShownName(const Step& step, const Outcome& outcome, const ModelObject& object) {
    if (step.op == EOp::kPath) return;
    const bool keepsSlash = step.op == EOp::kInfo && ParentOf(object.name) == L"\\";
    const std::wstring expected = keepsSlash ? object.name : LeafOf(object.name);
    Same("name in the record", Narrow(expected), Narrow(outcome.information.name));
}

void CChecker::CheckStep(const Step& step, const Expected& expected, const Outcome& outcome) {
    if (std::find(expected.codes.begin(), expected.codes.end(), outcome.code) == expected.codes.end()) {
        std::string codes;
        for (const DWORD code : expected.codes) codes.append(" ").append(std::to_string(code));
        Differ("result: expected", codes, ", found ", outcome.code);
    }
    if (!expected.Succeeds()) return;
    const bool opens = step.op == EOp::kOpen || step.op == EOp::kOpenDir;
    if (opens || step.op == EOp::kInfo || step.op == EOp::kPath) {
        CheckInformation(outcome.information, *expected.object, expected.size, false);
        CheckShownName(step, outcome, *expected.object);
    }
    if (opens) Same("create action", expected.action, outcome.action);
    if (step.op == EOp::kRead) SameBytes("bytes read", step.args[1], expected.data, outcome.data);
    if (step.op == EOp::kList) CheckEntries(outcome.entries, expected.entries);
    if (step.op == EOp::kGetSecurity && expected.object->name != L"\\") {
        Same("descriptor of " + Shown(*expected.object), expected.descriptor, outcome.descriptor);
    }
    if (expected.changed && expected.object != nullptr) CheckTouched(step, expected);
}

void CChecker::CheckTouched(const Step& step, const Expected& expected) {
    const ModelObject& object = *expected.object;
    const Outcome path = m_share.PathInformation(object.name);
    Same("result of asking for " + Shown(object), DWORD{0}, path.code);
    const bool timesJustSet = step.op == EOp::kBasic && (step.args[2] != 0 || step.args[3] != 0);
    CheckInformation(path.information, object, object.Size(), timesJustSet);
    if (object.directory) return;
    CheckShape(object, false);
    const std::int64_t from = std::max<std::int64_t>(0, std::max(expected.from - kAround, expected.to - kMostLookedAt));
    const std::int64_t to = std::min(object.Size(), expected.to + kAround);
    CheckStoredBytes(object, from, to);
    const bool byHandle = step.op == EOp::kWrite || step.op == EOp::kSize || step.op == EOp::kAppend;
    if (!byHandle) return;
    const ModelHandle& handle = m_model.Handles().at(step.args[0]);
    const std::int64_t visible = std::min(to, CModel::Visible(handle));
    if (!handle.readable || from >= visible) return;
    const Outcome read = m_share.ReadRange(step.args[0], from, visible - from);
    Same("result of reading back", DWORD{0}, read.code);
    SameBytes("bytes read back", from, Part(object.content, from, visible), read.data);
}

void CChecker::CheckShape(const ModelObject& object, bool all) {
    const std::int64_t count = object.Fragments();
    std::set<std::int64_t> numbers = {0, count - 1, count};
    if (count > 1) numbers.insert(count - 2);
    if (all) {
        for (std::int64_t i = 0; i < count; ++i) numbers.insert(i);
    }
    for (const std::int64_t number : numbers) {
        const std::string path = m_share.StoragePath(object.name, number);
        const std::int64_t expected =
            number == count ? -1 : std::min(object.fragment, object.Size() - number * object.fragment);
        Same("stored size of " + path, expected, CStorage::SizeOf(path).value_or(-1));
    }
}

void CChecker::CheckStoredBytes(const ModelObject& object, std::int64_t from, std::int64_t to) {
    while (from < to) {
        const std::int64_t number = from / object.fragment;
        const std::int64_t end = std::min(to, (number + 1) * object.fragment);
        const std::string path = m_share.StoragePath(object.name, number);
        SameBytes("stored bytes of " + path, from, Part(object.content, from, end),
                  CStorage::Bytes(path, from - number * object.fragment, end - from));
        from = end;
    }
}

void CChecker::CheckEntries(const std::vector<DirectoryEntry>& entries, const ListedEntries& expected) {
    Same("entries listed", expected.size(), entries.size());
    auto found = entries.begin();
    for (const auto& [name, entry] : expected) {
        const std::string of = " of the entry " + Narrow(name);
        Same("name listed", Narrow(name), Narrow(found->name));
        Same("directory bit" + of, entry.directory, (found->mode & 0x4000) != 0);
        if (!entry.directory) Same("size" + of, static_cast<std::uint64_t>(entry.size), found->size);
        if (entry.attributes) Same("attributes" + of, *entry.attributes, found->attributes);
        Same("change time" + of, found->creationTime, found->changeTime);
        ++found;
    }
}

void CChecker::CheckObject(const ModelObject& object) {
    const Outcome path = m_share.PathInformation(object.name);
    Same("result of asking for " + Shown(object), DWORD{0}, path.code);
    CheckInformation(path.information, object, object.Size(), false);
    Same("stored descriptor of " + Shown(object), Canonical(object.descriptor),
         Canonical(CStorage::DescriptorOf(m_share.StoragePath(object.name))));
    if (object.directory) return;
    CheckShape(object, true);
    CheckStoredBytes(object, 0, object.Size());
    SameBytes("content of " + Shown(object), 0, object.content, m_share.WholeContent(object.name));
}

void CChecker::CheckDirectory(const std::wstring& directory) {
    ListedEntries expected;
    expected[L"."].directory = expected[L".."].directory = true;
    std::set<std::string> stored;
    for (const auto& [name, object] : m_model.Objects()) {
        if (ParentOf(name) != directory || IsLeftOut(name)) continue;
        expected[LeafOf(name)] = ListedEntry{object->Size(), object->directory, object->attributes};
        const std::string leaf = Narrow(LeafOf(name));
        stored.insert(leaf);
        if (object->directory) continue;
        for (std::int64_t i = 1; i < object->Fragments(); ++i) stored.insert(leaf + ";F" + std::to_string(i));
    }
    std::set<std::string> names = CStorage::Names(m_share.StoragePath(directory));
    std::erase_if(names, [&](const std::string& name) { return IsPartOfLeftOut(directory, name); });
    if (names != stored) {
        std::string found;
        for (const std::string& name : names) found.append(" \"").append(name).append("\"");
        Differ("the storage holds other names in ", Narrow(directory), " than expected:", found);
    }
    if (!m_leftOut.empty()) return;
    const Outcome listing = m_share.Listing(directory);
    Same("result of listing", DWORD{0}, listing.code);
    CheckEntries(listing.entries, expected);
}

bool CChecker::IsLeftOut(const std::wstring& name) const {
    return std::any_of(m_leftOut.begin(), m_leftOut.end(),
                       [&](const std::wstring& left) { return name == left || name.starts_with(left + L"\\"); });
}

bool CChecker::IsPartOfLeftOut(const std::wstring& directory, const std::string& stored) const {
    return std::any_of(m_leftOut.begin(), m_leftOut.end(), [&](const std::wstring& left) {
        const std::string leaf = Narrow(LeafOf(left));
        return ParentOf(left) == directory && (stored == leaf || stored.starts_with(leaf + ";F"));
    });
}

void CChecker::CheckAllBut(const std::vector<std::wstring>& names) {
    m_leftOut = names;
    CheckAll();
    m_leftOut.clear();
}

void CChecker::CheckAll() {
    CheckDirectory(L"\\");
    for (const auto& [name, object] : m_model.Objects()) {
        if (IsLeftOut(name)) continue;
        CheckObject(*object);
        if (object->directory) CheckDirectory(name);
    }
    for (const std::wstring& name : ModelNames()) {
        if (m_model.Find(name) == nullptr && !IsLeftOut(name)) {
            Same("result of asking for the missing " + Narrow(name), DWORD{2}, m_share.PathInformation(name).code);
        }
    }
}

void CChecker::CheckNothingOpen() {
    if (m_localEngine) return;
    IDoubleControl& control = m_share.Environment().Double();
    Same("descriptors left open", std::size_t{0}, control.OpenDescriptors().size());
    Same("streams left open", std::size_t{0}, control.OpenStreams().size());
    Same("uses of descriptors that are not open", 0, control.BadDescriptorUses());
    Same("converter blocks left", 0, m_share.Environment().Hul().LiveBlocks());
}

}  // namespace zd::test
