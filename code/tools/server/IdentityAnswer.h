#pragma once

#include <cstddef>
#include <string>

#include "tools/server/TestIdentityServer.h"

namespace VelmoraTestServer {

/// The bodies the server sends. Pure functions: callable from any thread.
namespace IdentityAnswer {

/// The JSON answer to a sync with `mid` as "d_mid", shaped by the `/id` fields of `fault`.
std::string SyncJson(const ServerOptions& options, const Fault& fault, const std::string& mid);

/// `size` bytes of printable text that no JSON parser takes (a short text when `size` is 0).
std::string Garbage(size_t size);

}  // namespace IdentityAnswer
}  // namespace VelmoraTestServer
