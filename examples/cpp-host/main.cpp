#include <cstdio>
#include <future>
#include <string>

#include "host/Core.h"

int main() {
    VelmoraMobile::CoreOptions options;
    options.data_dir = "velmora-data";            // the data stores and the hit queue live here
    options.configuration_file = "velmora.json";  // {"ondaraCloud.org": "...", "ondaraCloud.server": "..."}
    VelmoraMobile::Core core(options);            // returns with the modules registered
    auto identity = core.IdentityApi();

    identity->SyncIdentifier("crm", "alice-42", VelmoraMobile::VisitorIdAuthenticationState::AUTHENTICATED);
    std::promise<std::string> mid, url;
    identity->GetOndaraCloudId([&mid](std::string value) { mid.set_value(value); });
    identity->AppendToUrl("https://shop.example/checkout", [&url](std::string value) { url.set_value(value); });
    std::printf("MID %s\n%s\n", mid.get_future().get().c_str(), url.get_future().get().c_str());
    core.Stop();  // bounded; the destructor would do it too
}
