// A plug-in for the tests of zdhost: files in memory, and any operation can be told to fail.
//
// ZDHOST_FAKE in the environment holds words:
//     NAME=CODE    the operation NAME answers CODE, such as ZdWriteFile=112
//     connect-throws  ZdConnect throws 1117
//     no-object    GetProtocol answers null
//     short-write  ZdWriteFile takes half of what it is given
//     early-end    ZdReadFile finds the end of the data at 1.5 MiB
//     short-append ZdAppendFile leaves out the last byte
//     tell-callers the report also tells whom the thread acts for when it connects, opens and disconnects
//     hostile-names  a directory holds names that lead elsewhere, and "good"
//     no-answer    ZdPathIoctl succeeds and does nothing
// Files live as long as the process. At Release a line with what was called goes to the file that ZDHOST_FAKE_REPORT
// names: "connected pool=... second=... third=... open=0 disconnected".
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <map>
#include <memory>
#include <vector>

#include "IProtocolManager.h"
#include "Logger.h"

namespace {

using Bytes = std::vector<char>;

struct FakeObject {
    bool isDirectory = false;
    Bytes data;
};

std::map<std::wstring, FakeObject> g_objects = {{L"\\", {true, {}}}};

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

// What follows `start` in the word that begins with it; null where there is none.
std::unique_ptr<std::string> WordBehind(const std::string& start) {
    const std::string words = " " + Environment("ZDHOST_FAKE") + " ";
    const std::size_t at = words.find(" " + start);
    if (at == std::string::npos) return nullptr;
    const std::size_t begin = at + 1 + start.size();
    return std::make_unique<std::string>(words.substr(begin, words.find(' ', begin) - begin));
}

bool Told(const std::string& word) {
    const auto rest = WordBehind(word);
    return rest != nullptr && rest->empty();
}

DWORD CodeFor(const std::string& operation) {
    const auto code = WordBehind(operation + "=");
    return code != nullptr ? std::strtoul(code->c_str(), nullptr, 10) : 0;
}

std::string Narrow(const std::wstring& text) {
    std::string result;
    for (const wchar_t c : text) result.push_back(static_cast<char>(c & 0x7F));
    return result;
}

// Whom the thread acts for: "process" where it impersonates nobody, else "administrator" or "other".
std::string CallerOfThread() {
    HANDLE token = nullptr;
    if (::OpenThreadToken(::GetCurrentThread(), TOKEN_QUERY, TRUE, &token) == FALSE) return "process";
    ::CloseHandle(token);
    DWORD sid[SECURITY_MAX_SID_SIZE / sizeof(DWORD)];
    DWORD size = sizeof sid;
    BOOL member = FALSE;
    ::CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, sid, &size);
    ::CheckTokenMembership(nullptr, sid, &member);
    return member != FALSE ? "administrator" : "other";
}

class CFakeManager final : public IProtocolManager {
public:
    DWORD ZdConnect(const ConnectParameters* parameters) override {
        if (Told("connect-throws")) throw static_cast<unsigned long>(1117);
        if (const DWORD code = CodeFor("ZdConnect")) return code;
        m_report += "connected pool=" + Narrow(parameters->poolName) + " second=" + Narrow(parameters->secondName) +
                    " third=" + Narrow(parameters->thirdName);
        TellCaller("connect");
        return 0;
    }

    DWORD ZdDisconnect() override {
        m_report += " open=" + std::to_string(m_handles.size()) + " disconnected";
        TellCaller("disconnect");
        return CodeFor("ZdDisconnect");
    }

