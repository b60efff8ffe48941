// A transfer under way: what it has moved, the line on the terminal that shows it, and the report at its end.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zd::host {

// The size of the pieces in which data goes through the plug-in.
constexpr std::uint32_t kPieceSize = 1024 * 1024;

class CTransfer {
public:
    // `verb` is the command's name, `name` what is shown (UTF-8), `total` the bytes to come where they are known. The
    // progress line is drawn only where `quiet` is false and standard error is a terminal.
    CTransfer(std::string_view verb, std::string name, std::optional<std::uint64_t> total, bool quiet);
    // Wipes the progress line.
    ~CTransfer();
    CTransfer(const CTransfer&) = delete;
    CTransfer& operator=(const CTransfer&) = delete;

    // Counts `bytes` more. Throws CFatalFailure where the user has interrupted.
    void Advance(std::uint64_t bytes);

    std::uint64_t Moved() const { return m_moved; }
    std::uint64_t Files() const { return m_files; }
    double Seconds() const;

    // From now on this is the transfer of many files, of so many bytes together.
    void ExpectFiles(std::uint64_t files, std::uint64_t bytes);
    // Counts one more of them.
    void FileDone();
    // Leaves a file out: `moved` of its bytes have been counted, and `expected` were to come in all.
    void LeaveOut(std::uint64_t moved, std::uint64_t expected);

    // Writes "zdhost: <text>" to standard error, not into the progress line.
    void Tell(const std::string& text);

    // Writes "put: 52428800 bytes (50.0 MiB) in 0.84 s, 59.5 MiB/s: \x" to standard output unless quiet. Counts of
    // files
    // ("2 files, ") stand in front of the bytes.
    void Report(const std::string& counts = "");

private:
    void DrawInTime();
    void Draw(double seconds);
    void Wipe();

    std::string m_verb;
    std::string m_name;
    std::optional<std::uint64_t> m_total;
    bool m_quiet;
    std::size_t m_width;  // columns for the progress line, 0 for none
    bool m_drawn = false;
    std::uint64_t m_moved = 0;
    std::uint64_t m_files = 0;
    std::optional<std::uint64_t> m_totalFiles;
    double m_lastDrawn = 0;
    std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};

}  // namespace zd::host
