// velmora-identity-demo: one installation's identity life, end to end, against an embedded
// identity server on 127.0.0.1. It starts the hub with the configuration extension and the
// identity module, boots (the forced sync goes out), syncs a customer id, asks for the identity
// record, decorates a URL, restarts on the same data folder, and finally opts out.
//
//   velmora-identity-demo [--data-dir DIR] [--tls]
//
// Everything printed is read back from the running system: the server's request record, the
// identity module's response events and its shared state.

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <future>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "identity/module/Identity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/bus/EventBuilder.h"
#include "runtime/bus/EventHub.h"
#include "runtime/configuration/ConfigurationExtension.h"
#include "runtime/services/PlatformServices.h"
#include "runtime/values/StringUtils.h"
#include "tools/server/TestIdentityServer.h"

using namespace VelmoraMobile;
namespace Keys = VelmoraMobile::IdentityConstants::EventDataKeys;
namespace fs = std::filesystem;

namespace {

constexpr auto WAIT = std::chrono::seconds(15);

struct Installation {
    std::shared_ptr<PlatformServices> services;
    std::shared_ptr<EventHub> hub;
    std::shared_ptr<ConfigurationExtension> configuration;
};

Installation Start(const std::string& data_dir, const VelmoraTestServer::TestIdentityServer& server) {
    Installation app;
    app.services = std::make_shared<PlatformServices>(data_dir);
    app.hub = std::make_shared<EventHub>(app.services);
    app.configuration = app.hub->RegisterModule<ConfigurationExtension>();
    app.configuration->UpdateConfiguration({
        {Keys::Configuration::CONFIG_ONDARA_CLOUD_ORGID_KEY, Variant::FromString("DEMO0123456789@VelmoraOrg")},
        {Keys::Configuration::CONFIG_ONDARA_CLOUD_SERVER_KEY, Variant::FromString(server.Host())},
        {Keys::Configuration::GLOBAL_CONFIG_SSL, Variant::FromBoolean(server.Tls())},
        {Keys::Configuration::GLOBAL_CONFIG_PRIVACY, Variant::FromString("optedin")},
    });
    app.hub->RegisterModule<Identity>();
    app.hub->FinishModulesRegistration();
    return app;
}

/// Dispatches an identity request and waits for the response carrying its pair id.
std::shared_ptr<EventData> Ask(const Installation& app, const std::shared_ptr<EventData>& data, const char* name) {
    auto event = EventBuilder(name, EventType::IDENTITY, EventSource::REQUEST_IDENTITY).SetData(data).Build();
    auto answer = std::make_shared<std::promise<std::shared_ptr<EventData>>>();
    auto future = answer->get_future();
    app.hub->RegisterOneTimeListener<Identity>(
        EventType::IDENTITY, EventSource::RESPONSE_IDENTITY, event->GetResponsePairID(),
        [answer](const std::shared_ptr<Event>& response) { answer->set_value(response->GetData()); });
    app.hub->Dispatch(event);
    if (future.wait_for(WAIT) != std::future_status::ready) {
        return nullptr;
    }
    return future.get();
}

void PrintRecord(const std::shared_ptr<EventData>& record) {
    if (!record) {
        std::cout << "  (no answer)\n";
        return;
    }
    for (const auto& entry : record->GetEntries()) {
        std::cout << "  " << entry.first << " = " << (entry.second ? StringUtils::ToString(*entry.second) : "null")
                  << "\n";
    }
}

bool WaitForServer(const VelmoraTestServer::TestIdentityServer& server, size_t count) {
    bool arrived = server.WaitForRequests(count, WAIT);
    if (!arrived) {
        std::cout << "  the server saw no request within " << WAIT.count() << " s\n";
    }
    return arrived;
}

bool WaitForOptOut(const VelmoraTestServer::TestIdentityServer& server) {
    auto deadline = std::chrono::steady_clock::now() + WAIT;
    while (std::chrono::steady_clock::now() < deadline) {
        for (const auto& request : server.Requests()) {
            if (request.path == "/veloptout.jpg") return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    std::cout << "  the server saw no opt-out request within " << WAIT.count() << " s\n";
    return false;
}

void PrintLastRequest(const VelmoraTestServer::TestIdentityServer& server) {
    auto requests = server.Requests();
    if (requests.empty()) return;
    const auto& last = requests.back();
    std::cout << "  GET " << last.path << "?" << last.query << "\n";
}

int Usage(const char* message) {
    std::fprintf(stderr, "velmora-identity-demo: %s\nusage: velmora-identity-demo [--data-dir DIR] [--tls]\n", message);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    std::string data_dir;
    bool tls = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--data-dir") == 0 && i + 1 < argc) {
            data_dir = argv[++i];
        } else if (std::strcmp(argv[i], "--tls") == 0) {
            tls = true;
        } else {
            return Usage((std::string("unknown argument: ") + argv[i]).c_str());
        }
    }
    bool own_dir = data_dir.empty();
    if (own_dir) {
        data_dir = (fs::temp_directory_path() / ("velmora-identity-demo-" + std::to_string(::getpid()))).string();
    }

    VelmoraTestServer::ServerOptions options;
    options.tls = tls;
    VelmoraTestServer::TestIdentityServer server(options);
    if (tls) {
        setenv("VELMORA_CA_FILE", server.CaFile().c_str(), 1);
    }
    std::cout << "identity server on " << server.BaseUrl() << ", data folder " << data_dir << "\n\n";

    int status = 0;
    {
        std::cout << "1. boot: the forced sync reaches the server\n";
        Installation app = Start(data_dir, server);
        if (!WaitForServer(server, 1)) status = 1;
        PrintLastRequest(server);

        std::cout << "\n2. sync a customer id (crm = alice-42, authenticated)\n";
        auto sync = std::make_shared<EventData>();
        sync->PutStringMap(Keys::Identity::IDENTIFIERS, {{"crm", "alice-42"}});
        sync->PutInteger(Keys::Identity::AUTHENTICATION_STATE, 1);
        sync->PutBoolean(Keys::Identity::FORCE_SYNC, false);
        sync->PutBoolean(Keys::Identity::IS_SYNC_EVENT, true);
        app.hub->Dispatch(
            EventBuilder("demo sync", EventType::IDENTITY, EventSource::REQUEST_IDENTITY).SetData(sync).Build());
        if (!WaitForServer(server, 2)) status = 1;
        PrintLastRequest(server);

        std::cout << "\n3. the identity record\n";
        PrintRecord(Ask(app, std::make_shared<EventData>(), "demo identifiers request"));

        std::cout << "\n4. a decorated URL\n";
        auto url = std::make_shared<EventData>();
        url->PutString(Keys::Identity::BASE_URL, "https://shop.example/checkout?cart=7");
        auto decorated = Ask(app, url, "demo append url");
        std::cout << "  " << (decorated ? decorated->OptString(Keys::Identity::UPDATED_URL, "") : "(no answer)")
                  << "\n";
        app.hub->Shutdown();
    }
    {
        std::cout << "\n5. restart on the same data folder: the same MID comes back\n";
        size_t before_boot = server.Requests().size();
        Installation app = Start(data_dir, server);
        if (!WaitForServer(server, before_boot + 1)) status = 1;
        auto record = Ask(app, std::make_shared<EventData>(), "demo identifiers request");
        std::cout << "  mid = " << (record ? record->OptString(Keys::Identity::VISITOR_ID_MID, "") : "") << "\n";

        std::cout << "\n6. opt out: the server is told, the record is wiped\n";
        app.configuration->SetPrivacyStatus(MobilePrivacyStatus::OPT_OUT);
        if (!WaitForOptOut(server)) status = 1;
        PrintLastRequest(server);
        PrintRecord(Ask(app, std::make_shared<EventData>(), "demo identifiers request"));
        app.hub->Shutdown();
    }

    if (own_dir) {
        std::error_code ignored;
        fs::remove_all(data_dir, ignored);
    }
    return status;
}
