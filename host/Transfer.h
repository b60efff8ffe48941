// A transfer under way: what it has moved, the line on the terminal that shows it, and the report at its end.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zd {

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

    // Writes "put: 52428800 bytes (50.0 MiB) in 0.84 s, 59.5 MiB/s: \x" to standard output unless quiet.
    void Report();

private:
    void Draw(double seconds);
    void Wipe();
    double Seconds() const;

    std::string m_verb;
    std::string m_name;
    std::optional<std::uint64_t> m_total;
    bool m_quiet;
    std::size_t m_width;  // columns for the progress line, 0 for none
    bool m_drawn = false;
    std::uint64_t m_moved = 0;
    double m_lastDrawn = 0;
    std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};

}  // namespace zd
