#include "Share.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "harness/Pattern.h"
#include "Names.h"
#include "Storage.h"

namespace zd::test {

namespace {

constexpr std::int64_t kOpenExisting = 1;
constexpr std::int64_t kReads = 1;

DWORD Bits(std::int64_t value) {
    return static_cast<DWORD>(value);
}

void Require(DWORD code, const char* what) {
    if (code != 0) throw std::runtime_error(std::string(what) + " answers " + std::to_string(code));
}

// An object takes over the settings that stand when it is made.
IProtocolManager* NewManager(CEnvironment& environment, const Setup& setup) {
    CRegistrySandbox& registry = environment.Registry();
    registry.SetDword(kPluginKey, L"DebugLevel", 1);
    registry.SetDword(kPluginKey, L"MaxOpenFragments", Bits(setup.maxOpenFragments));
    registry.SetDword(kPluginKey, L"MaxFileSizeMB", Bits(setup.megabytes));
    return environment.NewManager();
}

const std::wstring& NameAt(std::int64_t index) {
    return ModelNames()[static_cast<std::size_t>(index)];
}

}  // namespace

CShare::CShare(CEnvironment& environment, const Setup& setup, const std::wstring& pool)
    : m_environment(environment), m_pool(pool), m_manager(NewManager(environment, setup)) {
    Connect();
}

CShare::~CShare() {
    m_environment.ReleaseManager(m_manager);
    m_environment.ForgetLog();
}

void CShare::Connect() {
    ConnectParameters parameters{};
    std::copy(m_pool.begin(), m_pool.end(), parameters.poolName);
    Require(m_manager->ZdConnect(&parameters), "ZdConnect");
}

void CShare::Disconnect() {
    m_handles.clear();
    Require(m_manager->ZdDisconnect(), "ZdDisconnect");
}

std::string CShare::StoragePath(const std::wstring& name, std::int64_t fragment) const {
    std::string path = Narrow(m_pool + name);
    std::replace(path.begin(), path.end(), '\\', '/');
    return fragment == 0 ? path : path + ";F" + std::to_string(fragment);
}

Handle CShare::HandleOf(std::int64_t slot) const {
    return m_handles.at(slot);
}

Outcome CShare::Create(const std::wstring& name, bool directory, std::int64_t how, std::int64_t access,
                       std::int64_t attributes, std::int64_t descriptor, Handle& handle) {
    Outcome outcome;
    const std::string& text = ModelDescriptors()[static_cast<std::size_t>(descriptor)];
    std::optional<CDescriptor> given;
    if (!text.empty()) given.emplace(text);
    outcome.code =
        m_manager->ZdCreateFile(name.c_str(), directory ? 1 : 0, 0, Bits(attributes), 0, Bits(how), Bits(access), 0,
                                given ? given->Raw() : nullptr, &handle, &outcome.action, &outcome.information);
    return outcome;
}

Outcome CShare::Open(const Args& args, bool directory) {
    Handle handle = kUntouchedHandle;
    Outcome outcome =
        directory ? Create(NameAt(args[1]), true, args[2], kReads, args[3] | FILE_ATTRIBUTE_DIRECTORY, 0, handle)
                  : Create(NameAt(args[1]), false, args[2], args[3], args[4], args[5], handle);
    if (outcome.code == 0) m_handles[args[0]] = handle;
    return outcome;
}

Outcome CShare::Entries(Handle handle) {
    Outcome outcome;
    DirectoryEntry* entries = nullptr;
    DWORD count = 0;
    outcome.code = m_manager->ZdQueryDirContents(handle, &entries, &count);
    if (entries != nullptr) outcome.entries.assign(entries, entries + count);
    ::HeapFree(::GetProcessHeap(), 0, entries);
    return outcome;
}

Outcome CShare::ReadRange(std::int64_t slot, std::int64_t at, std::int64_t length) {
    return Transfer(Step{EOp::kRead, {slot, at, length}});
}

Outcome CShare::Transfer(const Step& step) {
    const Args& args = step.args;
    const Handle handle = HandleOf(args[0]);
    Outcome outcome;
    if (step.op == EOp::kRead) {
        // A byte more than asked for shows a read that goes too far.
        constexpr char kFence = '\x7E';
        std::string buffer(static_cast<std::size_t>(args[2]) + 1, kFence);
        outcome.code = m_manager->ZdReadFile(handle, args[1], Bits(args[2]), buffer.data(), &outcome.moved);
        if (buffer.back() != kFence) throw std::runtime_error("a read wrote behind its buffer");
        outcome.data = buffer.substr(0, outcome.code == 0 ? outcome.moved : 0);
    } else if (step.op == EOp::kWrite) {
        const std::string data = Pattern(static_cast<std::size_t>(args[2]), static_cast<std::uint32_t>(args[3]));
        outcome.code = m_manager->ZdWriteFile(handle, args[1], Bits(args[2]), data.data(), &outcome.moved);
        if (outcome.code == 0 && outcome.moved != data.size()) throw std::runtime_error("a short write succeeded");
    } else if (step.op == EOp::kSize) {
        outcome.code = m_manager->ZdSetFileSize(handle, args[1]);
    } else {
        outcome.code = m_manager->ZdAppendFile(handle, HandleOf(args[1]), args[2], args[3], args[4]);
    }
    return outcome;
}

Outcome CShare::Metadata(const Step& step) {
    const Args& args = step.args;
    const Handle handle = HandleOf(args[0]);
    Outcome outcome;
    if (step.op == EOp::kBasic) {
        outcome.code = m_manager->ZdSetFileBasicInfo(handle, 0, args[2], args[3], 0, Bits(args[1]));
    } else if (step.op == EOp::kSetSecurity) {
        const CDescriptor descriptor(ModelDescriptors()[static_cast<std::size_t>(args[1])]);
        outcome.code = m_manager->ZdSetSecurity(handle, 0xF, descriptor.Raw());
    } else if (step.op == EOp::kGetSecurity) {
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        outcome.code = m_manager->ZdGetSecurity(handle, 0xF, &descriptor);
        if (outcome.code == 0) outcome.descriptor = SddlOf(descriptor);
        ::LocalFree(descriptor);
    } else if (step.op == EOp::kRename) {
        outcome.code = m_manager->ZdRenameFile(handle, NameAt(args[1]).c_str(), Bits(args[2]));
    } else {
        outcome.code = m_manager->ZdQueryFileInfo(handle, &outcome.information);
    }
    return outcome;
}

void CShare::Plant(const Args& args) {
    const std::wstring& name = NameAt(args[0]);
    const std::string content = Pattern(static_cast<std::size_t>(args[2]), static_cast<std::uint32_t>(args[3]));
    const auto piece = static_cast<std::size_t>(args[1]);
    std::int64_t fragment = 0;
    std::size_t at = 0;
    do {
        CStorage::Put(StoragePath(name, fragment++), content.substr(at, piece));
        at += piece;
    } while (at < content.size());
}

Outcome CShare::Do(const Step& step) {
    const Args& args = step.args;
    Outcome outcome;
    switch (step.op) {
        case EOp::kPlant:
            Plant(args);
            return outcome;
        case EOp::kOpen:
        case EOp::kOpenDir:
            return Open(args, step.op == EOp::kOpenDir);
        case EOp::kClose:
            outcome.code = m_manager->ZdCloseFile(HandleOf(args[0]), Bits(args[1]));
            return outcome;
        case EOp::kRelease:
            outcome.code = m_manager->ZdReleaseFile(HandleOf(args[0]));
            m_handles.erase(args[0]);
            return outcome;
        case EOp::kRead:
        case EOp::kWrite:
        case EOp::kSize:
        case EOp::kAppend:
            return Transfer(step);
        case EOp::kPath:
            return PathInformation(NameAt(args[0]));
        case EOp::kList:
            return Entries(HandleOf(args[0]));
        case EOp::kReconnect:
        case EOp::kRestart:
            Disconnect();
            if (args[0] != 0) {
                m_environment.ReleaseManager(m_manager);
                m_manager = m_environment.NewManager();
            }
            Connect();
            return outcome;
        case EOp::kCheck:
            return outcome;
        default:
            return Metadata(step);
    }
}

Outcome CShare::PathInformation(const std::wstring& name) {
    Outcome outcome;
    outcome.code = m_manager->ZdQueryPathInfo(name.c_str(), &outcome.information);
    return outcome;
}

Outcome CShare::Listing(const std::wstring& directory) {
    Handle handle = 0;
    Require(Create(directory, true, kOpenExisting, kReads, FILE_ATTRIBUTE_DIRECTORY, 0, handle).code,
            "opening to list");
    Outcome outcome = Entries(handle);
    Require(m_manager->ZdReleaseFile(handle), "ZdReleaseFile");
    return outcome;
}

std::string CShare::WholeContent(const std::wstring& name) {
    constexpr DWORD kPiece = 131071;
    Handle handle = 0;
    const Outcome opened = Create(name, false, kOpenExisting, kReads, 0, 0, handle);
    Require(opened.code, "opening to compare");
    std::string whole;
    std::string piece(kPiece, '\0');
    for (DWORD count = 1; count > 0; whole.append(piece, 0, count)) {
        Require(m_manager->ZdReadFile(handle, static_cast<std::int64_t>(whole.size()), kPiece, piece.data(), &count),
                "ZdReadFile");
    }
    Require(m_manager->ZdCloseFile(handle, 0), "ZdCloseFile");
    Require(m_manager->ZdReleaseFile(handle), "ZdReleaseFile");
    if (opened.information.size != whole.size())
        throw std::runtime_error("a new handle tells another size than it reads");
    return whole;
}

}  // namespace zd::test
