#include "runtime/configuration/ConfigurationExtension.h"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>

#include "runtime/bus/EventData.h"
#include "runtime/bus/SharedStatePending.h"
#include "runtime/configuration/ConfigurationDispatcherResponseContent.h"
#include "runtime/configuration/ConfigurationListenerRequestContent.h"
#include "runtime/services/LocalStorageServiceInterface.h"
#include "runtime/services/json/BoundedJson.h"
#include "runtime/values/EarlyInit.h"
#include "runtime/values/Log.h"

namespace VelmoraMobile {

const std::string ConfigurationExtension::SHARED_STATE_NAME VELMORA_RUNTIME_EARLY_INIT =
    "com.velmora.module.configuration";
const std::string ConfigurationExtension::CONFIG_UPDATE_KEY VELMORA_RUNTIME_EARLY_INIT = "config.update";
const std::string ConfigurationExtension::GLOBAL_PRIVACY_KEY VELMORA_RUNTIME_EARLY_INIT = "global.privacy";
const std::string ConfigurationExtension::DATA_STORE_NAME VELMORA_RUNTIME_EARLY_INIT =
    "com.velmora.module.configuration";
const std::string ConfigurationExtension::STORED_CHANGES_KEY VELMORA_RUNTIME_EARLY_INIT = "config.programmatic";

namespace {

const char* const LOG_TAG = "Configuration";

// Recursive: only ever given documents from BoundedJson, whose depth is bounded.
std::shared_ptr<Variant> ToVariant(const nlohmann::json& value) {
    switch (value.type()) {
        case nlohmann::json::value_t::string: return Variant::FromString(value.get<std::string>());
        case nlohmann::json::value_t::boolean: return Variant::FromBoolean(value.get<bool>());
        case nlohmann::json::value_t::number_integer:
        case nlohmann::json::value_t::number_unsigned: {
            if (value.is_number_unsigned() && value.get<uint64_t>() > uint64_t(std::numeric_limits<int64_t>::max())) {
                return Variant::FromDouble(value.get<double>());
            }
            int64_t number = value.get<int64_t>();
            if (number >= std::numeric_limits<int32_t>::min() && number <= std::numeric_limits<int32_t>::max()) {
                return Variant::FromInteger(static_cast<int32_t>(number));
            }
            return Variant::FromLong(number);
        }
        case nlohmann::json::value_t::number_float: return Variant::FromDouble(value.get<double>());
        case nlohmann::json::value_t::array: {
            Variant::VariantVector elements;
            for (const auto& element : value) {
                elements.push_back(ToVariant(element));
            }
            return Variant::FromVariantVector(elements);
        }
        case nlohmann::json::value_t::object: {
            Variant::VariantMap entries;
            for (auto it = value.begin(); it != value.end(); ++it) {
                entries[it.key()] = ToVariant(it.value());
            }
            return Variant::FromVariantMap(entries);
        }
        default: return Variant::FromNull();
    }
}

nlohmann::json ToJson(const std::shared_ptr<Variant>& value) {
    if (!value) {
        return nullptr;
    }
    std::string text;
    int32_t integer = 0;
    int64_t number = 0;
    bool flag = false;
    double real = 0;
    Variant::VariantVector elements;
    Variant::VariantMap entries;
    if (value->GetString(text)) return text;
    if (value->GetInteger(integer)) return integer;
    if (value->GetLong(number)) return number;
    if (value->GetBoolean(flag)) return flag;
    if (value->GetDouble(real)) return real;
    if (value->GetVariantVector(elements)) {
        nlohmann::json array = nlohmann::json::array();
        for (const auto& element : elements) {
            array.push_back(ToJson(element));
        }
        return array;
    }
    if (value->GetVariantMap(entries)) {
        nlohmann::json object = nlohmann::json::object();
        for (const auto& entry : entries) {
            object[entry.first] = ToJson(entry.second);
        }
        return object;
    }
    return nullptr;
}

bool IsNull(const std::shared_ptr<Variant>& value) {
    return !value || value->GetKind() == VariantKind::NULL_KIND;
}

}  // namespace

ConfigurationExtension::ConfigurationExtension() : InternalModule(SHARED_STATE_NAME) {}

ConfigurationExtension::~ConfigurationExtension() = default;

std::string ConfigurationExtension::GetSharedStateName() {
    return SHARED_STATE_NAME;
}

void ConfigurationExtension::OnRegistered() {
    RegisterListener<ConfigurationListenerRequestContent>(EventType::CONFIGURATION, EventSource::REQUEST_CONTENT);
    dispatcher_ = CreateDispatcher<ConfigurationDispatcherResponseContent>();
    // Events dispatched before the first configuration is known wait for it.
    CreateSharedState(0, SHARED_STATE_PENDING);
    AddTaskToQueue("ConfigurationLoadStoredChanges", [this] { PublishStoredChanges(); });
}

void ConfigurationExtension::ConfigureWithFile(const std::string& path) {
    AddTaskToQueue("ConfigurationConfigureWithFile", [this, path] { ApplyFile(path); });
}

void ConfigurationExtension::UpdateConfiguration(const Variant::VariantMap& changes) {
    AddTaskToQueue("ConfigurationUpdate", [this, changes] { ApplyChanges(changes, std::string()); });
}

void ConfigurationExtension::SetPrivacyStatus(MobilePrivacyStatus status) {
    UpdateConfiguration({{GLOBAL_PRIVACY_KEY, Variant::FromString(MobilePrivacyStatusToString(status))}});
}

void ConfigurationExtension::HandleRequestContent(const std::shared_ptr<Event>& event) {
    if (!event) {
        return;
    }
    AddTaskToQueue("ConfigurationRequestContent", [this, event] {
        const std::shared_ptr<EventData>& data = event->GetData();
        Variant::VariantMap changes;
        if (data->GetVariantMap(CONFIG_UPDATE_KEY, changes)) {
            ApplyChanges(changes, event->GetResponsePairID());
        } else if (data->ContainsKey(CONFIG_UPDATE_KEY)) {
            Log::Warning(LOG_TAG, "Configuration request ignored: %s is not a map", CONFIG_UPDATE_KEY);
        } else if (dispatcher_) {
            // A plain request asks for the configuration as it stands after the work queued so far.
            dispatcher_->DispatchResponse(CurrentConfiguration(), event->GetResponsePairID());
        }
    });
}

void ConfigurationExtension::LoadStoredChanges() {
    if (stored_changes_loaded_) {
        return;
    }
    stored_changes_loaded_ = true;
    std::shared_ptr<DataStoreInterface> store = GetDataStore();
    if (!store || !store->Contains(STORED_CHANGES_KEY)) {
        return;
    }
    nlohmann::json stored = BoundedJson::Parse(store->GetString(STORED_CHANGES_KEY, ""));
    if (!stored.is_object()) {
        Log::Warning(LOG_TAG, "Stored configuration changes are unreadable and were ignored");
        return;
    }
    for (auto it = stored.begin(); it != stored.end(); ++it) {
        programmatic_changes_[it.key()] = ToVariant(it.value());
    }
}

void ConfigurationExtension::PublishStoredChanges() {
    LoadStoredChanges();
    if (!published_ && !programmatic_changes_.empty()) {
        Publish(std::string());
    }
}

void ConfigurationExtension::ApplyFile(const std::string& path) {
    LoadStoredChanges();
    std::ifstream file(path);
    if (!file) {
        Log::Warning(LOG_TAG, "Configuration file %s could not be read; the configuration is unchanged", path);
        return;
    }
    nlohmann::json parsed = BoundedJson::Parse(std::string(std::istreambuf_iterator<char>(file), {}));
    if (!parsed.is_object()) {
        Log::Warning(LOG_TAG, "Configuration file %s holds no JSON object; the configuration is unchanged", path);
        return;
    }
    Variant::VariantMap configuration;
    for (auto it = parsed.begin(); it != parsed.end(); ++it) {
        configuration[it.key()] = ToVariant(it.value());
    }
    file_configuration_.swap(configuration);
    Log::Debug(LOG_TAG, "Configuration file %s loaded", path);
    Publish(std::string());
}

void ConfigurationExtension::ApplyChanges(const Variant::VariantMap& changes, const std::string& pair_id) {
    LoadStoredChanges();
    if (changes.empty()) {
        Log::Debug(LOG_TAG, "Empty configuration update ignored");
        // A requester still gets its answer.
        if (!pair_id.empty() && dispatcher_) {
            dispatcher_->DispatchResponse(CurrentConfiguration(), pair_id);
        }
        return;
    }
    for (const auto& change : changes) {
        if (IsNull(change.second)) {
            programmatic_changes_.erase(change.first);
        } else {
            programmatic_changes_[change.first] = change.second;
        }
    }
    SaveChanges();
    Publish(pair_id);
}

void ConfigurationExtension::SaveChanges() {
    std::shared_ptr<DataStoreInterface> store = GetDataStore();
    if (!store) {
        Log::Debug(LOG_TAG, "No data store: configuration changes are kept for this run only");
        return;
    }
    if (programmatic_changes_.empty()) {
        store->Remove(STORED_CHANGES_KEY);
        return;
    }
    nlohmann::json object = nlohmann::json::object();
    for (const auto& change : programmatic_changes_) {
        object[change.first] = ToJson(change.second);
    }
    store->SetString(STORED_CHANGES_KEY, object.dump());
}

std::shared_ptr<EventData> ConfigurationExtension::CurrentConfiguration() {
    // Whatever is published carries the stored changes: a stored opt-out must never be
    // preceded by a state that says otherwise.
    LoadStoredChanges();
    auto configuration = std::make_shared<EventData>();
    for (const auto& entry : file_configuration_) {
        configuration->PutVariant(entry.first, entry.second);
    }
    // Programmatic changes win over the file.
    for (const auto& entry : programmatic_changes_) {
        configuration->PutVariant(entry.first, entry.second);
    }
    return configuration;
}

void ConfigurationExtension::Publish(const std::string& pair_id) {
    std::shared_ptr<EventData> configuration = CurrentConfiguration();
    published_ = true;
    // The first publication resolves the pending state at version 0; later ones take the
    // hub's next event number, so this response event already sees them.
    CreateOrUpdateSharedState(configuration);
    if (dispatcher_) {
        dispatcher_->DispatchResponse(configuration, pair_id);
    }
}

std::shared_ptr<DataStoreInterface> ConfigurationExtension::GetDataStore() {
    std::shared_ptr<PlatformServicesInterface> services = GetPlatformServices();
    std::shared_ptr<LocalStorageServiceInterface> storage = services ? services->GetLocalStorageService() : nullptr;
    return storage ? storage->GetDataStore(DATA_STORE_NAME) : nullptr;
}

}  // namespace VelmoraMobile
