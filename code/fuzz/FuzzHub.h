#pragma once

#include <memory>
#include <string>

#include "identity/module/Identity.h"
#include "runtime/bus/EventHub.h"
#include "runtime/configuration/ConfigurationExtension.h"
#include "runtime/services/PlatformServices.h"

namespace VelmoraFuzz {

/// One real hub per fuzzing process, on the scratch folder: the configuration extension and, when
/// asked, the identity module, configured with an organisation and an unknown privacy status (so
/// the hit queue stays suspended and nothing leaves the machine). Never stopped: the process ends
/// with it.
struct FuzzHub {
    explicit FuzzHub(bool with_identity);

    std::shared_ptr<VelmoraMobile::PlatformServices> services;
    std::shared_ptr<VelmoraMobile::EventHub> hub;
    std::shared_ptr<VelmoraMobile::ConfigurationExtension> configuration;
    std::shared_ptr<VelmoraMobile::Identity> identity;
};

}  // namespace VelmoraFuzz
