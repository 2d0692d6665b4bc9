#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace VelmoraTestServer {

/// How the server starts and what `/id` answers by default.
struct ServerOptions {
    /// HTTPS with a self-signed certificate for 127.0.0.1 / localhost made at start; see `CaFile()`.
    bool tls = false;
    /// 0 picks a free port.
    int port = 0;
    /// "d_blob" of every answer.
    std::string blob = "test-blob";
    /// "dcs_region" of every answer: a number on the wire.
    int location_hint = 9;
    /// "id_sync_ttl" of every answer, in seconds.
    int64_t ttl = 1800;
};

/// What the server does to one request instead of its normal answer. A default-constructed `Fault`
/// is the normal answer. Fields combine: e.g. a delay, then a status 500 with an "error_msg".
struct Fault {
    /// Only a request to this path takes the fault (e.g. "/id", "/veloptout.jpg"); empty: any path.
    std::string path;
    /// HTTP status of the answer; the body stays what it would be.
    int status = 200;
    /// Wait before answering; cut short by `Stop()`, which then drops the connection.
    int delay_ms = 0;
    /// Never answer: the request waits until `Stop()`, which drops the connection.
    bool hang = false;
    /// Close the connection without answering (the client sees an empty reply / reset).
    bool drop_connection = false;
    /// The body is not JSON: `garbage_bytes` bytes of printable garbage, or a short text when 0.
    bool not_json = false;
    size_t garbage_bytes = 0;
    /// The exact body to send, instead of the JSON (wins over `not_json`).
    std::optional<std::string> body;
    /// `/id` only: adds "error_msg" to the JSON when not empty.
    std::string error_msg;
    /// `/id` only: adds "d_optout" with these entries when not empty.
    std::vector<std::string> optout;
    /// `/id` only: "d_mid" is a number instead of a string.
    bool non_string_mid = false;
    /// `/id` only: "d_mid" to answer instead of the device's or a new one.
    std::optional<std::string> mid;
    /// `/id` only: "id_sync_ttl" to answer instead of the configured one (may be negative).
    std::optional<int64_t> ttl;
};

/// Case-insensitive ordering, so that `headers.at("User-Agent")` and `headers.at("user-agent")` agree.
struct CaseInsensitiveLess {
    bool operator()(const std::string& a, const std::string& b) const;
};

/// One request as the server received it, recorded on arrival (before any delay or fault).
struct RecordedRequest {
    std::string method;
    std::string path;
    /// The raw query after '?', exactly as on the wire (percent escapes kept).
    std::string query;
    /// Decoded query parameters; for a repeated key, the first value.
    std::map<std::string, std::string> params;
    /// Every decoded query parameter, repeated keys included (e.g. several "d_cid_ic").
    std::multimap<std::string, std::string> all_params;
    std::map<std::string, std::string, CaseInsensitiveLess> headers;
};

/// A local identity server for tests and the demo, on 127.0.0.1.
///
/// GET /id answers the sync JSON: "d_mid" (the request's "d_mid" if present, else 38 new decimal
/// digits), "d_blob", "dcs_region", "id_sync_ttl". GET /veloptout.jpg answers 200 with an empty body.
/// Other paths answer 404 and take no fault.
///
/// Faults pushed with `PushFault` are taken in FIFO order, one per request (the first one whose `path`
/// matches), at the moment the request is recorded: so the n-th recorded request takes its fault
/// before the (n+1)-th. When none matches, the default fault (`SetDefaultFault`, normally the plain
/// answer) applies.
///
/// Each connection carries one request: every answer closes it.
///
/// Every member function may be called from any thread. The server answers on its own threads.
class TestIdentityServer {
public:
    /// Starts listening before it returns; throws std::runtime_error when it cannot.
    explicit TestIdentityServer(ServerOptions options = {});
    /// Stops the server (see `Stop`).
    ~TestIdentityServer();
    TestIdentityServer(const TestIdentityServer&) = delete;
    TestIdentityServer& operator=(const TestIdentityServer&) = delete;

    int Port() const;
    /// "127.0.0.1:PORT", the form a configured server name takes.
    std::string Host() const;
    /// "http://127.0.0.1:PORT" or "https://127.0.0.1:PORT".
    std::string BaseUrl() const;
    bool Tls() const;
    /// Path of the PEM certificate that clients must trust in TLS mode (e.g. through VELMORA_CA_FILE);
    /// empty in plain mode. The file lives until the server is destroyed.
    std::string CaFile() const;

    /// Scripts the fault for the next matching request.
    void PushFault(Fault fault);
    /// The behaviour when no scripted fault is left for a request.
    void SetDefaultFault(Fault fault);
    /// Number of scripted faults not taken yet.
    size_t PendingFaults() const;

    /// A copy of every request received so far, in arrival order.
    std::vector<RecordedRequest> Requests() const;
    /// Waits until at least `count` requests have been received; false on timeout.
    bool WaitForRequests(size_t count, std::chrono::milliseconds timeout) const;
    void ClearRequests();

    /// Stops listening, cuts short every delayed or hanging request (dropping its connection) and
    /// joins the server threads. Idempotent; no call after it answers requests any more.
    void Stop();

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace VelmoraTestServer
