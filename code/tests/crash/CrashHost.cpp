// A host that the crash test kills and restarts: it starts a core on a data folder against an
// identity server, queues syncs and reports on stdout, one line each, what it knows to be done:
//   pid <pid>                first, before the core starts
//   event <name>             an event went over the hub; the identity module sends
//                            "UPDATED_IDENTITY_RESPONSE" as it applies an answer
//   durable <id> <mid>       the sync of <id> has been taken in by the module (stored as a hit)
//   ready <mid>              every sync of this run is durable
// and exits 0 once stdin is closed and the core has stopped in order.
// Usage: velmora_crash_host DATA_DIR SERVER_HOST ID_PREFIX COUNT
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>

#include "host/Core.h"
#include "host/VelmoraMobileCore.h"
#include "identity/api/IdentityPublicApi.h"
#include "runtime/bus/InternalModule.h"
#include "runtime/bus/ModuleEventListener.h"

using namespace VelmoraMobile;

namespace {

void Say(const std::string& line) {
    static std::mutex output;
    std::lock_guard<std::mutex> lock(output);
    std::cout << line << std::endl;
}

// Reports every event, so that the test can kill the host while an answer is applied.
class StateWatcher : public InternalModule {
public:
    StateWatcher() : InternalModule("velmora.crash.watcher") {}
    std::string GetSharedStateName() override { return "velmora.crash.watcher"; }
    void OnRegistered() override { RegisterWildCardListener(std::make_shared<Listener>()); }
    struct Listener : ModuleEventListener<StateWatcher> {
        void Hear(const std::shared_ptr<Event>& event) override { Say("event " + event->GetName()); }
    };
};

// The MID as the module knows it once every request dispatched before has been handled: the
// module answers in the order of its requests.
std::string Barrier(const IdentityPublicApi& api) {
    auto answer = std::make_shared<std::promise<std::string>>();
    api.GetOndaraCloudId([answer](std::string value) { answer->set_value(std::move(value)); });
    return answer->get_future().get();  // a stuck host is killed by the test
}

}  // namespace

int main(int, char** argv) {
    Say("pid " + std::to_string(getpid()));
    CoreOptions options;
    options.data_dir = argv[1];
    options.server = argv[2];
    options.org_id = "ORG@Crash";
    options.tls = false;
    options.configuration = {{"global.privacy", Variant::FromString("optedin")}};
    Core core(options);
    core.Running()->event_hub->RegisterModule(std::make_shared<StateWatcher>());
    auto api = core.IdentityApi();
    for (int i = 0; i < std::atoi(argv[4]); ++i) {
        // Two digits: no id is a prefix of another of the same run.
        const std::string id = argv[3] + std::string(i < 10 ? "0" : "") + std::to_string(i);
        api->SyncIdentifier("crash", id, VisitorIdAuthenticationState::AUTHENTICATED);
        Say("durable " + id + " " + Barrier(*api));
    }
    Say("ready " + Barrier(*api));
    for (std::string line; std::getline(std::cin, line);) {
    }
    return core.Stop(std::chrono::seconds(10)) ? 0 : 1;
}
