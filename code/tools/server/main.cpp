// velmora-identity-server: the test identity server as a process, for scripts and manual runs.
// Prints "port N" as its first line (and "ca_file PATH" in TLS mode), then serves until SIGINT/SIGTERM.

#include <pthread.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include "tools/server/TestIdentityServer.h"

namespace {

constexpr const char* kUsage =
    "usage: velmora-identity-server [--tls] [--port N] [--ttl SECONDS] [--blob TEXT] [--hint NUMBER]\n"
    "  --tls          serve HTTPS with a self-signed certificate (its path is printed as ca_file)\n"
    "  --port N       listen on 127.0.0.1:N (default: a free port)\n"
    "  --ttl SECONDS  id_sync_ttl of every answer\n"
    "  --blob TEXT    d_blob of every answer\n"
    "  --hint NUMBER  dcs_region of every answer\n";

int Usage(const std::string& problem) {
    std::cerr << "velmora-identity-server: " << problem << "\n" << kUsage;
    return 2;
}

bool ParseInteger(const std::string& text, long long& value) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtoll(text.c_str(), &end, 10);
    return errno == 0 && end != nullptr && *end == '\0';
}

}  // namespace

int main(int argc, char** argv) {
    VelmoraTestServer::ServerOptions options;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--help" || option == "-h") {
            std::cout << kUsage;
            return 0;
        }
        if (option == "--tls") {
            options.tls = true;
            continue;
        }
        if (option != "--port" && option != "--ttl" && option != "--blob" && option != "--hint") {
            return Usage("unknown option '" + option + "'");
        }
        if (i + 1 >= argc) return Usage("option " + option + " needs a value");
        const std::string value = argv[++i];
        long long number = 0;
        if (option == "--blob") {
            options.blob = value;
        } else if (!ParseInteger(value, number)) {
            return Usage("option " + option + " needs a number, not '" + value + "'");
        } else if (option == "--port") {
            if (number < 0 || number > 65535) return Usage("port out of range: " + value);
            options.port = static_cast<int>(number);
        } else if (option == "--ttl") {
            options.ttl = number;
        } else {
            options.location_hint = static_cast<int>(number);
        }
    }

    // Blocked before the server's threads exist, so that they inherit the mask and only sigwait sees
    // the signals: the server then stops through its destructor, in order.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    try {
        VelmoraTestServer::TestIdentityServer server(options);
        std::cout << "port " << server.Port() << std::endl;
        if (server.Tls()) std::cout << "ca_file " << server.CaFile() << std::endl;
        int received = 0;
        sigwait(&signals, &received);
        std::cerr << "velmora-identity-server: stopping on signal " << received << "\n";
    } catch (const std::exception& error) {
        std::cerr << "velmora-identity-server: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
