#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "runtime/services/DataStoreInterface.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

class SqliteStoreFile;

/// One named data store: its rows in the shared store file. Keeps the file open while alive.
/// Every write is durable when the call returns. Callable from any thread at once.
class SqliteDataStore : public Object, public virtual DataStoreInterface {
public:
    SqliteDataStore(std::shared_ptr<SqliteStoreFile> file, const std::string& name);

    void SetString(const std::string& key, const std::string& value) override;
    /// The default for a missing key or a key that holds another type.
    std::string GetString(const std::string& key, const std::string& default_value) override;
    void SetLong(const std::string& key, int64_t value) override;
    int64_t GetLong(const std::string& key, int64_t default_value) override;
    void SetBoolean(const std::string& key, bool value) override;
    bool GetBoolean(const std::string& key, bool default_value) override;
    /// Whether the key holds a value of any type.
    bool Contains(const std::string& key) override;
    void Remove(const std::string& key) override;
    /// Removes every key of this store (other stores keep theirs).
    void RemoveAll() override;
    /// One transaction of the store file for all of `writes`, synced before it returns.
    void WriteTogether(const std::function<void()>& writes) override;

    const std::string& GetName() const { return name_; }

private:
    std::shared_ptr<SqliteStoreFile> file_;
    std::string name_;
};

}  // namespace VelmoraMobile
