#include "tools/cli/CliSession.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "runtime/bus/SharedStatePending.h"
#include "runtime/configuration/ConfigurationExtension.h"
#include "runtime/services/PlatformServices.h"
#include "runtime/values/SdkError.h"
#include "runtime/values/StringUtils.h"
#include "tools/cli/CliError.h"
#include "tools/cli/Waiting.h"

namespace VelmoraCli {

using namespace VelmoraMobile;

namespace {

bool SameValue(const Variant& a, const Variant& b) {
    return a.GetKind() == b.GetKind() && StringUtils::ToString(a) == StringUtils::ToString(b);
}

}  // namespace

std::string CheckDataDir(const std::string& data_dir) {
    const std::string folder = PlatformServices::ResolveDataDirectory(data_dir);
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        throw CliError(EXIT_FAILURE_NAMED, "cannot use the data folder " + folder + ": " + error.message());
    }
    // Writing a file is the one test that also holds for root and for read-only mounts.
    const std::string probe = folder + "/.velmora-identity-write-check";
    {
        std::ofstream file(probe);
        if (!file || !(file << "x") || !file.flush()) {
            throw CliError(EXIT_FAILURE_NAMED,
                           "cannot write to the data folder " + folder + ": " + std::strerror(errno));
        }
    }
    std::filesystem::remove(probe, error);
    return folder;
}

CliSession::CliSession(const GlobalOptions& options) : options_(options), data_dir_(CheckDataDir(options.data_dir)) {
    CoreOptions core_options;
    core_options.data_dir = data_dir_;
    core_options.org_id = options.org;
    core_options.server = options.server;
    if (options.no_tls) {
        core_options.tls = false;
    }
    core_options.ca_file = options.ca_file;
    core_options.start_timeout = std::chrono::milliseconds(static_cast<int64_t>(options.timeout * 1000));
    try {
        core_ = std::make_unique<VelmoraMobile::Core>(core_options);
    } catch (const SdkError& error) {
        throw CliError(EXIT_FAILURE_NAMED, std::string("the core did not start: ") + error.GetMessage());
    }
    api_ = core_->IdentityApi();
    observer_ = std::make_shared<CliObserver>();
    core_->Running()->event_hub->RegisterModule(observer_);
}

CliSession::~CliSession() {
    Stop();
}

void CliSession::Stop() {
    if (core_) {
        core_->Stop();
    }
}

std::shared_ptr<EventData> CliSession::PublishedConfiguration() const {
    auto core = core_->Running();
    if (!core) {
        return nullptr;
    }
    auto state = core->event_hub->GetSharedEventState(ConfigurationExtension::SHARED_STATE_NAME, nullptr);
    return state == SHARED_STATE_PENDING ? nullptr : state;
}

std::shared_ptr<EventData> CliSession::Configuration() {
    std::shared_ptr<EventData> found;
    WaitOrFail("the configuration (none is set: give --server and --org, or use config)", options_.timeout,
               [&](std::chrono::steady_clock::time_point deadline) {
                   found = observer_->WaitForConfiguration([this] { return PublishedConfiguration(); },
                                                           [](const EventData&) { return true; }, deadline);
                   return found != nullptr;
               });
    return found;
}

void CliSession::AwaitConfiguration(const Variant::VariantMap& changes) {
    auto applied = [&changes](const EventData& state) {
        for (const auto& change : changes) {
            std::shared_ptr<Variant> value;
            bool present = state.GetVariant(change.first, value);
            bool removed = !change.second || change.second->GetKind() == VariantKind::NULL_KIND;
            if (removed ? present : !(present && value && SameValue(*value, *change.second))) {
                return false;
            }
        }
        return true;
    };
    WaitOrFail("the configuration change", options_.timeout, [&](std::chrono::steady_clock::time_point deadline) {
        return observer_->WaitForConfiguration([this] { return PublishedConfiguration(); }, applied, deadline) !=
               nullptr;
    });
}

}  // namespace VelmoraCli
