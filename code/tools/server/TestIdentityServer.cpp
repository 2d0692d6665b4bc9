#include "tools/server/TestIdentityServer.h"

#include <httplib.h>
#include <strings.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tools/server/ConnectionCutter.h"
#include "tools/server/IdentityAnswer.h"
#include "tools/server/SelfSignedCertificate.h"

namespace VelmoraTestServer {
namespace {

constexpr const char* kSyncPath = "/id";
constexpr const char* kOptOutPath = "/veloptout.jpg";

// The fault of the request in hand: the library runs the pre-routing step and the handler of one
// request on the same thread, one request at a time.
thread_local Fault taken_fault;

}  // namespace

bool CaseInsensitiveLess::operator()(const std::string& a, const std::string& b) const {
    return strcasecmp(a.c_str(), b.c_str()) < 0;
}

class TestIdentityServer::Impl {
public:
    explicit Impl(ServerOptions options);
    ~Impl() { Stop(); }

    int Port() const { return port_; }
    bool Tls() const { return options_.tls; }
    std::string CaFile() const { return certificate_ ? certificate_->CertFile() : std::string(); }

    void PushFault(Fault fault);
    void SetDefaultFault(Fault fault);
    size_t PendingFaults() const;
    std::vector<RecordedRequest> Requests() const;
    bool WaitForRequests(size_t count, std::chrono::milliseconds timeout) const;
    void ClearRequests();
    void Stop();

private:
    void Record(const httplib::Request& request);
    Fault TakeFaultLocked(const std::string& path);
    // Sits out the fault's delay or hang; false when the server stops meanwhile.
    bool SitOut(const Fault& fault);
    // Delays or drops as the fault says; false when the request must get no answer.
    bool Prepare(const Fault& fault, const httplib::Request& request);
    void Drop(const httplib::Request& request);
    std::string NewMid();
    void AnswerSync(const httplib::Request& request, httplib::Response& response);
    void AnswerOptOut(const httplib::Request& request, httplib::Response& response);

    const ServerOptions options_;
    std::unique_ptr<SelfSignedCertificate> certificate_;
    std::unique_ptr<httplib::Server> server_;
    int port_ = 0;
    std::thread thread_;
    std::atomic<bool> listen_returned_{false};
    std::mutex stop_mutex_;

    mutable std::mutex mutex_;
    // Signals new requests and the stop.
    mutable std::condition_variable changed_;
    bool stopping_ = false;
    std::deque<Fault> faults_;
    Fault default_fault_;
    std::vector<RecordedRequest> requests_;
    std::mt19937_64 random_{std::random_device{}()};
};

TestIdentityServer::Impl::Impl(ServerOptions options) : options_(std::move(options)) {
    if (options_.tls) {
        certificate_ = std::make_unique<SelfSignedCertificate>();
        auto tls_server =
            std::make_unique<httplib::SSLServer>(certificate_->CertFile().c_str(), certificate_->KeyFile().c_str());
        if (!tls_server->is_valid()) throw std::runtime_error("test identity server: TLS setup failed");
        server_ = std::move(tls_server);
    } else {
        server_ = std::make_unique<httplib::Server>();
    }

    server_->set_pre_routing_handler([this](const httplib::Request& request, httplib::Response&) {
        Record(request);
        return httplib::Server::HandlerResponse::Unhandled;
    });
    server_->Get(kSyncPath, [this](const httplib::Request& request, httplib::Response& response) {
        AnswerSync(request, response);
    });
    server_->Get(kOptOutPath, [this](const httplib::Request& request, httplib::Response& response) {
        AnswerOptOut(request, response);
    });

    // One request per connection: an idle keep-alive connection would hold a worker, and so the stop,
    // for seconds. The short keep-alive wait bounds the stop when a client connects and sends nothing.
    server_->set_keep_alive_max_count(1);
    server_->set_keep_alive_timeout(1);

    if (options_.port > 0) {
        if (!server_->bind_to_port("127.0.0.1", options_.port)) {
            throw std::runtime_error("test identity server: cannot bind 127.0.0.1:" + std::to_string(options_.port));
        }
        port_ = options_.port;
    } else {
        port_ = server_->bind_to_any_port("127.0.0.1");
        if (port_ <= 0) throw std::runtime_error("test identity server: cannot bind 127.0.0.1");
    }

    // The socket listens from the bind on; the wait is for the accept loop, since a stop issued before
    // that loop runs would be lost and leave the thread listening for ever.
    thread_ = std::thread([this] {
        server_->listen_after_bind();
        listen_returned_ = true;
    });
    while (!server_->is_running() && !listen_returned_) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (listen_returned_) {
        thread_.join();
        throw std::runtime_error("test identity server: listening failed");
    }
}

void TestIdentityServer::Impl::Stop() {
    std::lock_guard<std::mutex> stop_lock(stop_mutex_);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (!thread_.joinable()) return;
    server_->stop();
    thread_.join();
}

void TestIdentityServer::Impl::PushFault(Fault fault) {
    std::lock_guard<std::mutex> lock(mutex_);
    faults_.push_back(std::move(fault));
}

void TestIdentityServer::Impl::SetDefaultFault(Fault fault) {
    std::lock_guard<std::mutex> lock(mutex_);
    default_fault_ = std::move(fault);
}

size_t TestIdentityServer::Impl::PendingFaults() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return faults_.size();
}

std::vector<RecordedRequest> TestIdentityServer::Impl::Requests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

