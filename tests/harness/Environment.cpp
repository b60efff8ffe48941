#include "Environment.h"

#include <share.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <stdexcept>

#include "Child.h"
#include "TextCompare.h"

namespace zd::test {

namespace {

// What the replaced functions of the plug-in need; plain functions have no object.
struct Outputs {
    std::mutex lock;
    bool holdWriter = true;
    HANDLE heldWriter = nullptr;
    std::vector<std::string> debugger;
    std::vector<EventReport> reports;
    decltype(&::CreateThread) createThread = nullptr;
    decltype(&::OutputDebugStringA) outputDebugString = nullptr;
    decltype(&::ReportEventA) reportEvent = nullptr;
};

Outputs& TheOutputs() {
    static Outputs* const outputs = new Outputs();  // outlives the writer thread
    return *outputs;
}

HANDLE WINAPI CreateHeldThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stack, LPTHREAD_START_ROUTINE start,
                               LPVOID parameter, DWORD flags, LPDWORD id) {
    Outputs& outputs = TheOutputs();
    const std::lock_guard<std::mutex> held(outputs.lock);
    if (!outputs.holdWriter) return outputs.createThread(attributes, stack, start, parameter, flags, id);
    outputs.heldWriter = outputs.createThread(attributes, stack, start, parameter, flags | CREATE_SUSPENDED, id);
    return outputs.heldWriter;
}

void WINAPI KeepDebuggerText(LPCSTR text) {
    const std::lock_guard<std::mutex> held(TheOutputs().lock);
    TheOutputs().debugger.emplace_back(text);
}

BOOL WINAPI KeepReport(HANDLE source, WORD type, WORD category, DWORD id, PSID sid, WORD count, DWORD dataSize,
                       LPCSTR* strings, LPVOID) {
    EventReport report{source, type, category, id, sid != nullptr, {}, dataSize};
    for (WORD i = 0; i < count; ++i) report.strings.emplace_back(strings[i]);
    const std::lock_guard<std::mutex> held(TheOutputs().lock);
    TheOutputs().reports.push_back(std::move(report));
    return TRUE;
}

CLogger& OnlyLogger() {
    static CLogger* const logger = new CLogger();  // the plug-in keeps it to the end
    return *logger;
}

std::wstring NewFolder() {
    std::array<wchar_t, MAX_PATH + 1> temporary{};
    ::GetTempPathW(static_cast<DWORD>(temporary.size()), temporary.data());
    std::wstring folder = std::wstring(temporary.data()) + L"zdtests-" + std::to_wstring(::GetCurrentProcessId()) +
                          L"-" + std::to_wstring(::GetTickCount64()) + L"\\";
    std::filesystem::create_directories(folder);
    return folder;
}

HMODULE LoadFrom(const std::wstring& path) {
    const HMODULE module = ::LoadLibraryW(path.c_str());
    if (module == nullptr) {
        throw std::runtime_error("cannot load " + Narrow(path) + ": error " + std::to_string(::GetLastError()));
    }
    return module;
}

template <class Function>
Function Exported(HMODULE module, const char* name) {
    const auto address = reinterpret_cast<void*>(::GetProcAddress(module, name));
    if (address == nullptr) throw std::runtime_error(std::string("missing export ") + name);
    return reinterpret_cast<Function>(address);
}

bool OnlyOne() {
    static bool made = false;
    return !std::exchange(made, true);
}

}  // namespace

