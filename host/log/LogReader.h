// Reads log files into entries: whole ones, and ones that are still being written.
#pragma once

#include <windows.h>

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "log/LogFile.h"
#include "log/LogParser.h"

namespace zd {

// Gives the sink every entry of the file, the last one as it stands. Throws CFailure; CInterrupted on Ctrl-C.
void ReadLogFile(const std::wstring& path, const CLogParser::Sink& sink);

// Follows a log file, and the newer ones that come into being in its folder. Those that it has begun with are read on
// as well, since another process may be writing them. Not thread-safe.
class CLogFollower {
public:
    // Without a folder no newer files are looked for.
    CLogFollower(std::optional<std::wstring> folder, CLogParser::Sink sink)
        : m_folder(std::move(folder)), m_sink(std::move(sink)) {}

    // Begins with a file. Throws CFailure.
    void Add(const std::wstring& path);

    // Files of the folder with this name, and names before it, are not newer.
    void SkipUpTo(const std::wstring& name) { m_newest = name; }

    // Reads what is there now. Entries that may go on are kept, for a while.
    void Read();

    // Gives the sink the entries whose lines have ended.
    void FlushWhole();

    // Gives it all that has been read.
    void FlushAll();

private:
    struct CTail {
        CTail(const std::wstring& path, const CLogParser::Sink& sink) : file(path), parser(sink) {}
        CLogFile file;
        CLogParser parser;
        ULONGLONG lastRead = 0;
    };

    void ReadTail(CTail& tail) const;
    void AddNewer();

    std::optional<std::wstring> m_folder;
    CLogParser::Sink m_sink;
    std::wstring m_newest;
    std::deque<CTail> m_tails;
};

}  // namespace zd
