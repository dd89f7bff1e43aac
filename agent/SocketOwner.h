#pragma once
#include <sys/types.h>

#include <QByteArray>
#include <QHostAddress>
#include <optional>

class QAbstractSocket;

namespace velmora::agent {

// Which user's program is on the other end of a loopback TCP connection. Anyone on the
// machine can connect to 127.0.0.1 and write any Origin header; the kernel's socket tables
// name the user that made the client's socket, which no header can fake.

// The user owning the client's socket of the connection clientAddress:clientPort ->
// serverAddress:serverPort, found in the text of /proc/net/tcp and /proc/net/tcp6 (an IPv4
// client may sit in tcp6 under its IPv4-mapped address). Nothing when neither table holds it.
std::optional<uid_t> socketOwner(const QByteArray& procNetTcp, const QByteArray& procNetTcp6,
                                 const QHostAddress& clientAddress, quint16 clientPort,
                                 const QHostAddress& serverAddress, quint16 serverPort);

// The user owning the other end of `accepted`, a connection this process accepted, read
// from the running kernel's tables.
std::optional<uid_t> peerOwner(const QAbstractSocket& accepted);

}  // namespace velmora::agent
