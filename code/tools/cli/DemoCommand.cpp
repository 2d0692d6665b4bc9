// The walkthrough of one installation's identity life against an embedded identity server on
// 127.0.0.1: boot (the forced sync goes out), a customer id synced, the record, a decorated URL,
// a restart on the same data folder, and the opt-out. Everything shown is read back from the
// running system: the server's request record and the module's answers.

#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <memory>
#include <sstream>

#include "tools/cli/CliError.h"
#include "tools/cli/CliSession.h"
#include "tools/cli/Commands.h"
#include "tools/cli/IdentityRecord.h"
#include "tools/cli/Privacy.h"
#include "tools/cli/Waiting.h"
#include "tools/server/TestIdentityServer.h"

namespace VelmoraCli {

using namespace VelmoraMobile;
namespace fs = std::filesystem;

namespace {

const char* const DEMO_ORG = "DEMO0123456789@VelmoraOrg";

/// Collects the walkthrough as text and as one JSON document.
class Report {
public:
    explicit Report(bool json) : json_output_(json) {}
    void Step(const std::string& title) {
        steps_.push_back({{"step", title}, {"lines", nlohmann::json::array()}});
        if (!json_output_) std::cout << "\n" << steps_.size() << ". " << title << "\n" << std::flush;
    }
    void Line(const std::string& line) {
        steps_.back()["lines"].push_back(line);
        if (!json_output_) std::cout << "  " << line << "\n" << std::flush;
    }
    void Lines(const std::string& text) {
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) Line(line);
    }
    nlohmann::json Json() const { return {{"steps", steps_}}; }

private:
    bool json_output_;
    nlohmann::json steps_ = nlohmann::json::array();
};

void WaitForServer(const VelmoraTestServer::TestIdentityServer& server, const std::string& path, double timeout) {
    WaitOrFail("the identity server to see " + path, timeout, [&](std::chrono::steady_clock::time_point deadline) {
        for (size_t seen = 0;; ++seen) {
            auto requests = server.Requests();
            for (const auto& request : requests) {
                if (request.path == path) return true;
            }
            auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0 || !server.WaitForRequests(requests.size() + 1, left)) return false;
        }
    });
}

std::string LastRequest(const VelmoraTestServer::TestIdentityServer& server) {
    auto requests = server.Requests();
    return requests.empty() ? "(none)" : "GET " + requests.back().path + "?" + requests.back().query;
}

int RunDemo(const GlobalOptions& global, bool tls) {
    VelmoraTestServer::ServerOptions server_options;
    server_options.tls = tls;
    VelmoraTestServer::TestIdentityServer server(server_options);

    GlobalOptions options = global;
    const bool own_dir = options.data_dir.empty();
    if (own_dir) {
        options.data_dir =
            (fs::temp_directory_path() / ("velmora-identity-demo-" + std::to_string(::getpid()))).string();
    }
    options.server = server.Host();
    options.org = DEMO_ORG;
    options.no_tls = !tls;
    options.ca_file = server.CaFile();

    Report report(options.json);
    if (!options.json) {
        std::cout << "identity server on " << server.BaseUrl() << ", data folder " << options.data_dir << "\n";
    }
    {
        CliSession session(options);
        report.Step("boot: the forced sync reaches the server");
        WaitForServer(server, "/id", options.timeout);
        report.Line(LastRequest(server));

        report.Step("sync a customer id (crm = alice-42, authenticated)");
        session.Api()->SyncIdentifier("crm", "alice-42", VisitorIdAuthenticationState::AUTHENTICATED);
        WaitOrFail("the identity server's answer", options.timeout,
                   [&](std::chrono::steady_clock::time_point deadline) {
                       return session.Observer().WaitForSyncAnswers(1, deadline).size() == 1;
                   });
        report.Line(LastRequest(server));

        report.Step("the identity record");
        report.Lines(RecordToText(FetchRecord(session, {"all"}), {"all"}));

        report.Step("a decorated URL");
        report.Line(FetchDecoratedUrl(session, "https://shop.example/checkout?cart=7"));
    }
    {
        const size_t before_boot = server.Requests().size();
        CliSession session(options);
        report.Step("restart on the same data folder: the same MID comes back");
        if (!server.WaitForRequests(before_boot + 1,
                                    std::chrono::milliseconds(static_cast<int64_t>(options.timeout * 1000)))) {
            throw CliError(EXIT_FAILURE_NAMED, "the identity server saw no sync after the restart");
        }
        report.Line("mid: " + FetchRecord(session, {"mid"}).values["mid"]);

        report.Step("opt out: the server is told, the record is wiped");
        PrivacyOutcome outcome = ApplyPrivacyStatus(session, MobilePrivacyStatus::OPT_OUT);
        session.Stop();
        WaitForServer(server, "/veloptout.jpg", options.timeout);
        report.Line(LastRequest(server));
        report.Lines(outcome.ToText());
    }
    if (own_dir) {
        std::error_code ignored;
        fs::remove_all(options.data_dir, ignored);
    }
    if (options.json) Emit(options, report.Json(), "");
    return EXIT_OK;
}

}  // namespace

void AddDemoCommand(CLI::App& app, const GlobalOptions& options, CommandTable& table) {
    auto tls = std::make_shared<bool>(false);
    CLI::App* demo =
        app.add_subcommand("demo", "Walk one installation through its identity life against an embedded server");
    demo->add_flag("--tls", *tls, "Serve HTTPS with a self-signed certificate");
    table[demo] = [&options, tls] { return RunDemo(options, *tls); };
}

}  // namespace VelmoraCli
