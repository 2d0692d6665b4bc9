#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

namespace VelmoraMobile {

/// Hands out one shared T per name, made on first request and kept for the life of the process.
/// Thread-safe.
template <typename T>
class NamedSingletonRegistry {
public:
    template <typename Make>
    std::shared_ptr<T> Get(const std::string& name, Make make) {
        std::lock_guard<std::mutex> lock(mutex_);
        std::shared_ptr<T>& entry = registry_[name];
        if (!entry) {
            entry = make(name);
        }
        return entry;
    }

private:
    std::mutex mutex_;
    std::unordered_map<std::string, std::shared_ptr<T>> registry_;
};

}  // namespace VelmoraMobile
