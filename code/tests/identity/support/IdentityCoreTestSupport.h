#pragma once

#include "identity/module/ConfigurationSharedStateIdentity.h"
#include "tests/identity/support/IdentityHarness.h"

// Helpers shared by the identity core tests. Header only; test thread only.
namespace VelmoraTest {

inline std::shared_ptr<VelmoraMobile::EventData> MakeData(const std::map<std::string, std::string>& values = {}) {
    auto data = std::make_shared<VelmoraMobile::EventData>();
    for (const auto& entry : values) data->PutString(entry.first, entry.second);
    return data;
}

/// Configures `values` with `server_host` (a local test server) as the identity server over plain
/// HTTP, so that whatever a sync sends stays on 127.0.0.1.
inline void ConfigureWithServer(IdentityHarness& harness, const std::string& server_host,
                                const std::map<std::string, std::string>& values) {
    VelmoraMobile::Variant::VariantMap map{{"ondaraCloud.server", VelmoraMobile::Variant::FromString(server_host)},
                                           {"global.ssl", VelmoraMobile::Variant::FromBoolean(false)}};
    for (const auto& entry : values) map.emplace(entry.first, VelmoraMobile::Variant::FromString(entry.second));
    harness.ConfigureVariants(map);
}

/// An identity module whose sync only records what reached it, so routing is seen apart from the
/// sync itself. `syncs` and `sync_result` belong to the module's queue: use RunInIdentityQueue.
class SyncRecordingIdentity : public VelmoraMobile::Identity {
public:
    struct SyncCall {
        std::shared_ptr<VelmoraMobile::Event> event;
        std::string org_id;
    };

    bool HandleSyncIdentifiers(
        const std::shared_ptr<VelmoraMobile::Event>& event,
        const std::shared_ptr<VelmoraMobile::ConfigurationSharedStateIdentity>& config) override {
        syncs.push_back(SyncCall{event, config ? config->GetOrgId() : std::string()});
        return sync_result;
    }

    std::vector<SyncCall> syncs;
    bool sync_result{true};
};

/// Registers a SyncRecordingIdentity in place of the harness's own module.
inline std::shared_ptr<SyncRecordingIdentity> RegisterSyncRecorder(IdentityHarness& harness) {
    auto module = std::make_shared<SyncRecordingIdentity>();
    EXPECT_TRUE(harness.hub->RegisterModule(module));
    harness.identity = module;
    harness.Drain();
    return module;
}

/// Responses (IDENTITY / RESPONSE_IDENTITY) delivered so far that carry `pair_id`.
inline std::vector<std::shared_ptr<VelmoraMobile::Event>> ResponsesTo(const IdentityHarness& harness,
                                                                      const std::string& pair_id) {
    std::vector<std::shared_ptr<VelmoraMobile::Event>> result;
    for (const auto& event :
         harness.Events(VelmoraMobile::EventType::IDENTITY, VelmoraMobile::EventSource::RESPONSE_IDENTITY)) {
        if (event->GetResponsePairID() == pair_id) result.push_back(event);
    }
    return result;
}

/// Waits until the hub has delivered every event dispatched so far and the module has run every
/// task they added: the hub calls a one-time listener after the module listeners.
inline void Settle(IdentityHarness& harness) {
    auto marker = VelmoraMobile::EventBuilder("velmora.test.settle", VelmoraMobile::EventType::Get("velmora.test"),
                                              VelmoraMobile::EventSource::Get("velmora.test.settle"))
                      .Build();
    auto delivered = std::make_shared<std::promise<void>>();
    auto future = delivered->get_future();
    harness.hub->RegisterOneTimeListener<IdentityHarness>(
        marker->GetEventType(), marker->GetEventSource(), marker->GetResponsePairID(),
        [delivered](const std::shared_ptr<VelmoraMobile::Event>&) { delivered->set_value(); });
    harness.hub->Dispatch(marker);
    ASSERT_EQ(future.wait_for(std::chrono::seconds(30)), std::future_status::ready) << "hub delivery stuck";
    harness.Drain();
}

}  // namespace VelmoraTest
