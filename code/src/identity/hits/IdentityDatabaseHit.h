#pragma once

#include <cstdint>
#include <string>

#include "runtime/hitqueue/DatabaseHitBase.h"

namespace VelmoraMobile {

/// One queued identity sync: a row of "IDENTITY_REQUESTS" in memory. A plain record.
///
/// Made and filled completely by IdentityHitDatabase::Queue on the module's task queue before it
/// is handed to the hit queue, or made afresh from a row by IdentityDatabaseHitSchema::GenerateHit
/// on whichever thread reads the row. Never changed after that, so it needs no lock.
class IdentityDatabaseHit : public virtual DatabaseHitBase {
public:
    IdentityDatabaseHit() = default;
    ~IdentityDatabaseHit() override;

    /// Response pair id of the event that caused the sync; empty for rows left from an earlier run.
    std::string pair_id;
    /// The complete request URL, scheme included.
    std::string url;
    /// Number of the event that caused the sync; -1 means none.
    int32_t event_number{-1};
    /// "global.ssl" when the hit was queued. Stored and restored only: the URL carries the scheme.
    bool config_ssl{false};
};

}  // namespace VelmoraMobile
