#include "identity/events/IdentityDispatcherConfigurationRequestContent.h"
#include "identity/module/ConfigurationSharedStateIdentity.h"
#include "identity/module/Identity.h"
#include "identity/module/IdentityConstants.h"

namespace VelmoraMobile {

namespace ConfigKeys = IdentityConstants::EventDataKeys::Configuration;

void Identity::HandleConfigurationResponse(const std::shared_ptr<Event>& event) {
    if (!event || !event->GetData()) {
        return;
    }
    AddTaskToQueue("HandleConfigurationResponse", [this, event] {
        const std::shared_ptr<EventData> data = event->GetData();

        // Without the privacy key the privacy state is left as it is; the view's default is not
        // applied here.
        std::string privacy_text;
        if (data->GetString(ConfigKeys::GLOBAL_CONFIG_PRIVACY, privacy_text)) {
            const MobilePrivacyStatus status = StringToMobilePrivacyStatus(privacy_text);
            // The opt-out hit is decided first, while mid and the rest are still in place.
            if (status == MobilePrivacyStatus::OPT_OUT) {
                HandleOptOut(event);
            }
            ProcessPrivacyChange(event->GetEventNumber(), data);
        }

        // A configuration without an organisation id never clears the last good one.
        if (!data->OptString(ConfigKeys::CONFIG_ONDARA_CLOUD_ORGID_KEY, "").empty()) {
            latest_valid_config = std::make_shared<ConfigurationSharedStateIdentity>(data);
        }

        ProcessEventQueue();
    });
}

void Identity::HandleIdentityConfigurationUpdateEvent(const std::shared_ptr<EventData>& data) {
    if (!configuration_dispatcher) {
        return;
    }
    configuration_dispatcher->DispatchConfigUpdateRequest(data);
}

}  // namespace VelmoraMobile
