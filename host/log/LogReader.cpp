#include "log/LogReader.h"

#include <algorithm>

#include "text/Failure.h"
#include "text/Interrupt.h"

namespace zd::host {

namespace {

constexpr DWORD kBlock = 1 << 16;
// The log writes the lines of one text together: what has not come by then is not its rest.
constexpr ULONGLONG kQuietForWhole = 250;
constexpr ULONGLONG kQuietForPart = 1000;

// Feeds what the file holds from here on; false where there was nothing.
bool FeedAll(CLogFile& file, CLogParser& parser) {
    std::string block(kBlock, '\0');
    bool any = false;
    while (const DWORD got = file.Read(block.data(), kBlock)) {
        CheckInterrupted();
        parser.Feed(std::string_view(block.data(), got));
        any = true;
    }
    return any;
}

}  // namespace

void ReadLogFile(const std::wstring& path, const CLogParser::Sink& sink) {
    CLogFile file(path);
    CLogParser parser(sink);
    FeedAll(file, parser);
    parser.FlushAll();
}

void CLogFollower::Begin(const std::wstring& path) {
    CTail& tail = m_tails.emplace_back(path, m_sink);
    ReadTail(tail);
    tail.parser.FlushWhole();
    GiveUpIdlest();
}

void CLogFollower::Read() {
    for (CTail& tail : m_tails) ReadTail(tail);
    if (!AddNew()) return;
    // What an older file has got until the new one came stands before it.
    for (CTail& tail : m_tails) ReadTail(tail);
    GiveUpIdlest();
}

void CLogFollower::FlushWhole() {
    for (CTail& tail : m_tails) tail.parser.FlushWhole();
}

void CLogFollower::FlushAll() {
    for (CTail& tail : m_tails) tail.parser.FlushAll();
}

void CLogFollower::ReadTail(CTail& tail) const {
    const ULONGLONG now = ::GetTickCount64();
    if (FeedAll(tail.file, tail.parser)) {
        tail.lastRead = now;
    } else if (now - tail.lastRead >= kQuietForPart) {
        tail.parser.FlushPart();
    } else if (now - tail.lastRead >= kQuietForWhole) {
        tail.parser.FlushWhole();
    }
}

bool CLogFollower::AddNew() {
    if (!m_folder) return false;
    std::vector<std::wstring> names;
    try {
        names = LogFileNames(*m_folder);
    } catch (const CFailure&) {
        // Not there yet, or no more. One that does not answer for a moment still has its files.
        if (::GetFileAttributesW(m_folder->c_str()) != INVALID_FILE_ATTRIBUTES) return false;
        const DWORD code = ::GetLastError();
        if (code != ERROR_FILE_NOT_FOUND && code != ERROR_PATH_NOT_FOUND) return false;
    }
    // A file that is made anew under the name of one that has gone is new.
    std::erase_if(m_known,
                  [&](const std::wstring& name) { return !std::binary_search(names.begin(), names.end(), name); });
    bool any = false;
    for (const std::wstring& name : names) {
        if (m_known.contains(name)) continue;
        try {
            m_tails.emplace_back(PathBelow(*m_folder, name), m_sink);
        } catch (const CFailure&) {
            continue;  // it may be gone already; if not, the next look finds it again
        }
        m_known.insert(name);
        any = true;
    }
    return any;
}

void CLogFollower::GiveUpIdlest() {
    while (m_tails.size() > kMostTails) {
        const auto idlest = std::min_element(m_tails.begin(), m_tails.end(), [](const CTail& one, const CTail& other) {
            return one.lastRead < other.lastRead;
        });
        ReadTail(*idlest);
        idlest->parser.FlushAll();
        m_tails.erase(idlest);
    }
}

}  // namespace zd::host