    DWORD ZdCreateFile(const wchar_t* name, DWORD isDirectory, DWORD, DWORD, DWORD, DWORD disposition, DWORD, DWORD,
                       PSECURITY_DESCRIPTOR, Handle* handle, DWORD*, FileInformation* information) override {
        TellCaller("open");
        if (const DWORD code = CodeFor("ZdCreateFile")) return code;
        const bool wantsDirectory = isDirectory != 0;
        auto found = g_objects.find(name);
        if (found != g_objects.end() && found->second.isDirectory != wantsDirectory) return ERROR_DIRECTORY;
        if (found != g_objects.end() && disposition == kZdCreate) return ERROR_ALREADY_EXISTS;
        if (found == g_objects.end()) {
            if (disposition == kZdOpen || disposition == kZdOverwrite) return ERROR_FILE_NOT_FOUND;
            found = g_objects.emplace(name, FakeObject{wantsDirectory, {}}).first;
        } else if (disposition == kZdSupersede || disposition >= kZdOverwrite) {
            found->second.data.clear();
        }
        *handle = ++m_lastHandle;
        m_handles[*handle] = name;
        if (information != nullptr) information->size = found->second.data.size();
        return 0;
    }

    DWORD ZdCloseFile(Handle handle, DWORD deleteFlag) override {
        if (const DWORD code = CodeFor("ZdCloseFile")) return code;
        if (deleteFlag != 0) g_objects.erase(m_handles.at(handle));
        return 0;
    }

    DWORD ZdReleaseFile(Handle handle) override {
        // The real one ends the process.
        if (m_handles.erase(handle) == 0) std::_Exit(99);
        return CodeFor("ZdReleaseFile");
    }

    DWORD ZdSetFileSize(Handle handle, std::int64_t size) override {
        if (const DWORD code = CodeFor("ZdSetFileSize")) return code;
        Data(handle).resize(static_cast<std::size_t>(size));
        return 0;
    }

    DWORD ZdReadFile(Handle handle, std::int64_t offset, DWORD length, void* buffer, DWORD* bytesRead) override {
        if (const DWORD code = CodeFor("ZdReadFile")) return code;
        const Bytes& data = Data(handle);
        std::size_t end = data.size();
        if (Told("early-end")) end = std::min<std::size_t>(end, 3 << 19);
        const std::size_t at = std::min(static_cast<std::size_t>(offset), end);
        const std::size_t count = std::min<std::size_t>(length, end - at);
        std::memcpy(buffer, data.data() + at, count);
        *bytesRead = static_cast<DWORD>(count);
        return 0;
    }

    DWORD ZdWriteFile(Handle handle, std::int64_t offset, DWORD length, const void* buffer,
                      DWORD* bytesWritten) override {
        if (const DWORD code = CodeFor("ZdWriteFile")) return code;
        const DWORD count = Told("short-write") ? length / 2 : length;
        Bytes& data = Data(handle);
        const std::size_t end = static_cast<std::size_t>(offset) + count;
        if (data.size() < end) data.resize(end);
        std::memcpy(data.data() + offset, buffer, count);
        *bytesWritten = count;
        return 0;
    }

    DWORD ZdGetSecurity(Handle, std::uint64_t, PSECURITY_DESCRIPTOR*) override { return CodeFor("ZdGetSecurity"); }
    DWORD ZdSetSecurity(Handle, std::uint64_t, PSECURITY_DESCRIPTOR) override { return CodeFor("ZdSetSecurity"); }

    void Release() override {
        if (FILE* file = std::fopen(Environment("ZDHOST_FAKE_REPORT").c_str(), "ab")) {
            std::fprintf(file, "%s\n", m_report.c_str());
            std::fclose(file);
        }
        delete this;
    }

    DWORD ZdAppendFile(Handle target, Handle source, std::int64_t targetOffset, std::int64_t sourceOffset,
                       std::int64_t length) override {
        if (const DWORD code = CodeFor("ZdAppendFile")) return code;
        const auto from = static_cast<std::size_t>(sourceOffset);
        const auto to = static_cast<std::size_t>(targetOffset);
        auto count = static_cast<std::size_t>(length);
        if (Told("short-append")) --count;
        const Bytes copy(Data(source).begin() + sourceOffset, Data(source).begin() + sourceOffset + length);
        Bytes& data = Data(target);
        data.resize(to + count);
        std::memcpy(data.data() + to, copy.data(), std::min(count, Data(source).size() - from));
        return 0;
    }

