#include "transfer/Transfer.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "text/Interrupt.h"
#include "text/Output.h"
#include "text/Text.h"

namespace zd::host {

namespace {

constexpr double kSecondsBetweenDrawings = 0.1;
constexpr int kBarWidth = 24;

}  // namespace

CTransfer::CTransfer(std::string_view verb, std::string name, std::optional<std::uint64_t> total, bool quiet)
    : m_verb(verb), m_name(std::move(name)), m_total(total), m_quiet(quiet), m_width(quiet ? 0 : TerminalWidth()) {}

CTransfer::~CTransfer() {
    Wipe();
}

double CTransfer::Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_begin).count();
}

void CTransfer::Advance(std::uint64_t bytes) {
    CheckInterrupted();
    m_moved += bytes;
    DrawInTime();
}

void CTransfer::ExpectFiles(std::uint64_t files, std::uint64_t bytes) {
    m_totalFiles = files;
    m_total = bytes;
}

void CTransfer::FileDone() {
    ++m_files;
    DrawInTime();
}

void CTransfer::LeaveOut(std::uint64_t moved, std::uint64_t expected) {
    m_moved -= std::min(moved, m_moved);
    if (m_total) *m_total -= std::min(expected, *m_total);
    if (m_totalFiles && *m_totalFiles != 0) --*m_totalFiles;
}

void CTransfer::Tell(const std::string& text) {
    Wipe();
    WriteError(text);
}

void CTransfer::DrawInTime() {
    if (m_width < 2) return;
    const double now = Seconds();
    if (now - m_lastDrawn < kSecondsBetweenDrawings) return;
    m_lastDrawn = now;
    Draw(now);
}

void CTransfer::Draw(double seconds) {
    const double moved = static_cast<double>(m_moved);
    const double rate = seconds > 0 ? moved / seconds : 0;
    std::string line = m_verb + " ";
    std::string files;
    if (m_totalFiles) files = std::to_string(m_files) + " of " + std::to_string(*m_totalFiles) + " files  ";
    if (m_total && *m_total != 0) {
        const double total = static_cast<double>(*m_total);
        const double part = std::min(moved / total, 1.0);
        const int filled = static_cast<int>(part * kBarWidth);
        line += "[" + std::string(static_cast<std::size_t>(filled), '#') +
                std::string(static_cast<std::size_t>(kBarWidth - filled), '.') + "] ";
        char percent[16];
        std::snprintf(percent, sizeof(percent), "%3d%%  ", static_cast<int>(part * 100));
        line += percent + files + FormatBytes(moved) + " of " + FormatBytes(total) + "  " + FormatBytes(rate) + "/s";
        if (rate > 0) line += "  " + FormatSeconds(std::max(total - moved, 0.0) / rate) + " left";
    } else {
        line += files + FormatBytes(moved) + "  " + FormatBytes(rate) + "/s";
    }
    // The line before may have been longer; the last column stays free, because reaching it can begin a new line.
    line.resize(std::min<std::size_t>(m_width, 100) - 1, ' ');
    std::fputs(("\r" + line).c_str(), stderr);
    std::fflush(stderr);
    m_drawn = true;
}

void CTransfer::Wipe() {
    if (!m_drawn) return;
    std::fputs(("\r" + std::string(std::min<std::size_t>(m_width, 100) - 1, ' ') + "\r").c_str(), stderr);
    std::fflush(stderr);
    m_drawn = false;
}

void CTransfer::Report(const std::string& counts) {
    Wipe();
    if (m_quiet) return;
    const double seconds = Seconds();
    const double moved = static_cast<double>(m_moved);
    char time[64];
    std::snprintf(time, sizeof(time), "%.2f s", seconds);
    std::string line = m_verb + ": " + counts + std::to_string(m_moved) + " bytes";
    if (m_moved >= 1024) line += " (" + FormatBytes(moved) + ")";
    line += std::string(" in ") + time;
    if (m_moved >= kPieceSize && seconds > 0) line += ", " + FormatBytes(moved / seconds) + "/s";
    WriteLine(line + ": " + m_name);
}

}  // namespace zd::host
