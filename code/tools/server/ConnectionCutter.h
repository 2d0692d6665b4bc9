#pragma once

namespace VelmoraTestServer {

/// Cuts a server-side TCP connection without closing its descriptor: the owner (the HTTP library)
/// still closes it, and the peer sees the connection end with no answer, followed by a reset.
/// Only for a connection that the calling thread is serving, so that its descriptor cannot be
/// closed and reused meanwhile.
namespace ConnectionCutter {

/// Cuts the connection on `fd`.
void CutDescriptor(int fd);

/// Cuts the connection accepted on `local_port` whose peer port is `peer_port`; false if none.
/// For plain sockets, which the HTTP library does not expose: the descriptor is found by address.
bool Cut(int local_port, int peer_port);

}  // namespace ConnectionCutter
}  // namespace VelmoraTestServer
