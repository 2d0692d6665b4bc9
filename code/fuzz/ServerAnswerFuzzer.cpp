// The server's answer: bytes from a fake network service through the identity hit processor, and
// the resulting record applied on the identity module's queue.
#include <memory>

#include "FuzzHub.h"
#include "FuzzSupport.h"
#include "identity/hits/IdentityHitProcessor.h"
#include "runtime/services/json/NlohmannJsonUtilityService.h"

using namespace VelmoraMobile;

namespace {

class FixedConnection : public Object, public virtual HttpConnectionInterface {
public:
    FixedConnection(std::string body, int32_t code) : body_(std::move(body)), code_(code) {}
    std::string GetResponse() override { return body_; }
    int32_t GetResponseCode() override { return code_; }
    std::string GetResponseMessage() override { return "fuzz"; }
    std::string GetResponsePropertyValue(const std::string&) override { return std::string(); }
    void Close() override {}

private:
    std::string body_;
    int32_t code_;
};

// Answers every request with the current input. Used by one thread at a time: the fuzzer's.
class FixedNetworkService : public Object, public virtual NetworkServiceInterface {
public:
    std::shared_ptr<HttpConnectionInterface> ConnectUrl(const std::string&, const HttpCommand&, const std::string&,
                                                        const std::map<std::string, std::string>&, std::chrono::seconds,
                                                        std::chrono::seconds) override {
        return std::make_shared<FixedConnection>(body, code);
    }
    void ConnectUrlAsync(
        const std::string& url, const HttpCommand& command, const std::string& payload,
        const std::map<std::string, std::string>& headers, std::chrono::seconds connect_timeout,
        std::chrono::seconds read_timeout,
        const std::function<void(const std::shared_ptr<HttpConnectionInterface>&)>& callback) override {
        callback(ConnectUrl(url, command, payload, headers, connect_timeout, read_timeout));
    }

    std::string body;
    int32_t code{200};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = (VelmoraFuzz::QuietLogs(), true);
    (void)quiet;
    static VelmoraFuzz::FuzzHub host(true);
    static const auto network = std::make_shared<FixedNetworkService>();
    static const auto processor = std::make_shared<IdentityHitProcessor>(
        network, host.services->GetSystemInfoService(), std::make_shared<NlohmannJsonUtilityService>(), host.identity);
    network->body = VelmoraFuzz::Text(data, size);
    auto hit = std::make_shared<IdentityDatabaseHit>();
    hit->url = "http://127.0.0.1:9/id?d_ver=2";
    hit->pair_id = "fuzz";
    hit->event_number = 1;
    processor->Process(hit);
    VelmoraFuzz::Drain(*host.identity);
    return 0;
}
