#include "runtime/services/network/AsyncRequestWorker.h"

#include <algorithm>
#include <exception>
#include <string>
#include <system_error>

#include "runtime/values/Log.h"
#include "runtime/values/ThreadName.h"

namespace VelmoraMobile {

namespace {
const char* const LOG_TAG = "AsyncRequestWorker";
}  // namespace

AsyncRequestWorker::AsyncRequestWorker(size_t max_threads)
    : max_threads_(max_threads == 0 ? 1 : max_threads), state_(std::make_shared<State>()) {}

AsyncRequestWorker::~AsyncRequestWorker() {
    Stop(DEFAULT_STOP_DEADLINE);
}

void AsyncRequestWorker::Post(std::function<void()> task) {
    if (!task) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(state_->mutex);
        if (state_->stopping) {
            Log::Debug(LOG_TAG, "Stopping: a background task was dropped");
            return;
        }
        state_->tasks.push_back(std::move(task));
        if (state_->idle == 0 && threads_.size() < max_threads_) {
            std::shared_ptr<State> state = state_;
            try {
                threads_.emplace_back([state]() { Run(state); });
                return;  // the new thread takes the task
            } catch (const std::system_error& e) {
                // The task waits for a thread that exists or for a later Post that can start one.
                Log::Error(LOG_TAG, "Cannot start a worker thread: %s", std::string(e.what()));
            }
        }
    }
    state_->wake.notify_one();
}

bool AsyncRequestWorker::Stop(std::chrono::milliseconds deadline) {
    const auto until = std::chrono::steady_clock::now() + deadline;
    std::vector<std::thread> threads;
    {
        std::lock_guard<std::mutex> lock(state_->mutex);
        if (state_->stopping) {
            return true;
        }
        state_->stopping = true;
        threads.swap(threads_);
    }
    state_->wake.notify_all();

    const std::thread::id self = std::this_thread::get_id();
    auto has_exited = [&](std::thread::id id) {
        return std::find(state_->exited_ids.begin(), state_->exited_ids.end(), id) != state_->exited_ids.end();
    };
    std::deque<std::function<void()>> dropped;
    std::vector<bool> exited(threads.size(), false);
    {
        std::unique_lock<std::mutex> lock(state_->mutex);
        state_->exited.wait_until(lock, until, [&] {
            return std::all_of(threads.begin(), threads.end(), [&](const std::thread& thread) {
                return thread.get_id() == self || has_exited(thread.get_id());
            });
        });
        // Past the deadline what has not started is not sent at all, rather than one by one.
        dropped.swap(state_->tasks);
        for (size_t i = 0; i < threads.size(); ++i) {
            exited[i] = has_exited(threads[i].get_id());
        }
    }
    const size_t dropped_count = dropped.size();
    dropped.clear();
    state_->wake.notify_all();

    bool left_running = false;
    for (size_t i = 0; i < threads.size(); ++i) {
        if (exited[i]) {
            threads[i].join();
        } else {
            // It holds the state; after its task it finds nothing more and ends.
            left_running = left_running || threads[i].get_id() != self;
            threads[i].detach();
        }
    }
    if (dropped_count > 0 || left_running) {
        Log::Warning(LOG_TAG, "Stopped after %s: %d queued tasks dropped, %s", deadline, dropped_count,
                     std::string(left_running ? "a running one left to finish" : "none left running"));
    }
    return dropped_count == 0 && !left_running;
}

void AsyncRequestWorker::Run(const std::shared_ptr<State>& state) {
    NameThisThread("async");
    std::unique_lock<std::mutex> lock(state->mutex);
    for (;;) {
        ++state->idle;
        state->wake.wait(lock, [&state]() { return state->stopping || !state->tasks.empty(); });
        --state->idle;
        if (state->tasks.empty()) {
            break;  // stopping and drained
        }
        std::function<void()> task = std::move(state->tasks.front());
        state->tasks.pop_front();
        lock.unlock();
        try {
            task();
        } catch (const std::exception& e) {
            Log::Error(LOG_TAG, "A background task failed: %s", std::string(e.what()));
        } catch (...) {
            Log::Error(LOG_TAG, "A background task failed");
        }
        task = nullptr;  // captured owners go before the lock is taken again
        lock.lock();
    }
    state->exited_ids.push_back(std::this_thread::get_id());
    state->exited.notify_all();
}

}  // namespace VelmoraMobile
