#include "transfer/Tree.h"

#include "text/Failure.h"
#include "text/Interrupt.h"
#include "text/Json.h"
#include "text/Output.h"
#include "text/Text.h"
#include "transfer/EntryNames.h"

namespace zd::host {

namespace {

std::string Count(std::uint64_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many) + ", ";
}

}  // namespace

CTreeTransfer::CTreeTransfer(std::string_view verb, std::string shown, const CopyOptions& options, bool quiet)
    : m_verb(verb), m_options(options), m_transfer(verb, std::move(shown), std::nullopt, quiet) {}

void CTreeTransfer::Fail(const std::wstring& path, const std::string& why) {
    m_transfer.Tell(m_verb + " " + Printable(ToUtf8(path)) + ": " + why);
    m_failures.push_back({path, why});
}

void CTreeTransfer::Run(const std::vector<TreeEntry>& entries, const Step& makeDirectory, const Step& copyFile) {
    std::uint64_t files = 0;
    std::uint64_t bytes = 0;
    for (const TreeEntry& entry : entries) {
        files += entry.directory ? 0 : 1;
        bytes += entry.size;
    }
    m_transfer.ExpectFiles(files, bytes);
    try {
        for (const TreeEntry& entry : entries) RunEntry(entry, entry.directory ? makeDirectory : copyFile);
    } catch (const std::exception& error) {
        Report(error.what());
        throw;
    }
    Report(/*ended=*/nullptr);
    if (!m_failures.empty()) throw CToldFailure(kExitFailed);
}

void CTreeTransfer::RunEntry(const TreeEntry& entry, const Step& step) {
    CheckInterrupted();
    if (!m_leftOut.empty() && entry.path.starts_with(m_leftOut)) {
        if (!entry.directory) m_transfer.LeaveOut(0, entry.size);
        return;
    }
    const std::uint64_t before = m_transfer.Moved();
    try {
        step(entry);
    } catch (const CFatalFailure&) {
        m_transfer.LeaveOut(m_transfer.Moved() - before, entry.size);
        throw;
    } catch (const CFailure& failure) {
        if (entry.directory) {
            m_leftOut = entry.path + L"\\";
        } else {
            m_transfer.LeaveOut(m_transfer.Moved() - before, entry.size);
        }
        return Fail(entry.path, failure.what());
    }
    if (entry.directory) {
        ++m_directories;
    } else {
        m_transfer.FileDone();
    }
}

void CTreeTransfer::Report(const char* ended) {
    if (m_options.json) return ReportJson(ended);
    std::string counts = Count(m_transfer.Files(), "file", "files") + Count(m_directories, "directory", "directories");
    if (!m_failures.empty()) counts += Count(m_failures.size(), "failure", "failures");
    if (ended != nullptr) counts += "incomplete, ";
    m_transfer.Report(counts);
}

void CTreeTransfer::ReportJson(const char* ended) {
    CJson failures = CJson::Array();
    for (const Failure& failure : m_failures) {
        failures.Add(CJson().Set("path", ToUtf8(failure.path)).Set("message", failure.why));
    }
    CJson json;
    json.Set("command", m_verb);
    json.Set("from", m_options.from);
    json.Set("to", m_options.to);
    json.Set("files", m_transfer.Files());
    json.Set("directories", m_directories);
    json.Set("bytes", m_transfer.Moved());
    json.Set("seconds", m_transfer.Seconds());
    json.Set("failures", std::move(failures));
    json.Set("ended", ended);
    WriteLine(json.Line());
}

}  // namespace zd::host
