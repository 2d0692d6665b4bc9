#pragma once

#include <memory>
#include <string>

#include "runtime/bus/Event.h"
#include "runtime/bus/InternalModule.h"
#include "runtime/services/DataStoreInterface.h"
#include "runtime/values/MobilePrivacyStatus.h"
#include "runtime/values/Variant.h"

namespace VelmoraMobile {

class ConfigurationDispatcherResponseContent;

/// The configuration extension, "com.velmora.module.configuration": holds the flat key/value
/// configuration of the other extensions and publishes it whole, as its shared state and as a
/// CONFIGURATION / RESPONSE_CONTENT event, after every change. It answers CONFIGURATION /
/// REQUEST_CONTENT events, applying their "config.update" map when they carry one.
///
/// The configuration is the last file given to ConfigureWithFile, overlaid with the programmatic
/// changes (UpdateConfiguration, SetPrivacyStatus, "config.update" requests). Those changes are
/// kept in the data store "com.velmora.module.configuration" and come back, and are published,
/// when the module is registered again on the same data folder. Until the first publication the
/// state at version 0 is pending, so that other modules wait for it.
///
/// Owned by the hub once registered. Every public method may be called on any thread: it only
/// adds a task, and all work happens in the module's task queue.
class ConfigurationExtension : public InternalModule {
public:
    static const std::string SHARED_STATE_NAME;   ///< "com.velmora.module.configuration"
    static const std::string CONFIG_UPDATE_KEY;   ///< "config.update": a map of changes in a request
    static const std::string GLOBAL_PRIVACY_KEY;  ///< "global.privacy": the privacy status as text
    static const std::string DATA_STORE_NAME;     ///< where programmatic changes are kept
    static const std::string STORED_CHANGES_KEY;  ///< the key of those changes, as JSON text

    ConfigurationExtension();
    ~ConfigurationExtension() override;

    std::string GetSharedStateName() override;
    void OnRegistered() override;

    /// Replaces the file part of the configuration with the JSON object in `path`. A missing
    /// file or one that holds no JSON object is logged once and changes nothing.
    void ConfigureWithFile(const std::string& path);
    /// Sets each key to its value; a value of the null kind removes the key's programmatic value.
    void UpdateConfiguration(const Variant::VariantMap& changes);
    /// The same as an update of "global.privacy" with the status's text.
    void SetPrivacyStatus(MobilePrivacyStatus status);

    /// From the listener of CONFIGURATION / REQUEST_CONTENT: applies the request's
    /// "config.update" map and publishes the result; a request without that key is answered
    /// with the configuration as it stands, without a new state. Answers carry the request's
    /// pair id.
    void HandleRequestContent(const std::shared_ptr<Event>& event);

private:
    // These run as tasks only. Tasks added before registration run before the one that
    // OnRegistered adds, so every path loads the stored changes first.
    void LoadStoredChanges();
    void PublishStoredChanges();
    void ApplyFile(const std::string& path);
    void ApplyChanges(const Variant::VariantMap& changes, const std::string& pair_id);
    void SaveChanges();
    void Publish(const std::string& pair_id);
    std::shared_ptr<EventData> CurrentConfiguration();
    std::shared_ptr<DataStoreInterface> GetDataStore();

    // Set in OnRegistered, before any task runs; then read by tasks only.
    std::shared_ptr<ConfigurationDispatcherResponseContent> dispatcher_;
    // Touched by tasks only, which never overlap.
    Variant::VariantMap file_configuration_;
    Variant::VariantMap programmatic_changes_;
    bool stored_changes_loaded_{false};
    bool published_{false};
};

}  // namespace VelmoraMobile
