#pragma once

#include <chrono>
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
/// blocks on the work.
///
/// Stopping is bounded: Stop(deadline), and the destructor with DEFAULT_STOP_DEADLINE, let the
/// posted tasks run until the deadline, then drop the ones not started yet (logged) and leave a
/// task still running to finish alone on its thread, which starts nothing more. When Stop gives
/// true, every task has run and every thread has been joined. A Stop on one of the pool's own
/// threads (a task dropped the last owner) does not wait for that thread.
class AsyncRequestWorker {
public:
    static constexpr std::chrono::milliseconds DEFAULT_STOP_DEADLINE{2000};

    explicit AsyncRequestWorker(size_t max_threads = 2);
    ~AsyncRequestWorker();
    AsyncRequestWorker(const AsyncRequestWorker&) = delete;
    AsyncRequestWorker& operator=(const AsyncRequestWorker&) = delete;

    /// Queues `task`; dropped (logged) once Stop has begun. A task that throws is logged and the
    /// thread goes on.
    void Post(std::function<void()> task);

    /// Ends the pool within `deadline` (see above); false when tasks were dropped or a thread
    /// was left running. Later calls do nothing and give true.
    bool Stop(std::chrono::milliseconds deadline);

private:
    struct State {
        std::mutex mutex;
        std::condition_variable wake;
        std::condition_variable exited;
        std::deque<std::function<void()>> tasks;
        std::vector<std::thread::id> exited_ids;
        size_t idle = 0;
        bool stopping = false;
    };

    static void Run(const std::shared_ptr<State>& state);

    size_t max_threads_;
    std::shared_ptr<State> state_;
    std::vector<std::thread> threads_;  // guarded by state_->mutex
};

}  // namespace VelmoraMobile
