#pragma once

#include <cstdint>

namespace VelmoraBench {

/// Counts the syncs to disk (xSync of SQLite's files: fsync or fdatasync) that SQLite makes in this
/// process. Install() wraps the default VFS once, before any database is opened; Count() may be
/// read from any thread.
class SyncCounter {
public:
    static void Install();
    static uint64_t Count();
};

}  // namespace VelmoraBench
