#include "runtime/bus/ThreadPoolTaskExecutor.h"

#include <algorithm>
#include <condition_variable>
#include <deque>

#include "runtime/values/Log.h"
#include "runtime/values/TryCatch.h"

namespace VelmoraMobile {

namespace {
const char* const LOG_TAG = "TaskExecutor";
}  // namespace

struct ThreadPoolTaskExecutor::Shared {
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<std::function<void()>> tasks;
    bool stopping{false};
};

namespace {
// The pool whose worker the current thread is, if any.
thread_local const void* t_current_pool = nullptr;
}  // namespace

size_t ThreadPoolTaskExecutor::DefaultThreadCount() {
    size_t cores = std::thread::hardware_concurrency();
    return std::min<size_t>(4, std::max<size_t>(2, cores));
}

ThreadPoolTaskExecutor::ThreadPoolTaskExecutor(size_t thread_count) : shared_(std::make_shared<Shared>()) {
    thread_count = std::max<size_t>(1, thread_count);
    threads_.reserve(thread_count);
    for (size_t i = 0; i < thread_count; ++i) {
        threads_.emplace_back(&ThreadPoolTaskExecutor::WorkerLoop, shared_);
    }
}

ThreadPoolTaskExecutor::~ThreadPoolTaskExecutor() {
    Shutdown();
}

bool ThreadPoolTaskExecutor::Execute(std::function<void()> task) {
    {
        std::lock_guard<std::mutex> lock(shared_->mutex);
        if (shared_->stopping) {
            return false;
        }
        shared_->tasks.push_back(std::move(task));
    }
    shared_->wake.notify_one();
    return true;
}

bool ThreadPoolTaskExecutor::IsExecutorThread() const {
    return t_current_pool == shared_.get();
}

void ThreadPoolTaskExecutor::Shutdown() {
    std::deque<std::function<void()>> dropped;
    {
        std::lock_guard<std::mutex> lock(shared_->mutex);
        shared_->stopping = true;
        dropped.swap(shared_->tasks);
    }
    shared_->wake.notify_all();
    // Dropped tasks may own objects whose destructors add work; the pool refuses it by now.
    dropped.clear();

    std::vector<std::thread> threads;
    {
        std::lock_guard<std::mutex> lock(threads_mutex_);
        threads.swap(threads_);
    }
    for (std::thread& thread : threads) {
        if (thread.get_id() == std::this_thread::get_id()) {
            thread.detach();
        } else {
            thread.join();
        }
    }
}

void ThreadPoolTaskExecutor::WorkerLoop(const std::shared_ptr<Shared>& shared) {
    t_current_pool = shared.get();
    for (;;) {
        std::function<void()> task;
        {
            std::unique_lock<std::mutex> lock(shared->mutex);
            shared->wake.wait(lock, [&] { return shared->stopping || !shared->tasks.empty(); });
            if (shared->stopping) {
                return;
            }
            task = std::move(shared->tasks.front());
            shared->tasks.pop_front();
        }
        TryCatch(task, [](SdkError& error) { Log::Warning(LOG_TAG, "A task failed: %s", error); });
    }
}

}  // namespace VelmoraMobile
