#include "runtime/values/Log.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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
    Log::Sink sink;
};

SinkHolder& Holder() {
    static SinkHolder holder;
    return holder;
}

const char* ModeName(LoggingMode mode) {
    switch (mode) {
        case LoggingMode::ERROR_LOG: return "ERROR";
        case LoggingMode::WARNING_LOG: return "WARNING";
        case LoggingMode::DEBUG_LOG: return "DEBUG";
        case LoggingMode::VERBOSE_LOG: return "VERBOSE";
    }
    return "LOG";
}

void Write(LoggingMode mode, const char* tag, const std::string& message) {
    SinkHolder& holder = Holder();
    std::lock_guard<std::mutex> lock(holder.mutex);
    if (holder.sink) {
        holder.sink(mode, tag ? tag : "", message);
        return;
    }
    std::fprintf(stderr, "[%s] %s: %s\n", ModeName(mode), tag ? tag : "", message.c_str());
}

}  // namespace

bool Log::Precheck(LoggingMode mode) {
    return static_cast<int>(mode) <= Level().load(std::memory_order_relaxed);
}

void Log::SetLogLevel(LoggingMode level) {
    Level().store(static_cast<int>(level), std::memory_order_relaxed);
}

LoggingMode Log::GetLogLevel() {
    return static_cast<LoggingMode>(Level().load(std::memory_order_relaxed));
}

void Log::SetSink(Sink sink) {
    SinkHolder& holder = Holder();
    std::lock_guard<std::mutex> lock(holder.mutex);
    holder.sink = std::move(sink);
}

void Log::ErrorImpl(const char* tag, const std::string& message) {
    Write(LoggingMode::ERROR_LOG, tag, message);
}
void Log::WarningImpl(const char* tag, const std::string& message) {
    Write(LoggingMode::WARNING_LOG, tag, message);
}
void Log::DebugImpl(const char* tag, const std::string& message) {
    Write(LoggingMode::DEBUG_LOG, tag, message);
}
void Log::TraceImpl(const char* tag, const std::string& message) {
    Write(LoggingMode::VERBOSE_LOG, tag, message);
}

}  // namespace VelmoraMobile
