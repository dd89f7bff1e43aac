#pragma once
#include <httplib.h>

namespace velmora::receiver {

// What cpp-httplib does not give a handler: its own connection. The socket is found by
// the request's address pair among the process's open descriptors.
int connectionOf(const httplib::Request& request);
// Shuts down every client connection on `localPort`: the library waits for idle
// keep-alive connections before it stops, and these end at once.
void shutdownConnections(int localPort);
// Whether the client is still connected (it has not closed or reset the connection).
bool clientConnected(int socket);
// Resets the connection at once (an RST, no answer). An unconnected socket takes the
// descriptor's place, so the library's later writes fail harmlessly and its close is
// still its own.
void resetConnection(int socket);

}  // namespace velmora::receiver
