#pragma once

#include <condition_variable>
#include <mutex>

namespace VelmoraTest {

/// Opens once; a task or processor blocks on it until the test opens it.
class Gate {
public:
    void Open() {
        std::lock_guard<std::mutex> lock(mutex_);
        open_ = true;
        condition_.notify_all();
    }
    void Wait() {
        std::unique_lock<std::mutex> lock(mutex_);
        ++waiting_;
        condition_.wait(lock, [this] { return open_; });
    }
    int Waiting() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return waiting_;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable condition_;
    bool open_{false};
    int waiting_{0};
};

}  // namespace VelmoraTest
