#pragma once

#include <cstdint>

namespace VelmoraBench {

/// Counts the syncs to disk that SQLite makes in this process: every xSync of its files (fsync or
/// fdatasync) and every sync of a folder after a new journal or WAL file. Install() wraps the default VFS once, before
/// any database is opened; Count() may be read from any thread.
class SyncCounter {
public:
    static void Install();
    static uint64_t Count();
};

}  // namespace VelmoraBench
