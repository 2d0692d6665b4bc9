#include "identity/hits/IdentityDatabaseHitSchema.h"

#include "runtime/values/Log.h"
#include "runtime/values/SdkError.h"
#include "runtime/values/TryCatch.h"

namespace VelmoraMobile {

const std::string IdentityDatabaseHitSchema::LOG_TAG = "IdentityHitSchema";
const std::string IdentityDatabaseHitSchema::TABLE_NAME = "IDENTITY_REQUESTS";
const std::string IdentityDatabaseHitSchema::DATABASE_FILE_NAME = "VLBMobileIdentity.sqlite";
const std::string IdentityDatabaseHitSchema::COL_REQUESTS_ID = "ID";
const std::string IdentityDatabaseHitSchema::COL_REQUESTS_URL = "URL";
const std::string IdentityDatabaseHitSchema::COL_REQUESTS_TIMESTAMP = "TIMESTAMP";
const std::string IdentityDatabaseHitSchema::COL_REQUESTS_PAIR_ID = "PAIR_ID";
const std::string IdentityDatabaseHitSchema::COL_REQUESTS_EVENT_NUMBER = "EVENT_NUMBER";
const std::string IdentityDatabaseHitSchema::COL_REQUESTS_CONFIG_SSL = "SSL";

IdentityDatabaseHitSchema::IdentityDatabaseHitSchema() {
    using Type = DatabaseInterface::ColumnDataType;
    using Constraint = DatabaseInterface::ColumnConstraint;
    table_name = TABLE_NAME;
    database_name = DATABASE_FILE_NAME;
    column_names = {COL_REQUESTS_ID,      COL_REQUESTS_URL,          COL_REQUESTS_TIMESTAMP,
                    COL_REQUESTS_PAIR_ID, COL_REQUESTS_EVENT_NUMBER, COL_REQUESTS_CONFIG_SSL};
    column_data_types = {Type::INTEGER, Type::TEXT, Type::INTEGER, Type::TEXT, Type::INTEGER, Type::INTEGER};
    column_constraints = {{Constraint::PRIMARY_KEY, Constraint::AUTOINCREMENT}, {}, {}, {}, {}, {}};
}

std::shared_ptr<IdentityDatabaseHit> IdentityDatabaseHitSchema::GenerateHit(
    const std::shared_ptr<QueryResultInterface>& query_result) {
    if (!query_result) {
        Log::Debug(LOG_TAG.c_str(), "Unable to generate Identity database hit, query result was null");
        return nullptr;
    }
    auto hit = std::make_shared<IdentityDatabaseHit>();
    TryCatchFinally(
        [&] {
            hit->identifier = query_result->GetString(COL_INDEX_REQUESTS_ID);
            hit->url = query_result->GetString(COL_INDEX_REQUESTS_URL);
            hit->timestamp = std::chrono::seconds(query_result->GetLong(COL_INDEX_REQUESTS_TIMESTAMP));
            hit->pair_id = query_result->GetString(COL_INDEX_REQUESTS_PAIR_ID);
            hit->event_number = query_result->GetInt(COL_INDEX_REQUESTS_EVENT_NUMBER);
            hit->config_ssl = query_result->GetInt(COL_INDEX_REQUESTS_SSL) != 0;
        },
        [&](SdkError& error) {
            Log::Error(LOG_TAG.c_str(), "Unable to read from database.  Query failed with error %s",
                       error.GetMessage());
            hit.reset();
        },
        [&] { query_result->Finalize(); });
    return hit;
}

std::map<std::string, std::shared_ptr<Variant>> IdentityDatabaseHitSchema::GenerateDataMap(
    const std::shared_ptr<IdentityDatabaseHit>& hit) {
    if (!hit) {
        return {};
    }
    return {
        {COL_REQUESTS_URL, Variant::FromString(hit->url)},
        {COL_REQUESTS_TIMESTAMP, Variant::FromLong(static_cast<int64_t>(hit->timestamp.count()))},
        {COL_REQUESTS_PAIR_ID, Variant::FromString(hit->pair_id)},
        {COL_REQUESTS_EVENT_NUMBER, Variant::FromInteger(hit->event_number)},
        {COL_REQUESTS_CONFIG_SSL, Variant::FromInteger(hit->config_ssl ? 1 : 0)},
    };
}

std::map<std::string, std::shared_ptr<Variant>>
IdentityDatabaseHitSchema::GenerateUpdateValuesForResetEventNumberAndPairId() {
    return {
        {COL_REQUESTS_PAIR_ID, Variant::FromString("")},
        {COL_REQUESTS_EVENT_NUMBER, Variant::FromInteger(-1)},
    };
}

}  // namespace VelmoraMobile
