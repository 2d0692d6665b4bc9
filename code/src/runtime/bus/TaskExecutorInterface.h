#pragma once

#include <chrono>
#include <functional>

#include "runtime/values/ObjectInterface.h"

namespace VelmoraMobile {

/// Runs work on threads of its own. The hub owns one and hands it to its modules, whose task
/// queues run on it. Every operation may be called from any thread.
class TaskExecutorInterface : public virtual ObjectInterface {
public:
    /// Runs `task` later on one of the executor's threads. False when the executor no longer
    /// takes work; the task is then destroyed without running.
    virtual bool Execute(std::function<void()> task) = 0;
    /// Whether the calling thread is one of this executor's.
    virtual bool IsExecutorThread() const = 0;
    /// Stops taking work, drops what has not started and waits for what is running. Called on
    /// one of the executor's own threads it does not wait for that thread. Repeated calls do nothing.
    virtual void Shutdown() = 0;
    /// The same, but waits at most `deadline` for what is running; a thread still busy then is
    /// left to finish its task on its own. False when something was left so. By default the
    /// wait is not bounded.
    virtual bool Shutdown(std::chrono::milliseconds deadline) {
        (void)deadline;
        Shutdown();
        return true;
    }
};

}  // namespace VelmoraMobile
