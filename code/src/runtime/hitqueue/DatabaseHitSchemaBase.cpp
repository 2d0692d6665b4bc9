#include "runtime/hitqueue/DatabaseHitSchemaBase.h"

namespace VelmoraMobile {

std::string DatabaseHitSchemaBase::GetTableName() const {
    return table_name;
}

std::string DatabaseHitSchemaBase::GetDatabaseName() const {
    return database_name;
}

std::vector<std::string> DatabaseHitSchemaBase::GetColumnNames() const {
    return column_names;
}

std::vector<DatabaseInterface::ColumnDataType> DatabaseHitSchemaBase::GetColumnDataTypes() const {
    return column_data_types;
}

std::vector<std::vector<DatabaseInterface::ColumnConstraint>> DatabaseHitSchemaBase::GetColumnConstraints() const {
    return column_constraints;
}

}  // namespace VelmoraMobile
