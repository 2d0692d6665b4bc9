// velmora-runtime-demo: starts an event hub with the configuration extension, loads a
// configuration file and prints what the configuration's shared state holds.
//
//   velmora-runtime-demo [config.json] [--data-dir DIR]
//
// Without a file it takes example-config.json beside the executable, else the one shipped with
// these sources. Without --data-dir it works in a fresh temporary folder that it removes again.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "runtime/bus/EventBuilder.h"
#include "runtime/bus/EventHub.h"
#include "runtime/bus/SharedStatePending.h"
#include "runtime/configuration/ConfigurationExtension.h"
#include "runtime/services/PlatformServices.h"
#include "runtime/values/StringUtils.h"

using namespace VelmoraMobile;
namespace fs = std::filesystem;

namespace {

const char* const EXAMPLE_NAME = "example-config.json";

std::string FindExampleConfiguration(const char* argv0) {
    std::error_code ignored;
    std::vector<fs::path> candidates;
    if (argv0 != nullptr) {
        fs::path executable = fs::weakly_canonical(fs::path(argv0), ignored);
        candidates.push_back(executable.parent_path() / EXAMPLE_NAME);
    }
    candidates.push_back(fs::path(__FILE__).parent_path() / EXAMPLE_NAME);
    for (const auto& candidate : candidates) {
        if (fs::is_regular_file(candidate, ignored)) {
            return candidate.string();
        }
    }
    return candidates.back().string();
}

std::string MakeTemporaryFolder() {
    std::string pattern = (fs::temp_directory_path() / "velmora-demo-XXXXXX").string();
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    return mkdtemp(buffer.data()) != nullptr ? std::string(buffer.data()) : std::string();
}

int Usage(const char* argv0) {
    std::cerr << "usage: " << argv0 << " [config.json] [--data-dir DIR]\n";
    return 2;
}

// Runs the hub once; gives the exit code.
int Run(const std::string& config_path, const std::string& data_dir) {
    auto hub = std::make_shared<EventHub>(std::make_shared<PlatformServices>(data_dir));
    std::shared_ptr<ConfigurationExtension> configuration = hub->RegisterModule<ConfigurationExtension>();
    if (!configuration) {
        std::cerr << "The configuration extension could not be registered\n";
        return 1;
    }
    hub->FinishModulesRegistration();
    configuration->ConfigureWithFile(config_path);

    // The extension works through its requests in order, so the answer to this request comes
    // after the file has been applied (or refused).
    auto request =
        EventBuilder("Demo configuration request", EventType::CONFIGURATION, EventSource::REQUEST_CONTENT).Build();
    auto answer = std::make_shared<std::promise<std::shared_ptr<Event>>>();
    std::future<std::shared_ptr<Event>> answered = answer->get_future();
    hub->RegisterOneTimeListener<ConfigurationExtension>(
        EventType::CONFIGURATION, EventSource::RESPONSE_CONTENT, request->GetResponsePairID(),
        [answer](const std::shared_ptr<Event>& event) { answer->set_value(event); });
    hub->Dispatch(request);
    if (answered.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
        std::cerr << "No answer from the configuration extension\n";
        hub->Shutdown();
        return 1;
    }
    std::shared_ptr<Event> response = answered.get();

    int exit_code = 0;
    std::shared_ptr<EventData> state = hub->GetSharedEventState(ConfigurationExtension::SHARED_STATE_NAME, response);
    if (!state || state == SHARED_STATE_PENDING) {
        std::cout << "The configuration has no shared state yet: the file was not applied (see the log)\n";
        exit_code = 1;
    } else {
        std::cout << "Shared state \"" << ConfigurationExtension::SHARED_STATE_NAME << "\" as seen by event #"
                  << response->GetEventNumber() << " (" << state->GetEntries().size() << " keys):\n";
        for (const auto& entry : state->GetEntries()) {
            std::cout << "  " << entry.first << " = " << StringUtils::ToString(entry.second) << "\n";
        }
    }
    hub->Shutdown();
    return exit_code;
}

}  // namespace

int main(int argc, char** argv) {
    std::string config_path;
    std::string data_dir;
    for (int i = 1; i < argc; ++i) {
        std::string argument = argv[i];
        if (argument == "--data-dir" && i + 1 < argc) {
            data_dir = argv[++i];
        } else if (argument == "--help" || argument == "-h" || !config_path.empty() || argument.rfind("--", 0) == 0) {
            return Usage(argv[0]);
        } else {
            config_path = argument;
        }
    }
    if (config_path.empty()) {
        config_path = FindExampleConfiguration(argv[0]);
    }
    bool temporary = data_dir.empty();
    if (temporary) {
        data_dir = MakeTemporaryFolder();
        if (data_dir.empty()) {
            std::cerr << "No temporary folder could be made\n";
            return 1;
        }
    }
    std::cout << "Configuration file: " << config_path << "\n"
              << "Data folder: " << data_dir << (temporary ? " (temporary)" : "") << "\n";

    int exit_code = Run(config_path, data_dir);
    if (temporary) {
        std::error_code ignored;
        fs::remove_all(data_dir, ignored);
    }
    return exit_code;
}
