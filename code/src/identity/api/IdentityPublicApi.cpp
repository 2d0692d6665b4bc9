#include "identity/api/IdentityPublicApi.h"

#include <utility>

#include "identity/ids/VisitorIdSerializer.h"
#include "identity/module/Identity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/bus/EventBuilder.h"
#include "runtime/bus/EventSource.h"
#include "runtime/bus/EventType.h"
#include "runtime/values/Log.h"
#include "runtime/values/TryCatch.h"

namespace VelmoraMobile {

namespace {

namespace Keys = IdentityConstants::EventDataKeys::Identity;

const char* const LOG_TAG = "IdentityPublicApi";
const char* const REQUEST_EVENT_NAME = "IdentityRequestIdentity";

}  // namespace

std::shared_ptr<IdentityPublicApi> IdentityPublicApi::Create(
    const std::shared_ptr<EventHub>& event_hub, const std::shared_ptr<PlatformServicesInterface>& platform_services) {
    auto api = std::make_shared<IdentityPublicApi>(Passkey());
    api->event_hub = event_hub;
    api->platform_services = platform_services;
    return api;
}

IdentityPublicApi::~IdentityPublicApi() = default;

bool IdentityPublicApi::CanReachModule(const char* operation) const {
    if (!event_hub) {
        Log::Error(LOG_TAG, "%s ignored: no core is running. Start the core before calling the identity API",
                   std::string(operation));
        return false;
    }
    if (!event_hub->IsRegisteredModule(Keys::SHARED_STATE_NAME)) {
        Log::Error(LOG_TAG,
                   "%s ignored: the identity module is not registered on this hub (the core is stopped or not "
                   "started)",
                   std::string(operation));
        return false;
    }
    return true;
}

void IdentityPublicApi::RegisterIdentity() {
    if (!event_hub) {
        CanReachModule("RegisterIdentity");
        return;
    }
    if (!event_hub->IsRegisteredModule(Keys::SHARED_STATE_NAME)) {
        event_hub->RegisterModule<Identity>();
    }
}

void IdentityPublicApi::SyncIdentifier(const std::string& identifier_type, const std::string& identifier,
                                       VisitorIdAuthenticationState authentication_state) {
    DispatchIdSyncEvent({{identifier_type, identifier}}, authentication_state);
}

void IdentityPublicApi::SyncIdentifiers(const std::map<std::string, std::string>& identifiers) {
    DispatchIdSyncEvent(identifiers, VisitorIdAuthenticationState::UNKNOWN);
}

void IdentityPublicApi::SyncIdentifiers(const std::map<std::string, std::string>& identifiers,
                                        VisitorIdAuthenticationState authentication_state) {
    DispatchIdSyncEvent(identifiers, authentication_state);
}

void IdentityPublicApi::DispatchIdSyncEvent(const std::map<std::string, std::string>& identifiers,
                                            VisitorIdAuthenticationState authentication_state) {
    if (!CanReachModule("DispatchIdSyncEvent")) {
        return;
    }
    auto data = std::make_shared<EventData>();
    data->PutStringMap(Keys::IDENTIFIERS, identifiers);
    data->PutInteger(Keys::AUTHENTICATION_STATE, static_cast<int32_t>(authentication_state));
    data->PutBoolean(Keys::FORCE_SYNC, false);
    data->PutBoolean(Keys::IS_SYNC_EVENT, true);
    event_hub->Dispatch(CreateIdentityRequestEvent(data));
}

void IdentityPublicApi::AppendToUrl(const std::string& base_url, const StringCallback& callback) const {
    auto data = std::make_shared<EventData>();
    data->PutString(Keys::BASE_URL, base_url);
    RequestConstantString("AppendToUrl", Keys::UPDATED_URL, data, callback);
}

void IdentityPublicApi::GetIdentifiers(const VisitorIdsCallback& callback) const {
    RequestVisitorIds("GetIdentifiers", Keys::VISITOR_IDS_LIST, nullptr, callback);
}

void IdentityPublicApi::GetOndaraCloudId(const StringCallback& callback) const {
    RequestConstantString("GetOndaraCloudId", Keys::VISITOR_ID_MID, nullptr, callback);
}

void IdentityPublicApi::GetPushIdentifier(const StringCallback& callback) {
    RequestConstantString("GetPushIdentifier", Keys::PUSH_IDENTIFIER, nullptr, callback);
}

void IdentityPublicApi::GetAdvertisingIdentifier(const StringCallback& callback) {
    RequestConstantString("GetAdvertisingIdentifier", Keys::ADVERTISING_IDENTIFIER, nullptr, callback);
}

void IdentityPublicApi::GetUserIdentifier(const StringCallback& callback) {
    RequestConstantString("GetUserIdentifier", Keys::USER_IDENTIFIER, nullptr, callback);
}

void IdentityPublicApi::SetUserIdentifier(const std::string& user_identifier) {
    if (!CanReachModule("SetUserIdentifier")) {
        return;
    }
    auto data = std::make_shared<EventData>();
    data->PutString(Keys::USER_IDENTIFIER, user_identifier);
    event_hub->Dispatch(
        EventBuilder(REQUEST_EVENT_NAME, EventType::IDENTITY, EventSource::REQUEST_IDENTITY).SetData(data).Build());
}

std::shared_ptr<Event> IdentityPublicApi::CreateIdentityRequestEvent(
    const std::shared_ptr<EventData>& event_data) const {
    EventBuilder builder(REQUEST_EVENT_NAME, EventType::IDENTITY, EventSource::REQUEST_IDENTITY);
    if (event_data) {
        builder.SetData(event_data);
    }
    return builder.Build();
}

void IdentityPublicApi::CreateIdentityRequestWithOneTimeCallbackWithStringCallbackParam(
    const std::string& key, const std::shared_ptr<EventData>& event_data, const StringAnswerCallback& callback) const {
    RequestString("CreateIdentityRequestWithOneTimeCallbackWithStringCallbackParam", key, event_data, callback);
}

void IdentityPublicApi::CreateIdentityRequestWithOneTimeCallbackWithVisitorIdCallbackParam(
    const std::string& key, const std::shared_ptr<EventData>& event_data, const VisitorIdsCallback& callback) const {
    RequestVisitorIds("CreateIdentityRequestWithOneTimeCallbackWithVisitorIdCallbackParam", key, event_data, callback);
}

void IdentityPublicApi::RequestString(const char* operation, const std::string& key,
                                      const std::shared_ptr<EventData>& event_data,
                                      const StringAnswerCallback& callback) const {
    if (!callback || !CanReachModule(operation)) {
        return;
    }
    DispatchWithAnswer(CreateIdentityRequestEvent(event_data), [key, callback](const std::shared_ptr<Event>& answer) {
        std::string value;
        answer->GetData()->GetString(key, value);
        callback(value);
    });
}

void IdentityPublicApi::RequestConstantString(const char* operation, const std::string& constant_key,
                                              const std::shared_ptr<EventData>& event_data,
                                              const StringCallback& callback) const {
    if (!callback || !CanReachModule(operation)) {
        return;
    }
    const std::string* key = &constant_key;
    DispatchWithAnswer(CreateIdentityRequestEvent(event_data), [key, callback](const std::shared_ptr<Event>& answer) {
        std::string value;
        answer->GetData()->GetString(*key, value);
        callback(std::move(value));
    });
}

void IdentityPublicApi::RequestVisitorIds(const char* operation, const std::string& key,
                                          const std::shared_ptr<EventData>& event_data,
                                          const VisitorIdsCallback& callback) const {
    if (!callback || !CanReachModule(operation)) {
        return;
    }
    DispatchWithAnswer(CreateIdentityRequestEvent(event_data), [key, callback](const std::shared_ptr<Event>& answer) {
        auto ids = answer->GetData()->GetTypedVector<VisitorId>(key);
        if (ids.HasValue()) {
            callback(ids.Value());
        }
    });
}

void IdentityPublicApi::DispatchWithAnswer(const std::shared_ptr<Event>& event,
                                           const std::function<void(const std::shared_ptr<Event>&)>& listener) const {
    // The listener stands before the request leaves, so the answer cannot overtake it.
    // One pointer in the closure, so that the std::function holds it without an allocation.
    struct Registration {
        EventHub& hub;
        const std::shared_ptr<Event>& event;
        const std::function<void(const std::shared_ptr<Event>&)>& listener;
    } registration{*event_hub, event, listener};
    TryCatch(
        [&registration] {
            registration.hub.RegisterOneTimeListener<Identity>(EventType::IDENTITY, EventSource::RESPONSE_IDENTITY,
                                                               registration.event->GetResponsePairID(),
                                                               registration.listener);
        },
        [](SdkError& error) {
            Log::Debug(IdentityConstants::LOG_PREFIX.c_str(), "Failed to register the RESPONSE_IDENTITY listener (%s)",
                       error);
        });
    event_hub->Dispatch(event);
}

}  // namespace VelmoraMobile
