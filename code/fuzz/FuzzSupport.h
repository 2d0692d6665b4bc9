#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <string>

#include "runtime/bus/Module.h"
#include "runtime/values/Log.h"

namespace VelmoraFuzz {

/// The input as text: every byte, NUL included.
inline std::string Text(const uint8_t* data, size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size);
}

/// A folder of this process, made on first use and removed at exit. Never destroyed itself, so
/// the exit handler can still read it.
inline const std::string& ScratchDir() {
    static const std::string* const dir = [] {
        auto* pattern = new std::string((std::filesystem::temp_directory_path() / "velmora-fuzz-XXXXXX").string());
        if (mkdtemp(pattern->data()) == nullptr) {
            std::perror("mkdtemp");
            std::abort();
        }
        return pattern;
    }();
    static const bool cleanup = std::atexit([] {
                                    std::error_code ignored;
                                    std::filesystem::remove_all(*dir, ignored);
                                }) == 0;
    (void)cleanup;
    return *dir;
}

inline void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

/// Every log gate open, so that formatting sees the input, but no line printed: the fuzzer's own
/// output stays readable and fast.
inline void QuietLogs() {
    VelmoraMobile::Log::SetLogLevel(VelmoraMobile::LoggingMode::VERBOSE_LOG);
    VelmoraMobile::Log::SetSink([](VelmoraMobile::LoggingMode, const char*, const std::string&) {});
}

/// Waits until every task queued so far on `module` has run. A queue that does not drain within
/// a generous bound is a hang: abort, so the fuzzer keeps the input.
inline void Drain(VelmoraMobile::Module& module) {
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> finished = done->get_future();
    module.AddTaskToQueue("fuzz.drain", [done] { done->set_value(); });
    if (finished.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
        std::fprintf(stderr, "task queue of %s did not drain\n", module.GetModuleName().c_str());
        std::abort();
    }
}

}  // namespace VelmoraFuzz
