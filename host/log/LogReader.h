// Reads log files into entries: whole ones, and ones that are still being written.
#pragma once

#include <windows.h>

#include <list>
#include <optional>
#include <set>
#include <string>

#include "log/LogFile.h"
#include "log/LogParser.h"

namespace zd::host {

// Gives the sink every entry of the file, the last one as it stands. Throws CFailure; CInterrupted on Ctrl-C.
void ReadLogFile(const std::wstring& path, const CLogParser::Sink& sink);

// Follows log files, and those that come into being in their folder. Every process writes one of its own, so older ones
// are read on as well: of more than kMostTails, the one in which nothing has come for the longest time is given up. Not
// thread-safe.
class CLogFollower {
public:
    static constexpr std::size_t kMostTails = 64;

    // Files of the folder whose names are not `known` are new. Names do not tell which: they hold local time, which
    // goes back. Without a folder no new files are looked for.
    CLogFollower(std::optional<std::wstring> folder, std::set<std::wstring> known, CLogParser::Sink sink)
        : m_folder(std::move(folder)), m_known(std::move(known)), m_sink(std::move(sink)) {}

    // Begins with a file: gives the sink the entries in it whose lines have ended. Throws CFailure.
    void Begin(const std::wstring& path);

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
        ULONGLONG lastRead = ::GetTickCount64();
    };

    void ReadTail(CTail& tail) const;
    bool AddNew();
    void GiveUpIdlest();

    std::optional<std::wstring> m_folder;
    std::set<std::wstring> m_known;
    CLogParser::Sink m_sink;
    std::list<CTail> m_tails;
};

}  // namespace zd::host
