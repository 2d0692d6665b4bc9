#include "runtime/values/Log.h"

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

namespace VelmoraMobile {

namespace {

int LevelFromEnvironment() {
    const char* text = std::getenv("VELMORA_LOG_LEVEL");
    if (text == nullptr || *text == '\0') {
        return static_cast<int>(LoggingMode::WARNING_LOG);
    }
    if (std::strcmp(text, "error") == 0) return 0;
    if (std::strcmp(text, "warning") == 0) return 1;
    if (std::strcmp(text, "debug") == 0) return 2;
    if (std::strcmp(text, "verbose") == 0 || std::strcmp(text, "trace") == 0) return 3;
    if (text[0] >= '0' && text[0] <= '3' && text[1] == '\0') return text[0] - '0';
    return static_cast<int>(LoggingMode::WARNING_LOG);
}

std::atomic<int>& Level() {
    static std::atomic<int> level{LevelFromEnvironment()};
    return level;
}

struct SinkHolder {
    std::mutex mutex;
    std::condition_variable released;
    // Callers copy the pointer and call without the lock; SetSink waits until the old one is
    // held by nobody else.
    std::shared_ptr<const Log::Sink> sink;
};

SinkHolder& Holder() {
    static SinkHolder holder;
    return holder;
}

// How deep the current thread is inside sink calls.
thread_local int t_sink_depth = 0;

void Write(LoggingMode mode, const char* tag, const std::string& message) {
    SinkHolder& holder = Holder();
    std::shared_ptr<const Log::Sink> sink;
    {
        std::lock_guard<std::mutex> lock(holder.mutex);
        sink = holder.sink;
    }
    if (!sink) {
        std::fprintf(stderr, "[%s] %s: %s\n", LoggingModeName(mode), tag ? tag : "", message.c_str());
        return;
    }
    ++t_sink_depth;
    try {
        (*sink)(mode, tag ? tag : "", message);
    } catch (...) {
        // A failing sink costs its line, never the caller.
    }
    --t_sink_depth;
    {
        std::lock_guard<std::mutex> lock(holder.mutex);
        sink.reset();
    }
    holder.released.notify_all();
}

}  // namespace

std::atomic<int> Log::gate_{static_cast<int>(LoggingMode::WARNING_LOG)};

void Log::SetLogLevel(LoggingMode level) {
    const int value = static_cast<int>(level);
    Level().store(value, std::memory_order_relaxed);
    gate_.store(value < 1 ? 1 : value, std::memory_order_relaxed);
}

LoggingMode Log::GetLogLevel() {
    return static_cast<LoggingMode>(Level().load(std::memory_order_relaxed));
}

void Log::SetSink(Sink sink) {
    SinkHolder& holder = Holder();
    std::shared_ptr<const Sink> replacement = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
    std::unique_lock<std::mutex> lock(holder.mutex);
    std::shared_ptr<const Sink> old = std::move(holder.sink);
    holder.sink = std::move(replacement);
    // Inside a sink the calling thread holds a copy itself and must not wait for it.
    if (old && t_sink_depth == 0) {
        holder.released.wait(lock, [&] { return old.use_count() == 1; });
    }
    lock.unlock();
    old.reset();
}

namespace {

// Opens the gate for VELMORA_LOG_LEVEL at start; a level set earlier is already in Level().
[[maybe_unused]] const bool kLevelFromEnvironment = [] {
    Log::SetLogLevel(Log::GetLogLevel());
    return true;
}();

}  // namespace

void Log::ErrorImpl(const char* tag, const std::string& message) {
    Write(LoggingMode::ERROR_LOG, tag, message);
}
void Log::WarningImpl(const char* tag, const std::string& message) {
    if (GetLogLevel() < LoggingMode::WARNING_LOG) {
        return;
    }
    Write(LoggingMode::WARNING_LOG, tag, message);
}
void Log::DebugImpl(const char* tag, const std::string& message) {
    Write(LoggingMode::DEBUG_LOG, tag, message);
}
void Log::TraceImpl(const char* tag, const std::string& message) {
    Write(LoggingMode::VERBOSE_LOG, tag, message);
}

}  // namespace VelmoraMobile
