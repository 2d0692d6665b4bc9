#include "tools/cli/CliObserver.h"

#include "identity/module/IdentityConstants.h"
#include "runtime/bus/EventSource.h"
#include "runtime/bus/EventType.h"
#include "runtime/bus/ModuleEventListener.h"

namespace VelmoraCli {

using namespace VelmoraMobile;
namespace Keys = IdentityConstants::EventDataKeys::Identity;

namespace {

const std::string UPDATED_IDENTITY_RESPONSE = "UPDATED_IDENTITY_RESPONSE";

class ObserverListener : public ModuleEventListener<CliObserver> {
public:
    void Hear(const std::shared_ptr<Event>& event) override {
        if (auto observer = GetParentModule()) {
            observer->Record(event);
        }
    }
};

bool IsSyncRequest(const Event& event) {
    if (event.GetEventSource() != EventSource::REQUEST_IDENTITY &&
        event.GetEventSource() != EventSource::REQUEST_CONTENT) {
        return false;
    }
    return event.GetEventType() == EventType::GENERIC_IDENTITY ||
           (event.GetEventType() == EventType::IDENTITY && event.GetData()->OptBoolean(Keys::IS_SYNC_EVENT, false));
}

}  // namespace

CliObserver::CliObserver() : InternalModule(NAME) {}

std::string CliObserver::GetSharedStateName() {
    return NAME;
}

void CliObserver::OnRegistered() {
    RegisterWildCardListener(std::make_shared<ObserverListener>());
}

void CliObserver::Record(const std::shared_ptr<Event>& event) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (IsSyncRequest(*event)) {
        sync_pair_ids_.push_back(event->GetResponsePairID());
    } else if (event->GetEventType() == EventType::IDENTITY &&
               event->GetEventSource() == EventSource::RESPONSE_IDENTITY &&
               event->GetName() == UPDATED_IDENTITY_RESPONSE) {
        // The answer goes out twice, to everybody and to the request's pair id; either will do.
        answers_.emplace(event->GetResponsePairID(), event->GetData());
    } else if (event->GetEventType() == EventType::CONFIGURATION &&
               event->GetEventSource() == EventSource::RESPONSE_CONTENT) {
        ++configuration_version_;
    } else {
        return;
    }
    changed_.notify_all();
}

std::vector<std::shared_ptr<EventData>> CliObserver::WaitForSyncAnswers(
    size_t count, std::chrono::steady_clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(mutex_);
    std::vector<std::shared_ptr<EventData>> found;
    auto collect = [&] {
        found.clear();
        for (size_t i = 0; i < sync_pair_ids_.size() && i < count; ++i) {
            auto answer = answers_.find(sync_pair_ids_[i]);
            if (answer == answers_.end()) {
                return false;
            }
            found.push_back(answer->second);
        }
        return found.size() == count;
    };
    changed_.wait_until(lock, deadline, collect);
    return found;
}

std::shared_ptr<EventData> CliObserver::WaitForConfiguration(const std::function<std::shared_ptr<EventData>()>& current,
                                                             const std::function<bool(const EventData&)>& accept,
                                                             std::chrono::steady_clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        uint64_t seen = configuration_version_;
        lock.unlock();
        std::shared_ptr<EventData> state = current();
        if (state && accept(*state)) {
            return state;
        }
        lock.lock();
        // The state is written before its event is delivered; a short wake-up covers a state that
        // changed between the read above and this wait.
        auto wake = std::min(deadline, std::chrono::steady_clock::now() + std::chrono::milliseconds(100));
        changed_.wait_until(lock, wake, [&] { return configuration_version_ != seen; });
        if (std::chrono::steady_clock::now() >= deadline) {
            return nullptr;
        }
    }
}

}  // namespace VelmoraCli
