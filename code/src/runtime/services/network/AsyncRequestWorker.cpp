#include "runtime/services/network/AsyncRequestWorker.h"

#include <exception>
#include <system_error>

#include "runtime/values/Log.h"

namespace VelmoraMobile {

AsyncRequestWorker::AsyncRequestWorker(size_t max_threads)
    : max_threads_(max_threads == 0 ? 1 : max_threads), state_(std::make_shared<State>()) {}

AsyncRequestWorker::~AsyncRequestWorker() {
    std::vector<std::thread> threads;
    {
        std::lock_guard<std::mutex> lock(state_->mutex);
        state_->stopping = true;
        threads.swap(threads_);
    }
    state_->wake.notify_all();
    for (std::thread& thread : threads) {
        if (thread.get_id() == std::this_thread::get_id()) {
            thread.detach();  // it holds the state and drains the rest itself
        } else {
            thread.join();
        }
    }
}

void AsyncRequestWorker::Post(std::function<void()> task) {
    if (!task) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(state_->mutex);
        state_->tasks.push_back(std::move(task));
        if (state_->idle == 0 && threads_.size() < max_threads_) {
            std::shared_ptr<State> state = state_;
            try {
                threads_.emplace_back([state]() { Run(state); });
                return;  // the new thread takes the task
            } catch (const std::system_error& e) {
                // The task waits for a thread that exists or for a later Post that can start one.
                Log::Error("AsyncRequestWorker", "Cannot start a worker thread: %s", std::string(e.what()));
            }
        }
    }
    state_->wake.notify_one();
}

void AsyncRequestWorker::Run(const std::shared_ptr<State>& state) {
    std::unique_lock<std::mutex> lock(state->mutex);
    for (;;) {
        ++state->idle;
        state->wake.wait(lock, [&state]() { return state->stopping || !state->tasks.empty(); });
        --state->idle;
        if (state->tasks.empty()) {
            return;  // stopping and drained
        }
        std::function<void()> task = std::move(state->tasks.front());
        state->tasks.pop_front();
        lock.unlock();
        try {
            task();
        } catch (const std::exception& e) {
            Log::Error("AsyncRequestWorker", "A background task failed: %s", std::string(e.what()));
        } catch (...) {
            Log::Error("AsyncRequestWorker", "A background task failed");
        }
        task = nullptr;  // captured owners go before the lock is taken again
        lock.lock();
    }
}

}  // namespace VelmoraMobile