bool TestIdentityServer::Impl::WaitForRequests(size_t count, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return requests_.size() >= count; });
}

void TestIdentityServer::Impl::ClearRequests() {
    std::lock_guard<std::mutex> lock(mutex_);
    requests_.clear();
}

void TestIdentityServer::Impl::Record(const httplib::Request& request) {
    RecordedRequest record;
    record.method = request.method;
    record.path = request.path;
    const auto question = request.target.find('?');
    if (question != std::string::npos) record.query = request.target.substr(question + 1);
    for (const auto& param : request.params) {
        record.params.emplace(param.first, param.second);
        record.all_params.emplace(param.first, param.second);
    }
    for (const auto& header : request.headers) record.headers.emplace(header.first, header.second);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        requests_.push_back(std::move(record));
        // Taken with the record, so that requests take faults in the order in which they are recorded.
        const bool routed = request.method == "GET" || request.method == "HEAD";
        if (routed && (request.path == kSyncPath || request.path == kOptOutPath)) {
            taken_fault = TakeFaultLocked(request.path);
        }
    }
    changed_.notify_all();
}

Fault TestIdentityServer::Impl::TakeFaultLocked(const std::string& path) {
    for (auto it = faults_.begin(); it != faults_.end(); ++it) {
        if (it->path.empty() || it->path == path) {
            Fault fault = std::move(*it);
            faults_.erase(it);
            return fault;
        }
    }
    if (default_fault_.path.empty() || default_fault_.path == path) return default_fault_;
    return Fault{};
}

bool TestIdentityServer::Impl::SitOut(const Fault& fault) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (fault.hang) {
        changed_.wait(lock, [&] { return stopping_; });
    } else if (fault.delay_ms > 0) {
        changed_.wait_for(lock, std::chrono::milliseconds(fault.delay_ms), [&] { return stopping_; });
    }
    return !stopping_;
}

bool TestIdentityServer::Impl::Prepare(const Fault& fault, const httplib::Request& request) {
    if (!SitOut(fault) || fault.drop_connection) {
        Drop(request);
        return false;
    }
    return true;
}

void TestIdentityServer::Impl::Drop(const httplib::Request& request) {
    // What the library writes after this goes nowhere; its server ignores SIGPIPE.
    if (request.ssl != nullptr) {
        ConnectionCutter::CutDescriptor(SSL_get_fd(request.ssl));
    } else {
        ConnectionCutter::Cut(port_, request.remote_port);
    }
}

std::string TestIdentityServer::Impl::NewMid() {
    std::lock_guard<std::mutex> lock(mutex_);
    std::uniform_int_distribution<int> digit('0', '9');
    std::string mid(38, '0');
    for (char& c : mid) c = static_cast<char>(digit(random_));
    return mid;
}

void TestIdentityServer::Impl::AnswerSync(const httplib::Request& request, httplib::Response& response) {
    const Fault fault = std::exchange(taken_fault, Fault{});
    if (!Prepare(fault, request)) return;
    std::string body;
    if (fault.body) {
        body = *fault.body;
    } else if (fault.not_json || fault.garbage_bytes > 0) {
        body = IdentityAnswer::Garbage(fault.garbage_bytes);
    } else {
        std::string mid;
        if (fault.mid) {
            mid = *fault.mid;
        } else {
            mid = request.get_param_value("d_mid");
            if (mid.empty()) mid = NewMid();
        }
        body = IdentityAnswer::SyncJson(options_, fault, mid);
    }
    response.status = fault.status;
    response.set_content(body, "application/json");
}

void TestIdentityServer::Impl::AnswerOptOut(const httplib::Request& request, httplib::Response& response) {
    const Fault fault = std::exchange(taken_fault, Fault{});
    if (!Prepare(fault, request)) return;
    std::string body;
    if (fault.body) {
        body = *fault.body;
    } else if (fault.not_json || fault.garbage_bytes > 0) {
        body = IdentityAnswer::Garbage(fault.garbage_bytes);
    }
    response.status = fault.status;
    response.set_content(body, "image/jpeg");
}

TestIdentityServer::TestIdentityServer(ServerOptions options) : impl_(std::make_unique<Impl>(std::move(options))) {}

TestIdentityServer::~TestIdentityServer() = default;

int TestIdentityServer::Port() const {
    return impl_->Port();
}

std::string TestIdentityServer::Host() const {
    return "127.0.0.1:" + std::to_string(impl_->Port());
}

std::string TestIdentityServer::BaseUrl() const {
    return (impl_->Tls() ? "https://" : "http://") + Host();
}

bool TestIdentityServer::Tls() const {
    return impl_->Tls();
}

std::string TestIdentityServer::CaFile() const {
    return impl_->CaFile();
}

void TestIdentityServer::PushFault(Fault fault) {
    impl_->PushFault(std::move(fault));
}

void TestIdentityServer::SetDefaultFault(Fault fault) {
    impl_->SetDefaultFault(std::move(fault));
}

size_t TestIdentityServer::PendingFaults() const {
    return impl_->PendingFaults();
}

std::vector<RecordedRequest> TestIdentityServer::Requests() const {
    return impl_->Requests();
}

bool TestIdentityServer::WaitForRequests(size_t count, std::chrono::milliseconds timeout) const {
    return impl_->WaitForRequests(count, timeout);
}

void TestIdentityServer::ClearRequests() {
    impl_->ClearRequests();
}

void TestIdentityServer::Stop() {
    impl_->Stop();
}

}  // namespace VelmoraTestServer
