#include "runtime/services/storage/SqliteLocalStorageService.h"

#include "runtime/services/storage/SqliteDataStore.h"
#include "runtime/services/storage/SqliteStoreFile.h"

namespace VelmoraMobile {

SqliteLocalStorageService::SqliteLocalStorageService(const std::string& data_dir) : path_(data_dir + "/" + FILE_NAME) {}

std::shared_ptr<DataStoreInterface> SqliteLocalStorageService::GetDataStore(const std::string& name) {
    std::shared_ptr<SqliteStoreFile> file;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!file_) {
            file_ = SqliteStoreFile::Open(path_);
        }
        file = file_;
    }
    if (!file) {
        return nullptr;
    }
    return std::make_shared<SqliteDataStore>(std::move(file), name);
}

}  // namespace VelmoraMobile
