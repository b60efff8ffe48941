// The asynchronous logger of another maker that the log is measured against: a bounded queue, one thread, one file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace zd::bench {

// Any one thread.
class CSpdLogger {
public:
    // The queue's length. A call waits where it is full, so that no line is lost.
    static constexpr std::int64_t kQueueLength = 32768;

    explicit CSpdLogger(const std::string& path);
    ~CSpdLogger();
    CSpdLogger(const CSpdLogger&) = delete;
    CSpdLogger& operator=(const CSpdLogger&) = delete;

    // Lines below errors, as the rows write them. Only an open log takes them.
    void SetOpen(bool open);
    void Log(const char* path, unsigned flags, int descriptor);

    // Waits until the file holds every line.
    void Drain();

private:
    struct CParts;
    std::unique_ptr<CParts> m_parts;
};

}  // namespace zd::bench
