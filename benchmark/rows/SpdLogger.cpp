#include "benchmark/rows/SpdLogger.h"

#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

namespace zd::bench {

struct CSpdLogger::CParts {
    std::shared_ptr<spdlog::details::thread_pool> pool;
    std::shared_ptr<spdlog::async_logger> logger;
};

CSpdLogger::CSpdLogger(const std::string& path) : m_parts(std::make_unique<CParts>()) {
    m_parts->pool = std::make_shared<spdlog::details::thread_pool>(static_cast<std::size_t>(kQueueLength), 1);
    m_parts->logger =
        std::make_shared<spdlog::async_logger>("zdbench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(path),
                                               m_parts->pool, spdlog::async_overflow_policy::block);
    // The columns of the plug-in's own lines.
    m_parts->logger->set_pattern("%Y/%m/%d %H:%M:%S (%P:%n, %t) - %v");
    SetOpen(false);
}

CSpdLogger::~CSpdLogger() = default;

void CSpdLogger::SetOpen(bool open) {
    m_parts->logger->set_level(open ? spdlog::level::trace : spdlog::level::err);
}

void CSpdLogger::Log(const char* path, unsigned flags, int descriptor) {
    m_parts->logger->info("ZdvfsOpen(\"{}\", {:#x}) = {}", path, flags, descriptor);
}

void CSpdLogger::Drain() {
    m_parts->logger->flush();
    // The flush itself stands in the queue; when it has gone, all before it is in the file.
    while (m_parts->pool->queue_size() > 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

}  // namespace zd::bench
