#include "log/LogReader.h"

#include "Failure.h"
#include "Interrupt.h"

namespace zd {

namespace {

constexpr DWORD kBlock = 1 << 16;
// Each rotation leaves a file that nobody writes any more.
constexpr std::size_t kMostTails = 8;
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

void CLogFollower::Add(const std::wstring& path) {
    m_tails.emplace_back(path, m_sink);
    if (m_tails.size() <= kMostTails) return;
    ReadTail(m_tails.front());
    m_tails.front().parser.FlushAll();
    m_tails.pop_front();
}

void CLogFollower::Read() {
    for (CTail& tail : m_tails) ReadTail(tail);
    const std::size_t before = m_tails.size();
    AddNewer();
    // What an older file has got until the newer one came stands before it.
    for (std::size_t i = 0; i < m_tails.size(); ++i) {
        if (m_tails.size() != before) ReadTail(m_tails[i]);
    }
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
        tail.parser.FlushAll();
    } else if (now - tail.lastRead >= kQuietForWhole) {
        tail.parser.FlushWhole();
    }
}

void CLogFollower::AddNewer() {
    if (!m_folder) return;
    std::vector<std::wstring> names;
    try {
        names = LogFileNames(*m_folder);
    } catch (const CFailure&) {
        return;  // a folder that is not there yet, or no more
    }
    for (const std::wstring& name : names) {
        if (name <= m_newest) continue;
        try {
            Add(PathBelow(*m_folder, name));
        } catch (const CFailure&) {
            return;  // it may be gone already; if not, the next look finds it again
        }
        m_newest = name;
    }
}

}  // namespace zd
