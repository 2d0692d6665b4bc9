#include "identity/hits/IdentityDatabaseHit.h"

namespace VelmoraMobile {

IdentityDatabaseHit::~IdentityDatabaseHit() = default;

}  // namespace VelmoraMobile
