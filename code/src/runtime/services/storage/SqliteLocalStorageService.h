#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "runtime/services/LocalStorageServiceInterface.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

class SqliteStoreFile;

/// Named data stores, all kept in one SQLite file (FILE_NAME) in the data folder. The file is
/// opened at the first GetDataStore; a damaged file is moved aside and replaced. Callable from
/// any thread at once.
class SqliteLocalStorageService : public Object, public virtual LocalStorageServiceInterface {
public:
    static constexpr const char* FILE_NAME = "VelmoraDataStores.sqlite";

    explicit SqliteLocalStorageService(const std::string& data_dir);

    /// The store `name`; empty (logged) only when the file cannot be opened or created, in
    /// which case the next call tries again.
    std::shared_ptr<DataStoreInterface> GetDataStore(const std::string& name) override;

    const std::string& GetFilePath() const { return path_; }

private:
    std::string path_;
    std::mutex mutex_;
    std::shared_ptr<SqliteStoreFile> file_;
};

}  // namespace VelmoraMobile
