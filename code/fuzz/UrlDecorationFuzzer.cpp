// The base URL a host asks to decorate with the visitor's data, through the public API.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>

#include "FuzzHub.h"
#include "FuzzSupport.h"
#include "identity/api/IdentityPublicApi.h"

using namespace VelmoraMobile;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = (VelmoraFuzz::QuietLogs(), true);
    (void)quiet;
    static VelmoraFuzz::FuzzHub host(true);
    static const auto api = IdentityPublicApi::Create(host.hub, host.services);
    const std::string base_url = VelmoraFuzz::Text(data, size);
    auto answer = std::make_shared<std::promise<std::string>>();
    std::future<std::string> decorated = answer->get_future();
    api->AppendToUrl(base_url, [answer](std::string url) { answer->set_value(std::move(url)); });
    if (decorated.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
        std::fprintf(stderr, "no answer to AppendToUrl\n");
        std::abort();
    }
    // The base URL is never cut: decoration only inserts.
    if (decorated.get().size() < base_url.size()) {
        std::abort();
    }
    return 0;
}
