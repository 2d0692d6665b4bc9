#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "identity/ids/VisitorId.h"
#include "runtime/bus/Event.h"
#include "runtime/bus/EventData.h"
#include "runtime/bus/InternalModule.h"
#include "runtime/services/DataStoreInterface.h"
#include "runtime/services/NetworkServiceInterface.h"
#include "runtime/values/MobilePrivacyStatus.h"

namespace VelmoraMobile {

class ConfigurationSharedStateIdentity;
class IdentityDispatcherAnalyticsRequestContent;
class IdentityDispatcherConfigurationRequestContent;
class IdentityDispatcherIdentityResponseIdentity;
class IdentityHitDatabase;
class IdentityObject;

/// The identity module: the identity state of the device and every operation on it.
///
/// Owned by the hub (create it with EventHub::RegisterModule<Identity>()). It takes no lock of
/// its own: every field has one owner, the module's serial task queue. Threads:
/// - the hub's delivery thread calls OnRegistered and OnUnregistered, which the hub never runs
///   beside a task of this module's (tasks start once OnRegistered has returned; OnUnregistered
///   only reads hit_database, which only the "unregistration" task it adds resets);
/// - through the listeners the same thread calls HandleIdentityRequest, TryProcessEventQueue,
///   Bootup, HandleConfigurationResponse, HandleAudienceResponse and
///   HandleAnalyticsResponseIdentity, which only add tasks;
/// - the hit queue's worker only adds the task "NetworkResponseLoaded" (see IdentityHitProcessor);
/// - every other member runs inside the module's tasks only.
class Identity : public InternalModule {
public:
    static const std::string LOG_PREFIX;
    static const std::string IDENTITY_PROPERTIES_DATA_STORE_NAME;

    Identity();
    ~Identity() override;

    // Lifecycle, called by the hub.
    void OnRegistered() override;
    void OnUnregistered() override;
    std::string GetSharedStateName() override;

    // The module's own virtual operations, in slot order.
    virtual void ProcessEventQueue();
    virtual void HandleIdentityRequest(const std::shared_ptr<Event>& event);
    virtual void TryProcessEventQueue();
    virtual void HandleAnalyticsResponseIdentity(const std::shared_ptr<Event>& event);
    virtual void Bootup(const std::shared_ptr<Event>& event);
    virtual void NetworkResponseLoaded(const std::shared_ptr<IdentityObject>& identity_object,
                                       const std::string& pair_id, int32_t event_number);
    virtual std::map<std::string, std::string> ExtractIdentifiers(
        const std::shared_ptr<EventData>& event_data, const std::shared_ptr<ConfigurationSharedStateIdentity>& config);
    virtual std::string GenerateURLEncodedValuesCustomerIdString(
        const std::vector<std::shared_ptr<VisitorId>>& customer_ids);
    virtual std::vector<std::shared_ptr<VisitorId>> MergeCustomerIds(
        const std::vector<std::shared_ptr<VisitorId>>& new_ids);
    virtual bool ProcessEvent(const std::shared_ptr<Event>& event,
                              const std::shared_ptr<ConfigurationSharedStateIdentity>& config);
    virtual void HandleAppendUrl(const std::shared_ptr<Event>& event,
                                 const std::shared_ptr<ConfigurationSharedStateIdentity>& config);
    virtual bool HandleSyncIdentifiers(const std::shared_ptr<Event>& event,
                                       const std::shared_ptr<ConfigurationSharedStateIdentity>& config);
    virtual void AppendVisitorInfoForUrl(const std::string& base_url, const std::string& pair_id,
                                         const std::shared_ptr<ConfigurationSharedStateIdentity>& config,
                                         const std::shared_ptr<EventData>& analytics_state);
    virtual void HandleIdentifiersRequest(const std::string& event_name, const std::string& pair_id);
    virtual void UpdateUserIdentifier(const std::string& user_identifier);
    virtual void UpdatePushIdentifier(const std::string& push_identifier);
    virtual void UpdateAdvertisingIdentifier(const std::string& advertising_identifier);
    virtual void SavePersistently();
    virtual void HandleIdentityResponseEvent(const std::string& event_name, const std::shared_ptr<EventData>& data,
                                             const std::string& pair_id);
    virtual bool ProcessPushToken(const std::string& token);
    virtual std::string GenerateMID();
    virtual std::string GenerateInternalIdString(const std::map<std::string, std::string>& dpids);
    virtual void ProcessPrivacyChange(int32_t event_number, const std::shared_ptr<EventData>& config_data);
    virtual void SendOptOutHit(const std::shared_ptr<ConfigurationSharedStateIdentity>& config);
    virtual void LoadVariablesFromPersistentData();
    virtual std::string ConvertVisitorIdObjectsVisitorIDsString(const std::vector<std::shared_ptr<VisitorId>>& ids);
    virtual std::vector<std::shared_ptr<VisitorId>> ConvertVisitorIDsStringToVisitorIdObjects(const std::string& text);
    virtual std::string GenerateVisitorIdPayload(const std::shared_ptr<ConfigurationSharedStateIdentity>& config,
                                                 const std::shared_ptr<EventData>& analytics_state);
    virtual std::string AppendParameterToVisitorIdString(const std::string& existing, const std::string& key,
                                                         const std::string& value);
    virtual void HandleIdentityConfigurationUpdateEvent(const std::shared_ptr<EventData>& data);
    virtual std::map<std::string, std::string> ExtractDpid(const std::shared_ptr<EventData>& event_data);
    virtual bool ShouldSync(const std::map<std::string, std::string>& identifiers,
                            const std::map<std::string, std::string>& dpids, bool force_sync,
                            const std::shared_ptr<ConfigurationSharedStateIdentity>& config);
    virtual std::string BuildUrlString(const std::vector<std::shared_ptr<VisitorId>>& customer_ids,
                                       const std::map<std::string, std::string>& dpids,
                                       const std::shared_ptr<ConfigurationSharedStateIdentity>& config);
    virtual std::string BuildOptOutUrlString(const std::shared_ptr<ConfigurationSharedStateIdentity>& config);
    virtual std::vector<std::shared_ptr<VisitorId>> GenerateCustomerIds(
        const std::map<std::string, std::string>& identifiers, VisitorIdAuthenticationState state);

