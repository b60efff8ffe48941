#include "transfer/RemoteFile.h"

#include <sddl.h>

#include <cwchar>
#include <iterator>
#include <memory>
#include <utility>

#include "text/Failure.h"

namespace zd::host {

namespace {

constexpr SECURITY_INFORMATION kWholeDescriptor =
    OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION;

DWORD Open(IProtocolManager& manager, const OpenRequest& request, Handle* handle, FileInformation* information) {
    return manager.ZdCreateFile(request.name.c_str(), static_cast<DWORD>(request.kind), 0, FILE_ATTRIBUTE_NORMAL, 0,
                                request.disposition, request.access, 0, /*descriptor=*/nullptr, handle,
                                /*createAction=*/nullptr, information);
}

}  // namespace

CRemoteFile::CRemoteFile(IProtocolManager& manager, OpenRequest request)
    : m_manager(manager), m_name(std::move(request.name)) {
    request.name = m_name;
    CheckCode("ZdCreateFile", Open(m_manager, request, &m_handle, &m_information), m_name);
}

CRemoteFile::~CRemoteFile() {
    if (m_handle == 0) return;
    m_manager.ZdCloseFile(m_handle, /*deleteFlag=*/0);
    m_manager.ZdReleaseFile(m_handle);
}

DWORD CRemoteFile::Read(std::int64_t offset, void* buffer, DWORD length) {
    DWORD got = 0;
    CheckCode("ZdReadFile", m_manager.ZdReadFile(m_handle, offset, length, buffer, &got), m_name);
    if (got > length) throw CFailure("ZdReadFile answered more bytes than were asked for");
    return got;
}

void CRemoteFile::Write(std::int64_t offset, const void* buffer, DWORD length) {
    DWORD written = 0;
    CheckCode("ZdWriteFile", m_manager.ZdWriteFile(m_handle, offset, length, buffer, &written), m_name);
    if (written != length) ThrowFailure("ZdWriteFile (short count)", ERROR_WRITE_FAULT, m_name);
}

void CRemoteFile::SetSize(std::int64_t size) {
    CheckCode("ZdSetFileSize", m_manager.ZdSetFileSize(m_handle, size), m_name);
}

void CRemoteFile::Append(std::int64_t offset, CRemoteFile& source, std::int64_t sourceOffset, std::int64_t length) {
    CheckCode("ZdAppendFile", m_manager.ZdAppendFile(m_handle, source.m_handle, offset, sourceOffset, length), m_name);
}

FileInformation CRemoteFile::Query() {
    FileInformation information{};
    CheckCode("ZdQueryFileInfo", m_manager.ZdQueryFileInfo(m_handle, &information), m_name);
    return information;
}

void CRemoteFile::SetBasic(std::int64_t accessTime, std::int64_t writeTime, DWORD attributes) {
    CheckCode(
        "ZdSetFileBasicInfo",
        m_manager.ZdSetFileBasicInfo(m_handle, /*creationTime=*/0, accessTime, writeTime, /*changeTime=*/0, attributes),
        m_name);
}

void CRemoteFile::Rename(const std::wstring& newName, bool replace) {
    const DWORD code = m_manager.ZdRenameFile(m_handle, newName.c_str(), replace ? 1 : 0);
    CheckCode("ZdRenameFile", code, m_name + L" -> " + newName);
}

std::vector<DirectoryEntry> CRemoteFile::List() {
    struct CHeapGiver {
        void operator()(DirectoryEntry* block) const { ::HeapFree(::GetProcessHeap(), 0, block); }
    };
    DirectoryEntry* block = nullptr;
    DWORD count = 0;
    CheckCode("ZdQueryDirContents", m_manager.ZdQueryDirContents(m_handle, &block, &count), m_name);
    const std::unique_ptr<DirectoryEntry, CHeapGiver> owner(block);
    if (block == nullptr) return {};
    return std::vector<DirectoryEntry>(block, block + count);
}

std::wstring CRemoteFile::SecurityText() {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    CheckCode("ZdGetSecurity", m_manager.ZdGetSecurity(m_handle, kWholeDescriptor, &descriptor), m_name);
    const std::unique_ptr<void, decltype(&::LocalFree)> descriptorOwner(descriptor, &::LocalFree);
    wchar_t* text = nullptr;
    if (::ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1, kWholeDescriptor, &text,
                                                               nullptr) == FALSE) {
        ThrowFailure("turning the descriptor into text", ::GetLastError(), m_name);
    }
    const std::unique_ptr<wchar_t, decltype(&::LocalFree)> textOwner(text, &::LocalFree);
    return text;
}

void CRemoteFile::SetSecurity(PSECURITY_DESCRIPTOR descriptor) {
    CheckCode("ZdSetSecurity", m_manager.ZdSetSecurity(m_handle, kWholeDescriptor, descriptor), m_name);
}

void CRemoteFile::End(DWORD deleteFlag) {
    const Handle handle = std::exchange(m_handle, 0);
    const DWORD closed = m_manager.ZdCloseFile(handle, deleteFlag);
    const DWORD released = m_manager.ZdReleaseFile(handle);
    CheckCode("ZdCloseFile", closed, m_name);
    CheckCode("ZdReleaseFile", released, m_name);
}

FileInformation QueryPath(IProtocolManager& manager, const std::wstring& name) {
    FileInformation information{};
    CheckCode("ZdQueryPathInfo", manager.ZdQueryPathInfo(name.c_str(), &information), name);
    return information;
}

std::wstring NameOf(const DirectoryEntry& entry) {
    return std::wstring(entry.name, ::wcsnlen(entry.name, std::size(entry.name)));
}

void MakeDirectory(IProtocolManager& manager, const std::wstring& name, DWORD disposition) {
    CRemoteFile directory(manager, {name, ObjectKind::Directory, disposition, FILE_LIST_DIRECTORY});
    directory.Finish();
}

std::vector<DirectoryEntry> ListDirectory(IProtocolManager& manager, const std::wstring& name) {
    CRemoteFile directory(manager, {name, ObjectKind::Directory, kZdOpen, FILE_LIST_DIRECTORY});
    std::vector<DirectoryEntry> entries = directory.List();
    directory.Finish();
    return entries;
}

ObjectKind KindOf(IProtocolManager& manager, const std::wstring& name, DWORD access) {
    DWORD asFile = ERROR_SUCCESS;
    for (const ObjectKind kind : {ObjectKind::File, ObjectKind::Directory}) {
        Handle handle = 0;
        const DWORD code = Open(manager, OpenRequest{name, kind, kZdOpen, access}, &handle, nullptr);
        if (code == ERROR_SUCCESS) {
            manager.ZdCloseFile(handle, /*deleteFlag=*/0);
            manager.ZdReleaseFile(handle);
            return kind;
        }
        if (kind == ObjectKind::File) asFile = code;
    }
    ThrowFailure("ZdCreateFile", asFile, name);
}

}  // namespace zd::host
