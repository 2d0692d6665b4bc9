#pragma once

#include <map>
#include <memory>
#include <string>

#include "runtime/hitqueue/DatabaseHitSchemaBase.h"

namespace VelmoraMobile {

/// A schema for hits of type `Hit` (which derives virtually from DatabaseHitBase). The untyped
/// operations only change the type and forward; a hit of another type arrives as an empty pointer.
template <typename Hit>
class DatabaseHitSchema : public DatabaseHitSchemaBase {
public:
    std::shared_ptr<DatabaseHitBase> GenerateHitBase(
        const std::shared_ptr<QueryResultInterface>& query_result) override {
        return GenerateHit(query_result);
    }

    std::map<std::string, std::shared_ptr<Variant>> GenerateDataMapBase(
        const std::shared_ptr<DatabaseHitBase>& hit) override {
        return GenerateDataMap(std::dynamic_pointer_cast<Hit>(hit));
    }

    /// The hit of the current row, or an empty pointer when the row cannot be read.
    virtual std::shared_ptr<Hit> GenerateHit(const std::shared_ptr<QueryResultInterface>& query_result) = 0;
    /// Column name to value; `hit` may be empty.
    virtual std::map<std::string, std::shared_ptr<Variant>> GenerateDataMap(const std::shared_ptr<Hit>& hit) = 0;
};

}  // namespace VelmoraMobile