    DWORD ZdQueryFileInfo(Handle handle, FileInformation* information) override {
        if (const DWORD code = CodeFor("ZdQueryFileInfo")) return code;
        *information = InformationOf(g_objects.at(m_handles.at(handle)));
        return 0;
    }

    DWORD ZdQueryPathInfo(const wchar_t* path, FileInformation* information) override {
        if (const DWORD code = CodeFor("ZdQueryPathInfo")) return code;
        const auto found = g_objects.find(path);
        if (found == g_objects.end()) return ERROR_FILE_NOT_FOUND;
        *information = InformationOf(found->second);
        return 0;
    }

    DWORD ZdSetFileBasicInfo(Handle, std::int64_t, std::int64_t, std::int64_t, std::int64_t, DWORD) override {
        return CodeFor("ZdSetFileBasicInfo");
    }
    DWORD ZdDeleteFile(void*) override { return 0; }
    DWORD ZdRenameFile(Handle, const wchar_t*, DWORD) override { return CodeFor("ZdRenameFile"); }

    DWORD ZdQueryDirContents(Handle, DirectoryEntry** entries, DWORD* count) override {
        if (const DWORD code = CodeFor("ZdQueryDirContents")) return code;
        if (Told("hostile-names")) {
            const std::vector<const wchar_t*> names = {L"..\\out", L"../out", L"C:out",       L"\\out",
                                                       L"out\x1B", L"COM1.x", L"..\\..\\out", L"good"};
            *count = static_cast<DWORD>(names.size());
            *entries = NewEntries(*count);
            for (std::size_t i = 0; i < names.size(); ++i) std::wcscpy((*entries)[i].name, names[i]);
            return 0;
        }
        *count = 2;
        *entries = NewEntries(*count);
        // A directory without a name, and half of a character.
        (*entries)[0].mode = 0x4000;
        (*entries)[1].name[0] = 0xD83D;
        return 0;
    }

    DWORD ZdQueryVolumeInfo(BYTE, VolumeInformation*) override { return CodeFor("ZdQueryVolumeInfo"); }
    DWORD ZdSetVolumeLabel(const wchar_t*) override { return CodeFor("ZdSetVolumeLabel"); }
    DWORD ZdEnumerateSpaList(std::set<std::wstring>*) override { return CodeFor("ZdEnumerateSpaList"); }
    DWORD ZdControlPath(const wchar_t*) override { return 0; }
    DWORD ZdHandleIoctl(Handle, DWORD, std::uint64_t) override { return 0xFFFFFFFF; }
    void ZdRefreshSettings(DWORD, bool) override {}
    DWORD ZdStub1() override { return 1; }
    DWORD ZdStub2() override { return 1; }
    DWORD ZdStub3() override { return 1; }
    void ZdLogMessage(DWORD, const char*) override {}
    std::wstring ZdGetRandomTag() override { return L"   123"; }
    DWORD ZdPathIoctl(DWORD, std::uint64_t) override { return Told("no-answer") ? 0 : 0xFFFFFFFF; }

private:
    void TellCaller(const char* operation) {
        if (Told("tell-callers")) m_report += std::string(" ") + operation + "-by=" + CallerOfThread();
    }

    static DirectoryEntry* NewEntries(std::size_t count) {
        return static_cast<DirectoryEntry*>(
            ::HeapAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY, count * sizeof(DirectoryEntry)));
    }

    static FileInformation InformationOf(const FakeObject& object) {
        FileInformation information{};
        information.size = object.data.size();
        information.mode = object.isDirectory ? 0x4000 : 0;
        return information;
    }

    Bytes& Data(Handle handle) { return g_objects.at(m_handles.at(handle)).data; }

    std::map<Handle, std::wstring> m_handles;
    Handle m_lastHandle = 0;
    std::string m_report;
};

}  // namespace

extern "C" __declspec(dllexport) IProtocolManager* GetProtocol(void**, CLogger*) {
    return Told("no-object") ? nullptr : new CFakeManager;
}