CEnvironment::CEnvironment(EBackEnd backEnd) : m_backEnd(backEnd), m_folder(NewFolder()), m_logger(OnlyLogger()) {
    if (!OnlyOne()) {
        throw std::logic_error(
            "each test of the plug-in needs a process of its own: run it through ctest, or with a "
            "--gtest_filter that names one test");
    }
    std::filesystem::create_directories(AgentFolder());
    m_registry.SetDword(kPluginKey, L"DebugLevel", kLogTrace);
    m_registry.SetText(kAgentKey, L"path", AgentFolder());
    if (m_backEnd == EBackEnd::kLocalEngine) {
        const std::wstring pools = SharedFolder().empty() ? PoolsFolder() : SharedFolder() + L"pools\\";
        std::filesystem::create_directories(pools);
        ::_wputenv_s(L"ZDVFS_LOCAL_ROOT", pools.c_str());
        ::_wputenv_s(L"ZDVFS_LOCAL_CREATE", L"1");
    }
}

CEnvironment::~CEnvironment() {
    if (m_double != nullptr) m_double->ClearRules();
    ReleaseManagers();
    EndWriter();
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
}

void CEnvironment::Load() {
    const bool isDouble = m_backEnd == EBackEnd::kDouble;
    const std::wstring libraries = BinaryFolder() + (isDouble ? L"double\\" : L"");
    const HMODULE zdvfs = LoadFrom(libraries + L"zdvfs.dll");
    const HMODULE hul = LoadFrom(libraries + L"hul.dll");
    m_plugin = LoadFrom(BinaryFolder() + L"ZdvfsProtocol.dll");
    m_getProtocol = Exported<GetProtocolFunction>(m_plugin, "GetProtocol");
    if (ImportedAddress(m_plugin, "ZdvfsOpen") != Exported<void*>(zdvfs, "ZdvfsOpen") ||
        ImportedAddress(m_plugin, "_HulFree") != Exported<void*>(hul, "_HulFree")) {
        throw std::runtime_error("the plug-in is not bound to the storage libraries of this test");
    }
    if (isDouble) BindDouble(zdvfs, hul);

    Outputs& outputs = TheOutputs();
    outputs.createThread = &::CreateThread;
    outputs.outputDebugString = &::OutputDebugStringA;
    outputs.reportEvent = &::ReportEventA;
    const auto patch = [this](const char* function, auto* replacement) {
        m_patches.push_back(std::make_unique<CImportPatch>(m_plugin, function, replacement, false));
    };
    patch("CreateThread", &CreateHeldThread);
    patch("OutputDebugStringA", &KeepDebuggerText);
    patch("ReportEventA", &KeepReport);
}

void CEnvironment::BindDouble(HMODULE zdvfs, HMODULE hul) {
    m_double = Exported<DoubleControlFunction>(zdvfs, "DoubleControl")();
    m_hul = Exported<HulDoubleControlFunction>(hul, "HulDoubleControl")();
    m_hul->UseBook(m_double->Book());
}

IDoubleControl& CEnvironment::Double() const {
    if (m_double == nullptr) throw std::logic_error("the double is not loaded");
    return *m_double;
}

IHulControl& CEnvironment::Hul() const {
    if (m_hul == nullptr) throw std::logic_error("the double is not loaded");
    return *m_hul;
}

IProtocolManager* CEnvironment::NewManager(void** hostContext) {
    void* noContext = nullptr;
    IProtocolManager* const manager = m_getProtocol(hostContext == nullptr ? &noContext : hostContext, &m_logger);
    if (manager == nullptr) throw std::runtime_error("GetProtocol answered null");
    m_managers.push_back(manager);
    return manager;
}

void CEnvironment::ReleaseManager(IProtocolManager* manager) {
    std::erase(m_managers, manager);
    manager->Release();
}

void CEnvironment::ReleaseManagers() {
    while (!m_managers.empty()) ReleaseManager(m_managers.back());
}

void CEnvironment::ForgetLog() {
    if (TheOutputs().heldWriter != nullptr) TakeLog();
}

