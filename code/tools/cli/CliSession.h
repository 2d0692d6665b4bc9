#pragma once

#include <memory>
#include <string>

#include "host/Core.h"
#include "identity/api/IdentityPublicApi.h"
#include "runtime/bus/EventData.h"
#include "tools/cli/CliObserver.h"
#include "tools/cli/GlobalOptions.h"

namespace VelmoraCli {

/// One running core for one command: started on the data folder with the global options, with a
/// CliObserver on its hub. Made and used on the main thread; the destructor stops the core,
/// which lets a request in flight (an opt-out) go out within the stop's deadline.
class CliSession {
public:
    /// Checks that the data folder can be written (CliError exit 1 when not), then starts the
    /// core (CliError exit 1 when it does not start).
    explicit CliSession(const GlobalOptions& options);
    ~CliSession();
    CliSession(const CliSession&) = delete;
    CliSession& operator=(const CliSession&) = delete;

    VelmoraMobile::Core& Core() { return *core_; }
    const std::shared_ptr<VelmoraMobile::IdentityPublicApi>& Api() const { return api_; }
    CliObserver& Observer() { return *observer_; }
    const GlobalOptions& Options() const { return options_; }
    const std::string& DataDir() const { return data_dir_; }

    /// The published configuration, waiting (bounded) for the first one; CliError exit 1 when
    /// none comes, which is the case when none was ever given.
    std::shared_ptr<VelmoraMobile::EventData> Configuration();
    /// Waits until the published configuration has each of `changes`' keys at its value.
    void AwaitConfiguration(const VelmoraMobile::Variant::VariantMap& changes);

    /// Stops the core now (bounded); the destructor does it otherwise.
    void Stop();

private:
    std::shared_ptr<VelmoraMobile::EventData> PublishedConfiguration() const;

    const GlobalOptions options_;
    std::string data_dir_;
    std::unique_ptr<VelmoraMobile::Core> core_;
    std::shared_ptr<VelmoraMobile::IdentityPublicApi> api_;
    std::shared_ptr<CliObserver> observer_;
};

/// Checks that `data_dir` (resolved as the core resolves it) exists or can be made and can be
/// written; CliError exit 1 naming the folder when not. Gives the resolved folder.
std::string CheckDataDir(const std::string& data_dir);

}  // namespace VelmoraCli
