#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace VelmoraMobile {

/// A small pool of threads for fire-and-forget work such as asynchronous HTTP requests.
/// Threads start on demand, up to `max_threads`. Post may be called from any thread and never
/// blocks on the work. The destructor lets every posted task run, then joins the threads; when
/// it runs on one of the pool's own threads (a task dropped the last owner), that thread is
/// left to finish on its own instead of joining itself.
class AsyncRequestWorker {
public:
    explicit AsyncRequestWorker(size_t max_threads = 2);
    ~AsyncRequestWorker();
    AsyncRequestWorker(const AsyncRequestWorker&) = delete;
    AsyncRequestWorker& operator=(const AsyncRequestWorker&) = delete;

    /// Queues `task`. A task that throws is logged and the thread goes on.
    void Post(std::function<void()> task);

private:
    struct State {
        std::mutex mutex;
        std::condition_variable wake;
        std::deque<std::function<void()>> tasks;
        size_t idle = 0;
        bool stopping = false;
    };

    static void Run(const std::shared_ptr<State>& state);

    size_t max_threads_;
    std::shared_ptr<State> state_;
    std::vector<std::thread> threads_;  // guarded by state_->mutex
};

}  // namespace VelmoraMobile
