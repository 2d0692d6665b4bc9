#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "runtime/hitqueue/DatabaseHitBase.h"
#include "runtime/hitqueue/DatabaseInterface.h"
#include "runtime/hitqueue/QueryResultInterface.h"
#include "runtime/values/Object.h"
#include "runtime/values/Variant.h"

namespace VelmoraMobile {

/// Describes one hit table (file, table, columns) and converts between rows and hits, untyped.
/// A derived class's constructor fills the five fields; after that the schema is immutable and may
/// be used from any thread.
class DatabaseHitSchemaBase : public Object {
public:
    DatabaseHitSchemaBase() = default;

    virtual std::string GetTableName() const;
    /// File name of the database, without folder.
    virtual std::string GetDatabaseName() const;
    virtual std::vector<std::string> GetColumnNames() const;
    virtual std::vector<DatabaseInterface::ColumnDataType> GetColumnDataTypes() const;
    /// One list per column, in column order.
    virtual std::vector<std::vector<DatabaseInterface::ColumnConstraint>> GetColumnConstraints() const;

    /// The hit of the row `query_result` stands on, or an empty pointer when the row cannot be read.
    /// Columns are in the order of GetColumnNames. Called with the database locked: it must not call
    /// back into the queue from another thread.
    virtual std::shared_ptr<DatabaseHitBase> GenerateHitBase(
        const std::shared_ptr<QueryResultInterface>& query_result) = 0;
    /// Column name to value for an insert or update. Columns left out are left to the database.
    virtual std::map<std::string, std::shared_ptr<Variant>> GenerateDataMapBase(
        const std::shared_ptr<DatabaseHitBase>& hit) = 0;

protected:
    std::string table_name;
    std::string database_name;
    std::vector<std::string> column_names;
    std::vector<DatabaseInterface::ColumnDataType> column_data_types;
    std::vector<std::vector<DatabaseInterface::ColumnConstraint>> column_constraints;
};

}  // namespace VelmoraMobile
