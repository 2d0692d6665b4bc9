#include "runtime/bus/ThreadPoolTaskExecutor.h"

#include <algorithm>
#include <condition_variable>

#include "runtime/bus/ReusingQueue.h"
#include "runtime/values/Log.h"
#include "runtime/values/ThreadName.h"
#include "runtime/values/TryCatch.h"

namespace VelmoraMobile {

namespace {
const char* const LOG_TAG = "TaskExecutor";
}  // namespace

struct ThreadPoolTaskExecutor::Shared {
    std::mutex mutex;
    std::condition_variable wake;
    ReusingQueue<std::function<void()>> tasks;
    bool stopping{false};
    // Workers that have left their loop, so joining them cannot block.
    std::condition_variable exited;
    std::vector<std::thread::id> exited_ids;
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
    Stop(nullptr);
}

bool ThreadPoolTaskExecutor::Shutdown(std::chrono::milliseconds deadline) {
    const auto until = std::chrono::steady_clock::now() + deadline;
    return Stop(&until);
}

bool ThreadPoolTaskExecutor::Stop(const std::chrono::steady_clock::time_point* until) {
    ReusingQueue<std::function<void()>> dropped;
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
    bool all_joined = true;
    for (std::thread& thread : threads) {
        const std::thread::id id = thread.get_id();
        bool exited = true;
        if (until != nullptr && id != std::this_thread::get_id()) {
            std::unique_lock<std::mutex> lock(shared_->mutex);
            exited = shared_->exited.wait_until(lock, *until, [&] {
                return std::find(shared_->exited_ids.begin(), shared_->exited_ids.end(), id) !=
                       shared_->exited_ids.end();
            });
        }
        if (id == std::this_thread::get_id() || !exited) {
            // Its task goes on; the thread holds what it needs and ends by itself.
            thread.detach();
            all_joined = all_joined && id == std::this_thread::get_id();
        } else {
            thread.join();
        }
    }
    if (!all_joined) {
        Log::Warning(LOG_TAG, "A task still ran when the executor's deadline passed; its thread was left to finish");
    }
    return all_joined;
}

void ThreadPoolTaskExecutor::WorkerLoop(const std::shared_ptr<Shared>& shared) {
    t_current_pool = shared.get();
    NameThisThread("tasks");
    for (;;) {
        std::function<void()> task;
        {
            std::unique_lock<std::mutex> lock(shared->mutex);
            shared->wake.wait(lock, [&] { return shared->stopping || !shared->tasks.empty(); });
            if (shared->stopping) {
                shared->exited_ids.push_back(std::this_thread::get_id());
                shared->exited.notify_all();
                return;
            }
            task = std::move(shared->tasks.front());
            shared->tasks.pop_front();
        }
        TryCatch(task, [](SdkError& error) { Log::Warning(LOG_TAG, "A task failed: %s", error); });
    }
}

}  // namespace VelmoraMobile
