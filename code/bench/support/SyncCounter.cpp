#include "bench/support/SyncCounter.h"

#include <sqlite3.h>

#include <atomic>
#include <cstring>
#include <mutex>

namespace VelmoraBench {

namespace {

std::atomic<uint64_t> g_syncs{0};
sqlite3_vfs* g_base = nullptr;
sqlite3_vfs g_vfs;
sqlite3_io_methods g_methods;

// The wrapped file: our header, then the base VFS's file right behind it.
struct CountedFile {
    sqlite3_file header;
    sqlite3_file* Base() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

CountedFile* Of(sqlite3_file* file) {
    return reinterpret_cast<CountedFile*>(file);
}

int Sync(sqlite3_file* file, int flags) {
    g_syncs.fetch_add(1, std::memory_order_relaxed);
    return Of(file)->Base()->pMethods->xSync(Of(file)->Base(), flags);
}

// Every method but xSync and xClose forwards to the base file unchanged.
#define FORWARD(name, signature, call)         \
    int name signature {                       \
        sqlite3_file* base = Of(file)->Base(); \
        return base->pMethods->call;           \
    }
FORWARD(Read, (sqlite3_file * file, void* data, int amount, sqlite3_int64 offset), xRead(base, data, amount, offset))
FORWARD(Write, (sqlite3_file * file, const void* data, int amount, sqlite3_int64 offset),
        xWrite(base, data, amount, offset))
FORWARD(Truncate, (sqlite3_file * file, sqlite3_int64 size), xTruncate(base, size))
FORWARD(FileSize, (sqlite3_file * file, sqlite3_int64* size), xFileSize(base, size))
FORWARD(Lock, (sqlite3_file * file, int lock), xLock(base, lock))
FORWARD(Unlock, (sqlite3_file * file, int lock), xUnlock(base, lock))
FORWARD(CheckReservedLock, (sqlite3_file * file, int* out), xCheckReservedLock(base, out))
FORWARD(FileControl, (sqlite3_file * file, int op, void* arg), xFileControl(base, op, arg))
FORWARD(SectorSize, (sqlite3_file * file), xSectorSize(base))
FORWARD(DeviceCharacteristics, (sqlite3_file * file), xDeviceCharacteristics(base))
FORWARD(ShmMap, (sqlite3_file * file, int page, int size, int extend, void volatile** out),
        xShmMap(base, page, size, extend, out))
FORWARD(ShmLock, (sqlite3_file * file, int offset, int n, int flags), xShmLock(base, offset, n, flags))
FORWARD(ShmUnmap, (sqlite3_file * file, int remove), xShmUnmap(base, remove))
FORWARD(Fetch, (sqlite3_file * file, sqlite3_int64 offset, int amount, void** out), xFetch(base, offset, amount, out))
FORWARD(Unfetch, (sqlite3_file * file, sqlite3_int64 offset, void* page), xUnfetch(base, offset, page))
#undef FORWARD

void ShmBarrier(sqlite3_file* file) {
    Of(file)->Base()->pMethods->xShmBarrier(Of(file)->Base());
}

// The unix VFS opens a folder only to sync it after making a journal or WAL file in it: one
// more sync to disk inside the file's own xSync.
sqlite3_syscall_ptr g_open_directory = nullptr;

int OpenDirectory(const char* path, int* fd) {
    g_syncs.fetch_add(1, std::memory_order_relaxed);
    return reinterpret_cast<int (*)(const char*, int*)>(g_open_directory)(path, fd);
}

int Close(sqlite3_file* file) {
    sqlite3_file* base = Of(file)->Base();
    return base->pMethods != nullptr ? base->pMethods->xClose(base) : SQLITE_OK;
}

int Open(sqlite3_vfs*, sqlite3_filename name, sqlite3_file* file, int flags, int* out_flags) {
    CountedFile* counted = Of(file);
    std::memset(counted->Base(), 0, static_cast<size_t>(g_base->szOsFile));
    int code = g_base->xOpen(g_base, name, counted->Base(), flags, out_flags);
    // SQLite calls xClose even after a failed open when pMethods is set.
    counted->header.pMethods = counted->Base()->pMethods != nullptr ? &g_methods : nullptr;
    return code;
}

}  // namespace

void SyncCounter::Install() {
    static std::once_flag once;
    std::call_once(once, [] {
        sqlite3_initialize();
        g_base = sqlite3_vfs_find(nullptr);
        g_vfs = *g_base;
        g_vfs.zName = "velmora-bench-sync-counter";
        g_vfs.szOsFile = static_cast<int>(sizeof(CountedFile)) + g_base->szOsFile;
        g_vfs.xOpen = Open;
        g_methods = sqlite3_io_methods{3,
                                       Close,
                                       Read,
                                       Write,
                                       Truncate,
                                       Sync,
                                       FileSize,
                                       Lock,
                                       Unlock,
                                       CheckReservedLock,
                                       FileControl,
                                       SectorSize,
                                       DeviceCharacteristics,
                                       ShmMap,
                                       ShmLock,
                                       ShmBarrier,
                                       ShmUnmap,
                                       Fetch,
                                       Unfetch};
        if (g_base->iVersion >= 3 && g_base->xGetSystemCall != nullptr) {
            g_open_directory = g_base->xGetSystemCall(g_base, "openDirectory");
            if (g_open_directory != nullptr) {
                g_base->xSetSystemCall(g_base, "openDirectory", reinterpret_cast<sqlite3_syscall_ptr>(OpenDirectory));
            }
        }
        sqlite3_vfs_register(&g_vfs, 1);
    });
}

uint64_t SyncCounter::Count() {
    return g_syncs.load(std::memory_order_relaxed);
}

}  // namespace VelmoraBench
