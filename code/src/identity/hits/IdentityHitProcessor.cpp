#include "identity/hits/IdentityHitProcessor.h"

#include <algorithm>
#include <vector>

#include "identity/module/Identity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/services/HttpConnectionConstants.h"
#include "runtime/services/helpers/NetworkConnectionUtil.h"
#include "runtime/values/Log.h"
#include "runtime/values/SdkError.h"
#include "runtime/values/StringUtils.h"
#include "runtime/values/TryCatch.h"

namespace VelmoraMobile {

IdentityHitProcessor::IdentityHitProcessor(const std::shared_ptr<NetworkServiceInterface>& network_service_,
                                           const std::shared_ptr<SystemInfoServiceInterface>& system_info_service_,
                                           const std::shared_ptr<JsonUtilityServiceInterface>& json_utility_service_,
                                           const std::shared_ptr<Identity>& parent_module_)
    : network_service(network_service_),
      json_utility_service(json_utility_service_),
      system_info_service(system_info_service_),
      parent_module(parent_module_) {}

namespace {
const char* const RESPONSE_TASK = "NetworkResponseLoaded";
}  // namespace

void IdentityHitProcessor::HandOverResponse(const std::shared_ptr<IdentityObject>& identity_object,
                                            const std::string& pair_id, int32_t event_number) {
    // The module's fields belong to its task queue alone, and this runs on the hit queue's
    // worker: applying the answer here would race with the module's tasks (a sync replacing the
    // customer ids while the answer saves them). So the worker only adds a task and never waits
    // for it, which also keeps it clear of the unregistration task that waits for this worker to
    // end. Added as part of the unregistration, so an answer arriving then is still applied and saved.
    std::weak_ptr<Identity> module = parent_module;
    parent_module->AddTaskToQueue(
        RESPONSE_TASK,
        [module, identity_object, pair_id, event_number] {
            std::shared_ptr<Identity> identity = module.lock();
            if (!identity) {
                Log::Debug(Identity::LOG_PREFIX.c_str(), "Identity module is gone: the answer to a sync is dropped");
                return;
            }
            identity->NetworkResponseLoaded(identity_object, pair_id, event_number);
        },
        Module::REQUIRED_FOR_UNREGISTRATION);
}

HitProcessResult IdentityHitProcessor::Process(const std::shared_ptr<IdentityDatabaseHit>& hit) {
    const char* tag = Identity::LOG_PREFIX.c_str();
    // Waiting callers hear of a hit that ended without an answer through an empty object.
    auto report_nothing = [&] { HandOverResponse(nullptr, hit->pair_id, hit->event_number); };

    if (hit->url.empty()) {
        Log::Debug(tag, "Cannot process identity hit with no url");
        return HitProcessResult::DONE;
    }
    Log::Debug(tag, "Sending request (%s)", hit->url);

    const std::map<std::string, std::string> headers = BuildIdentityRequestPropertyMap(false);
    std::shared_ptr<HttpConnectionInterface> connection =
        network_service->ConnectUrl(hit->url, HttpCommand::GET, "", headers, IdentityConstants::Default::TIMEOUT,
                                    IdentityConstants::Default::TIMEOUT);
    // Only a status code can earn a retry: a request that got no answer at all costs the hit.
    if (!connection) {
        Log::Debug(tag, "something went wrong in ids sync network call. Cannot save data.");
        report_nothing();
        return HitProcessResult::DONE;
    }

    if (connection->GetResponseCode() != HttpConnectionConstants::HTTP_OK) {
        if (NetworkConnectionUtil::IsRecoverableNetworkError(connection->GetResponseCode())) {
            Log::Debug(tag, "Recoverable network error while processing Identity requests.  Will retry in 30 seconds.");
            return HitProcessResult::RETRY;
        }
        Log::Debug(tag, "Un-recoverable network error while processing Identity requests.  Discarding request.");
        report_nothing();
        return HitProcessResult::DONE;
    }

    if (!json_utility_service) {
        Log::Debug(tag, "json utility service is null. cannot parse data. return");
        report_nothing();
        return HitProcessResult::DONE;
    }

    const std::string body = connection->GetResponse();
    std::shared_ptr<JsonObject> json;
    TryCatch([&] { json = json_utility_service->ParseJson(body); },
             [&](SdkError& error) {
                 Log::Debug(tag,
                            "json object created is null. cannot parse identity network response:\n%s\nError - %s %s",
                            body, error.GetCode(), error.GetMessage());
                 json.reset();
                 report_nothing();
             });
    // Also reached after a throwing parser, so that one reports twice; receivers rely on the
    // number of response events.
    if (!json) {
        Log::Debug(tag, "json object created is null. cannot parse identity network response.");
        report_nothing();
        return HitProcessResult::DONE;
    }

    HandOverResponse(CreateIdentityObjectFromResponseJsonObject(json), hit->pair_id, hit->event_number);
    return HitProcessResult::DONE;
}

std::map<std::string, std::string> IdentityHitProcessor::BuildIdentityRequestPropertyMap(bool /*flag*/) {
    if (!system_info_service) {
        Log::Debug(Identity::LOG_PREFIX.c_str(), "Cannot build identity network request without system info service.");
        return {};
    }
    std::string language = NetworkConnectionUtil::GetLocaleString(system_info_service->GetSystemLocale());
    std::replace(language.begin(), language.end(), '_', '-');
    return NetworkConnectionUtil::GetHeaders(language, "");
}

std::shared_ptr<IdentityObject> IdentityHitProcessor::CreateIdentityObjectFromResponseJsonObject(
    const std::shared_ptr<JsonObject>& json) const {
    if (!json || json->Length() == 0) {
        Log::Debug(Identity::LOG_PREFIX.c_str(),
                   "json object created is null or empty. cannot parse identity network response.");
        return nullptr;
    }
    auto identity_object = std::make_shared<IdentityObject>();
    identity_object->SetBlob(json->GetString(IdentityConstants::RESPONSE_KEY_BLOB, ""));
    identity_object->SetMid(json->GetString(IdentityConstants::RESPONSE_KEY_MID, ""));
    // A hint is a number on the wire; -1 cannot be told from a missing one.
    const int32_t hint = json->GetInt(IdentityConstants::RESPONSE_KEY_HINT, -1);
    identity_object->SetHint(hint == -1 ? std::string() : StringUtils::ToString(hint));
    const int32_t ttl = json->GetInt(IdentityConstants::RESPONSE_KEY_TTL,
                                     static_cast<int32_t>(IdentityConstants::Default::DEFAULT_TTL_VALUE));
    identity_object->SetTtl(std::chrono::seconds(static_cast<int64_t>(ttl)));
    identity_object->SetError(json->GetString(IdentityConstants::RESPONSE_KEY_ERROR, ""));

    std::shared_ptr<JsonArray> opt_out = json->GetJsonArray(IdentityConstants::RESPONSE_KEY_OPT_OUT);
    if (!opt_out || opt_out->Length() == 0) {
        return identity_object;
    }
    std::vector<std::string> entries;
    for (int32_t index = 0; index < opt_out->Length(); ++index) {
        entries.push_back(opt_out->GetString(index));
    }
    identity_object->SetOptOut(entries);
    return identity_object;
}

}  // namespace VelmoraMobile
