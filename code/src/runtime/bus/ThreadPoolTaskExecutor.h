#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "runtime/bus/TaskExecutorInterface.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// A small fixed pool of threads that run tasks in the order given (several at once, one per
/// thread). Thread-safe; it may even be destroyed on one of its own threads, which is then left
/// to finish its current task and end on its own.
class ThreadPoolTaskExecutor : public Object, public virtual TaskExecutorInterface {
public:
    /// Between 2 and 4 threads, after the machine's cores.
    static size_t DefaultThreadCount();

    explicit ThreadPoolTaskExecutor(size_t thread_count = DefaultThreadCount());
    ~ThreadPoolTaskExecutor() override;
    ThreadPoolTaskExecutor(const ThreadPoolTaskExecutor&) = delete;
    ThreadPoolTaskExecutor& operator=(const ThreadPoolTaskExecutor&) = delete;

    bool Execute(std::function<void()> task) override;
    bool IsExecutorThread() const override;
    void Shutdown() override;
    bool Shutdown(std::chrono::milliseconds deadline) override;

private:
    struct Shared;

    static void WorkerLoop(const std::shared_ptr<Shared>& shared);
    bool Stop(const std::chrono::steady_clock::time_point* until);

    // Workers hold the shared part, so it outlives the pool object when that dies on a worker.
    std::shared_ptr<Shared> shared_;
    std::mutex threads_mutex_;
    std::vector<std::thread> threads_;
};

}  // namespace VelmoraMobile