std::vector<LogLine> CEnvironment::TakeLog() {
    std::vector<LogLine> lines;
    if (!m_logger.lockInitialised) return lines;
    if (m_logger.writerThread != nullptr && m_logger.writerThread != TheOutputs().heldWriter) {
        throw std::logic_error("the log's writer runs and takes the lines away");
    }
    ::EnterCriticalSection(&m_logger.lock);
    for (const LogRecord& record : m_logger.queue) lines.push_back(LogLine{record.level, record.text});
    m_logger.queue.clear();
    ::LeaveCriticalSection(&m_logger.lock);
    return lines;
}

void CEnvironment::RunWriter() {
    Outputs& outputs = TheOutputs();
    const std::lock_guard<std::mutex> held(outputs.lock);
    outputs.holdWriter = false;
    if (outputs.heldWriter != nullptr) ::ResumeThread(outputs.heldWriter);
    outputs.heldWriter = nullptr;
}

bool CEnvironment::DrainLog() {
    if (!m_logger.lockInitialised) return true;
    for (int attempt = 0; attempt < 5000; ++attempt) {
        // A line leaves the queue after all its outputs.
        ::EnterCriticalSection(&m_logger.lock);
        const bool empty = m_logger.queue.empty();
        ::LeaveCriticalSection(&m_logger.lock);
        if (empty) {
            if (m_logger.file != nullptr) std::fflush(m_logger.file);
            return true;
        }
        if (::WaitForSingleObject(m_logger.writerThread, 2) == WAIT_OBJECT_0) return false;
    }
    return false;
}

void CEnvironment::EndWriter() {
    ForgetLog();
    RunWriter();
    // The replacements stay where a writer could still call them.
    if (m_logger.Stop(10000)) {
        m_patches.clear();
    } else {
        for (auto& patch : m_patches) static_cast<void>(patch.release());
    }
    if (m_logger.file != nullptr) std::fclose(m_logger.file);
    m_logger.file = nullptr;
}

std::vector<std::string> CEnvironment::DebuggerTexts() const {
    const std::lock_guard<std::mutex> held(TheOutputs().lock);
    return TheOutputs().debugger;
}

std::vector<EventReport> CEnvironment::EventReports() const {
    const std::lock_guard<std::mutex> held(TheOutputs().lock);
    return TheOutputs().reports;
}

std::vector<std::wstring> CEnvironment::LogFiles(const std::wstring& folder) const {
    std::vector<std::wstring> files;
    std::error_code missing;
    for (const auto& entry : std::filesystem::directory_iterator(folder, missing)) {
        if (entry.path().extension() == L".LOG") files.push_back(entry.path().wstring());
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::string CEnvironment::LogText() const {
    std::string text;
    for (const std::wstring& file : LogFiles(LogFolder())) text += FileContent(file);
    return text;
}

std::wstring ProgramFolder() {
    std::vector<wchar_t> path(32768);
    const DWORD length = ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    const std::wstring program(path.data(), length);
    return program.substr(0, program.find_last_of(L"\\/") + 1);
}

std::wstring BinaryFolder() {
    std::wstring folder = ProgramFolder();
    folder.pop_back();
    return folder.substr(0, folder.find_last_of(L"\\/") + 1);
}

std::string FileContent(const std::wstring& path) {
    std::string content;
    FILE* const file = ::_wfsopen(path.c_str(), L"rb", _SH_DENYNO);
    if (file == nullptr) return content;
    std::array<char, 4096> piece{};
    while (const std::size_t count = std::fread(piece.data(), 1, piece.size(), file)) {
        content.append(piece.data(), count);
    }
    std::fclose(file);
    return content;
}

void WriteFileContent(const std::wstring& path, const std::string& content) {
    FILE* const file = ::_wfsopen(path.c_str(), L"wb", _SH_DENYNO);
    if (file == nullptr) throw std::runtime_error("cannot write " + Narrow(path));
    const std::size_t written = std::fwrite(content.data(), 1, content.size(), file);
    if (std::fclose(file) != 0 || written != content.size()) {
        throw std::runtime_error("cannot write " + Narrow(path));
    }
}

}  // namespace zd::test
