#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "runtime/services/LocalStorageServiceInterface.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

class SqliteStoreFile;

/// Named data stores, all kept in one SQLite file (FILE_NAME) in the data folder. The file is
/// opened at the first GetDataStore; a damaged file, or one with a table of another shape, is moved
/// aside and replaced with every value that can still be read, and a file that cannot be used at all
/// leaves this run's values in memory (see SqliteStoreFile). Callable from any thread at once.
class SqliteLocalStorageService : public Object, public virtual LocalStorageServiceInterface {
public:
    static constexpr const char* FILE_NAME = "VelmoraDataStores.sqlite";

    explicit SqliteLocalStorageService(const std::string& data_dir);

    /// The store `name`; kept in memory for this run when the file cannot be used. Empty only when
    /// not even memory can be had, in which case the next call tries again.
    std::shared_ptr<DataStoreInterface> GetDataStore(const std::string& name) override;

    const std::string& GetFilePath() const { return path_; }

private:
    std::string path_;
    std::mutex mutex_;
    std::shared_ptr<SqliteStoreFile> file_;
};

}  // namespace VelmoraMobile
