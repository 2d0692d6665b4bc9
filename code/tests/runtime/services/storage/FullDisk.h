#pragma once

#include <signal.h>
#include <sys/resource.h>

namespace VelmoraTest {

/// While alive, no file of the process may grow, so every write that needs room fails as on a full
/// disk (also for root, unlike a read-only folder). Process-wide: keep the scope short.
class FullDisk {
public:
    FullDisk() {
        getrlimit(RLIMIT_FSIZE, &saved_);
        previous_ = signal(SIGXFSZ, SIG_IGN);
        rlimit none = saved_;
        none.rlim_cur = 0;
        setrlimit(RLIMIT_FSIZE, &none);
    }
    ~FullDisk() {
        setrlimit(RLIMIT_FSIZE, &saved_);
        signal(SIGXFSZ, previous_);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    rlimit saved_{};
    sighandler_t previous_{};
};

}  // namespace VelmoraTest