    // Ordinary members.
    void LoadDefaultValues();
    void HandleConfigurationResponse(const std::shared_ptr<Event>& event);
    void HandleAudienceResponse(const std::shared_ptr<Event>& event);
    std::shared_ptr<EventData> PackageEventData();
    void ClearEventsQueue();
    void LoadPrivacyStatus(const std::shared_ptr<Event>& event);
    void HandleOptOut(const std::shared_ptr<Event>& event);
    bool GetNetworkService(std::shared_ptr<NetworkServiceInterface>& service);
    std::shared_ptr<DataStoreInterface> GetIdentityDataStore();
    bool IsPushEnabled();
    bool SetPushEnabled(bool enabled);
    void ChangePushStatusAndHitAnalytics(bool enabled);
    void ParseIDsOnjsonResponseReceivedCallback(const std::shared_ptr<IdentityObject>& identity_object);

    // The state. Public so that tests and subclasses see what the module holds; read and written
    // only by the module's tasks (and by OnRegistered, before the first task).
    std::string mid;
    std::string location_hint;
    std::string blob;
    std::string advertising_identifier;
    std::string push_identifier;
    std::vector<std::shared_ptr<VisitorId>> customer_ids;
    std::string user_identifier;
    std::chrono::seconds ttl;
    std::chrono::seconds last_sync;
    MobilePrivacyStatus privacy_status;
    std::shared_ptr<ConfigurationSharedStateIdentity> latest_valid_config;
    std::shared_ptr<IdentityDispatcherAnalyticsRequestContent> analytics_dispatcher;
    std::shared_ptr<IdentityDispatcherConfigurationRequestContent> configuration_dispatcher;
    std::shared_ptr<IdentityDispatcherIdentityResponseIdentity> identity_response_dispatcher;
    std::deque<std::shared_ptr<Event>> event_queue;
    bool push_enabled;
    std::shared_ptr<IdentityHitDatabase> hit_database;

private:
    // customer_ids as PackageEventData publishes them, and a copy of the values it is made from:
    // the records may be changed in place, so they are compared by value, and the list is made
    // from the copy when first read. Touched only where PackageEventData runs.
    std::shared_ptr<Variant> PublishedCustomerIds();
    std::shared_ptr<const std::vector<std::optional<VisitorId>>> published_customer_ids_source_;
    std::shared_ptr<Variant> published_customer_ids_;

    // The record PackageEventData last built, its entries shared by the copies it hands out, and
    // the values it was made from: rebuilt only when one of them changed.
    struct PublishedRecordSource {
        std::string mid;
        std::string user_identifier;
        std::string advertising_identifier;
        std::string push_identifier;
        std::string blob;
        std::string location_hint;
        std::shared_ptr<Variant> customer_ids;
        int64_t last_sync = 0;
    };
    bool PublishedRecordIsCurrent(const std::shared_ptr<Variant>& ids) const;
    PublishedRecordSource published_record_source_;
    std::shared_ptr<EventData> published_record_;

    // The view of the last configuration state an event was processed with, kept while the
    // state is the same object. Touched only by the module's tasks.
    std::shared_ptr<EventData> config_view_source_;
    std::shared_ptr<ConfigurationSharedStateIdentity> config_view_;
};

}  // namespace VelmoraMobile
