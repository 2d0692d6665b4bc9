#include "runtime/services/storage/SqliteDataStore.h"

#include "runtime/services/storage/SqliteStoreFile.h"

namespace VelmoraMobile {

using ValueType = SqliteStoreFile::ValueType;

SqliteDataStore::SqliteDataStore(std::shared_ptr<SqliteStoreFile> file, const std::string& name)
    : file_(std::move(file)), name_(name) {}

void SqliteDataStore::SetString(const std::string& key, const std::string& value) {
    SqliteStoreFile::Value stored;
    stored.type = ValueType::STRING;
    stored.text = value;
    file_->Write(name_, key, stored);
}

std::string SqliteDataStore::GetString(const std::string& key, const std::string& default_value) {
    auto stored = file_->Read(name_, key);
    return stored && stored->type == ValueType::STRING ? stored->text : default_value;
}

void SqliteDataStore::SetLong(const std::string& key, int64_t value) {
    SqliteStoreFile::Value stored;
    stored.type = ValueType::LONG;
    stored.number = value;
    file_->Write(name_, key, stored);
}

int64_t SqliteDataStore::GetLong(const std::string& key, int64_t default_value) {
    auto stored = file_->Read(name_, key);
    return stored && stored->type == ValueType::LONG ? stored->number : default_value;
}

void SqliteDataStore::SetBoolean(const std::string& key, bool value) {
    SqliteStoreFile::Value stored;
    stored.type = ValueType::BOOLEAN;
    stored.number = value ? 1 : 0;
    file_->Write(name_, key, stored);
}

bool SqliteDataStore::GetBoolean(const std::string& key, bool default_value) {
    auto stored = file_->Read(name_, key);
    return stored && stored->type == ValueType::BOOLEAN ? stored->number != 0 : default_value;
}

bool SqliteDataStore::Contains(const std::string& key) {
    return file_->Contains(name_, key);
}

void SqliteDataStore::Remove(const std::string& key) {
    file_->Remove(name_, key);
}

void SqliteDataStore::RemoveAll() {
    file_->RemoveAll(name_);
}

void SqliteDataStore::WriteTogether(const std::function<void()>& writes) {
    file_->WriteTogether(writes);
}

}  // namespace VelmoraMobile
