#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "identity/hits/IdentityDatabaseHit.h"
#include "runtime/hitqueue/DatabaseHitSchema.h"
#include "runtime/hitqueue/QueryResultInterface.h"
#include "runtime/values/Variant.h"

namespace VelmoraMobile {

/// The table of identity hits: file "VLBMobileIdentity.sqlite", table "IDENTITY_REQUESTS", columns
/// ID, URL, TIMESTAMP, PAIR_ID, EVENT_NUMBER, SSL in this order. Devices keep the file across
/// versions, so names, order and types never change.
///
/// Immutable once constructed; any thread may use it (the hit queue calls it on its worker and on
/// the threads that queue hits).
class IdentityDatabaseHitSchema : public DatabaseHitSchema<IdentityDatabaseHit> {
public:
    static const std::string LOG_TAG;
    static const std::string TABLE_NAME;
    static const std::string DATABASE_FILE_NAME;
    static const std::string COL_REQUESTS_ID;
    static const std::string COL_REQUESTS_URL;
    static const std::string COL_REQUESTS_TIMESTAMP;
    static const std::string COL_REQUESTS_PAIR_ID;
    static const std::string COL_REQUESTS_EVENT_NUMBER;
    static const std::string COL_REQUESTS_CONFIG_SSL;
    static constexpr int32_t COL_INDEX_REQUESTS_ID = 0;
    static constexpr int32_t COL_INDEX_REQUESTS_URL = 1;
    static constexpr int32_t COL_INDEX_REQUESTS_TIMESTAMP = 2;
    static constexpr int32_t COL_INDEX_REQUESTS_PAIR_ID = 3;
    static constexpr int32_t COL_INDEX_REQUESTS_EVENT_NUMBER = 4;
    static constexpr int32_t COL_INDEX_REQUESTS_SSL = 5;

    IdentityDatabaseHitSchema();
    ~IdentityDatabaseHitSchema() override = default;

    /// The hit of the row `query_result` stands on; empty when there is no query result or a column
    /// cannot be read (logged). Always finalizes a query result it was given.
    std::shared_ptr<IdentityDatabaseHit> GenerateHit(
        const std::shared_ptr<QueryResultInterface>& query_result) override;
    /// The five written columns of `hit` ("ID" is the database's); an empty map for an empty hit.
    std::map<std::string, std::shared_ptr<Variant>> GenerateDataMap(
        const std::shared_ptr<IdentityDatabaseHit>& hit) override;

    /// PAIR_ID "" and EVENT_NUMBER -1: cuts rows of an earlier run loose from events that are gone.
    std::map<std::string, std::shared_ptr<Variant>> GenerateUpdateValuesForResetEventNumberAndPairId();
};

}  // namespace VelmoraMobile
