#include "tests/identity/support/IdentityHarness.h"

#include <gtest/gtest.h>

#include "runtime/bus/EventBuilder.h"
#include "runtime/bus/EventSource.h"
#include "runtime/bus/EventType.h"
#include "runtime/bus/ModuleEventListener.h"
#include "runtime/bus/SharedStatePending.h"
#include "runtime/values/StringUtils.h"
#include "tests/support/WaitFor.h"

namespace VelmoraTest {

using namespace VelmoraMobile;

namespace {

class RecordingListener : public ModuleEventListener<EventRecorder> {
public:
    void Hear(const std::shared_ptr<Event>& event) override {
        if (auto module = GetParentModule()) module->Record(event);
    }
};

}  // namespace

void EventRecorder::OnRegistered() {
    RegisterWildCardListener(std::make_shared<RecordingListener>());
}

void EventRecorder::Record(const std::shared_ptr<Event>& event) {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.push_back(event);
}

std::vector<std::shared_ptr<Event>> EventRecorder::Events() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return events_;
}

IdentityHarness::IdentityHarness(const std::string& data_dir) : data_dir_(data_dir) {
    if (data_dir_.empty()) {
        owned_dir_ = std::make_unique<TempDir>();
        data_dir_ = owned_dir_->Path();
    }
    services = std::make_shared<PlatformServices>(data_dir_);
    hub = std::make_shared<EventHub>(services);
    recorder = hub->RegisterModule<EventRecorder>();
    configuration = hub->RegisterModule<ConfigurationExtension>();
}

std::shared_ptr<Identity> IdentityHarness::RegisterIdentity() {
    identity = hub->RegisterModule<Identity>();
    EXPECT_NE(identity, nullptr);
    Drain();  // tasks wait for OnRegistered, so one drained task proves it ran
    return identity;
}

void IdentityHarness::Configure(const std::map<std::string, std::string>& values) {
    Variant::VariantMap map;
    for (const auto& entry : values) map[entry.first] = Variant::FromString(entry.second);
    ConfigureVariants(map);
}

void IdentityHarness::ConfigureVariants(const Variant::VariantMap& values) {
    configuration->UpdateConfiguration(values);
    EXPECT_TRUE(WaitFor([&] {
        auto state = hub->GetSharedEventState("com.velmora.module.configuration", nullptr);
        if (!state || state == SHARED_STATE_PENDING) return false;
        for (const auto& entry : values) {
            std::shared_ptr<Variant> value;
            if (!state->GetVariant(entry.first, value) || !value ||
                StringUtils::ToString(*value) != StringUtils::ToString(*entry.second)) {
                return false;
            }
        }
        return true;
    })) << "configuration not published";
}

std::shared_ptr<Event> IdentityHarness::DispatchIdentityRequest(const std::shared_ptr<EventData>& data,
                                                                const std::string& name) {
    auto event = EventBuilder(name, EventType::IDENTITY, EventSource::REQUEST_IDENTITY)
                     .SetData(data ? data : std::make_shared<EventData>())
                     .Build();
    hub->Dispatch(event);
    return event;
}

std::vector<std::shared_ptr<Event>> IdentityHarness::Events(const std::shared_ptr<EventType>& type,
                                                            const std::shared_ptr<EventSource>& source) const {
    std::vector<std::shared_ptr<Event>> result;
    for (const auto& event : recorder->Events()) {
        if (event->GetEventType() == type && event->GetEventSource() == source) result.push_back(event);
    }
    return result;
}

std::shared_ptr<Event> IdentityHarness::WaitForEvent(const EventPredicate& predicate,
                                                     std::chrono::milliseconds timeout) {
    std::shared_ptr<Event> found;
    WaitFor(
        [&] {
            for (const auto& event : recorder->Events()) {
                if (predicate(event)) return static_cast<bool>(found = event);
            }
            return false;
        },
        timeout);
    return found;
}

std::shared_ptr<Event> IdentityHarness::WaitForResponse(const std::string& pair_id, std::chrono::milliseconds timeout) {
    return WaitForEvent(
        [&](const auto& event) {
            return event->GetEventSource() == EventSource::RESPONSE_IDENTITY && event->GetResponsePairID() == pair_id;
        },
        timeout);
}

void IdentityHarness::RunInIdentityQueue(const std::function<void()>& work) {
    ASSERT_NE(identity, nullptr);
    auto done = std::make_shared<std::promise<void>>();
    auto future = done->get_future();
    identity->AddTaskToQueue("test", [work, done] {
        work();
        done->set_value();
    });
    ASSERT_EQ(future.wait_for(std::chrono::seconds(30)), std::future_status::ready) << "identity task queue stuck";
}

void IdentityHarness::Shutdown() {
    if (shut_down_ || !hub) return;
    shut_down_ = true;
    hub->Shutdown();
}

}  // namespace VelmoraTest
