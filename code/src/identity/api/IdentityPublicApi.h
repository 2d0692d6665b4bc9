#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "identity/ids/VisitorId.h"
#include "identity/ids/VisitorIdAuthenticationState.h"
#include "runtime/bus/Event.h"
#include "runtime/bus/EventData.h"
#include "runtime/bus/EventHub.h"
#include "runtime/services/PlatformServicesInterface.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// The door through which a host reaches the identity module. It keeps no identity data: each
/// operation builds one "IdentityRequestIdentity" event (IDENTITY / REQUEST_IDENTITY), dispatches
/// it on the hub and, when an answer is wanted, hands the answer to the callback through a
/// one-time listener on the request's pair id. There is no timeout: a request that is never
/// answered never calls back. A getter with an empty callback sends nothing.
///
/// Cheap: make one per call (Create) or keep one; it owns nothing but two shared pointers.
/// Threads: every operation may be called from any thread at once and returns at once.
/// Callbacks run on the hub's delivery thread, one at a time; a callback must not wait for
/// another answer of the same hub.
///
/// A call on an api without a hub, or on a hub that has no identity module (the core is not
/// started or has stopped), is logged as an error and dropped: nothing is sent, no callback runs.
class IdentityPublicApi : public Object {
public:
    using StringCallback = std::function<void(std::string)>;
    using StringAnswerCallback = std::function<void(const std::string&)>;
    using VisitorIdsCallback = std::function<void(const std::vector<std::shared_ptr<VisitorId>>&)>;

    /// No check is made here: an empty hub is reported by the first call.
    static std::shared_ptr<IdentityPublicApi> Create(
        const std::shared_ptr<EventHub>& event_hub,
        const std::shared_ptr<PlatformServicesInterface>& platform_services);
    ~IdentityPublicApi() override;

    /// Registers the identity module on the hub unless one is there already.
    void RegisterIdentity();

    void SyncIdentifier(const std::string& identifier_type, const std::string& identifier,
                        VisitorIdAuthenticationState authentication_state);
    /// Syncs with the state UNKNOWN.
    void SyncIdentifiers(const std::map<std::string, std::string>& identifiers);
    void SyncIdentifiers(const std::map<std::string, std::string>& identifiers,
                         VisitorIdAuthenticationState authentication_state);
    /// The sync request of the three above; the map goes out as it is, even when empty.
    void DispatchIdSyncEvent(const std::map<std::string, std::string>& identifiers,
                             VisitorIdAuthenticationState authentication_state);

    /// Calls back with `base_url` decorated with the visitor's data.
    void AppendToUrl(const std::string& base_url, const StringCallback& callback) const;
    /// Calls back with the customer ids, in the module's order; never when there are none.
    void GetIdentifiers(const VisitorIdsCallback& callback) const;
    /// The string getters call back with "" when the module has no such value.
    void GetOndaraCloudId(const StringCallback& callback) const;
    void GetPushIdentifier(const StringCallback& callback);
    void GetAdvertisingIdentifier(const StringCallback& callback);
    void GetUserIdentifier(const StringCallback& callback);
    /// Sends no answer.
    void SetUserIdentifier(const std::string& user_identifier);

    /// A new "IdentityRequestIdentity" event carrying `event_data` (may be null).
    std::shared_ptr<Event> CreateIdentityRequestEvent(const std::shared_ptr<EventData>& event_data) const;
    /// Sends a request with `event_data` (may be null) and calls back with the string under
    /// `key` in the answer, "" when it is missing or not a string.
    void CreateIdentityRequestWithOneTimeCallbackWithStringCallbackParam(const std::string& key,
                                                                         const std::shared_ptr<EventData>& event_data,
                                                                         const StringAnswerCallback& callback) const;
    /// The same for a list of customer ids, called back only when the list under `key` can be read.
    void CreateIdentityRequestWithOneTimeCallbackWithVisitorIdCallbackParam(
        const std::string& key, const std::shared_ptr<EventData>& event_data, const VisitorIdsCallback& callback) const;

private:
    struct Passkey {};

public:
    /// For Create only: the key is private.
    explicit IdentityPublicApi(Passkey) {}

private:
    /// False, with an error line naming `operation`, when no identity module can hear a request.
    bool CanReachModule(const char* operation) const;
    void RequestString(const char* operation, const std::string& key, const std::shared_ptr<EventData>& event_data,
                       const StringAnswerCallback& callback) const;
    /// RequestString for the getters: `constant_key` is one of the module's constant keys, which
    /// outlive every answer, so the listener keeps only its address; the value is moved into
    /// the callback.
    void RequestConstantString(const char* operation, const std::string& constant_key,
                               const std::shared_ptr<EventData>& event_data, const StringCallback& callback) const;
    void RequestVisitorIds(const char* operation, const std::string& key, const std::shared_ptr<EventData>& event_data,
                           const VisitorIdsCallback& callback) const;
    /// Registers `listener` for the answer to `event` (an SdkError is logged), then dispatches it.
    void DispatchWithAnswer(const std::shared_ptr<Event>& event,
                            const std::function<void(const std::shared_ptr<Event>&)>& listener) const;

    std::shared_ptr<EventHub> event_hub;
    std::shared_ptr<PlatformServicesInterface> platform_services;
};

}  // namespace VelmoraMobile
