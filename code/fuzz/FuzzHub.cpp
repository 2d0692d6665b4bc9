#include "FuzzHub.h"

#include "FuzzSupport.h"

using namespace VelmoraMobile;

namespace VelmoraFuzz {

FuzzHub::FuzzHub(bool with_identity)
    : services(std::make_shared<PlatformServices>(ScratchDir() + "/hub")), hub(std::make_shared<EventHub>(services)) {
    configuration = hub->RegisterModule<ConfigurationExtension>();
    if (with_identity) {
        identity = hub->RegisterModule<Identity>();
    }
    hub->FinishModulesRegistration();
    configuration->UpdateConfiguration({{"ondaraCloud.org", Variant::FromString("ORG@Fuzz")},
                                        {"ondaraCloud.server", Variant::FromString("127.0.0.1:9")},
                                        {"global.ssl", Variant::FromBoolean(false)},
                                        {"global.privacy", Variant::FromString("optunknown")}});
    Drain(*configuration);
    if (identity) {
        Drain(*identity);
    }
}

}  // namespace VelmoraFuzz
