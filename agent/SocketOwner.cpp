#include "agent/SocketOwner.h"

#include <QAbstractSocket>
#include <QFile>
#include <QList>
#include <QtEndian>
#include <cstring>

namespace velmora::agent {

namespace {

// A socket in TIME_WAIT is what is left of a closed connection; it has no owner any more
// (its uid column reads 0), and a new connection may be reusing its addresses.
constexpr char kTimeWait[] = "06";
constexpr qsizetype kUidColumn = 7;

// One address of a table row, "0100007F:1F90": the address in hex, 8 digits for IPv4 and 32
// for IPv6, then the port in hex. The kernel prints each 32-bit word of the address as this
// machine reads it from memory, so the words go back into memory the same way.
std::optional<std::pair<QHostAddress, quint16>> parseEndpoint(const QByteArray& text) {
  const qsizetype colon = text.indexOf(':');
  if (colon != 8 && colon != 32) return std::nullopt;
  bool ok = false;
  const quint16 port = text.mid(colon + 1).toUShort(&ok, 16);
  if (!ok) return std::nullopt;
  quint8 bytes[16] = {};
  for (qsizetype word = 0; word < colon / 8; ++word) {
    const quint32 value = text.mid(word * 8, 8).toUInt(&ok, 16);
    if (!ok) return std::nullopt;
    std::memcpy(bytes + word * 4, &value, 4);
  }
  const QHostAddress address = colon == 8 ? QHostAddress(qFromBigEndian<quint32>(bytes)) : QHostAddress(bytes);
  return std::pair(address, port);
}

bool isEndpoint(const QByteArray& text, const QHostAddress& address, quint16 port) {
  const auto endpoint = parseEndpoint(text);
  return endpoint && endpoint->second == port && endpoint->first.isEqual(address, QHostAddress::ConvertV4MappedToIPv4);
}

std::optional<uid_t> ownerIn(const QByteArray& table, const QHostAddress& clientAddress, quint16 clientPort,
                             const QHostAddress& serverAddress, quint16 serverPort) {
  for (const QByteArray& line : table.split('\n')) {
    // sl local_address rem_address st tx_queue:rx_queue tr:tm->when retrnsmt uid ...
    const QList<QByteArray> fields = line.simplified().split(' ');
    if (fields.size() <= kUidColumn || fields[3] == kTimeWait) continue;
    if (!isEndpoint(fields[1], clientAddress, clientPort) || !isEndpoint(fields[2], serverAddress, serverPort))
      continue;
    bool ok = false;
    const uint uid = fields[kUidColumn].toUInt(&ok);
    if (ok) return uid_t(uid);
  }
  return std::nullopt;
}

QByteArray readTable(const QString& path) {
  QFile file(path);
  return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

}  // namespace

std::optional<uid_t> socketOwner(const QByteArray& procNetTcp, const QByteArray& procNetTcp6,
                                 const QHostAddress& clientAddress, quint16 clientPort,
                                 const QHostAddress& serverAddress, quint16 serverPort) {
  if (auto owner = ownerIn(procNetTcp, clientAddress, clientPort, serverAddress, serverPort)) return owner;
  return ownerIn(procNetTcp6, clientAddress, clientPort, serverAddress, serverPort);
}

std::optional<uid_t> peerOwner(const QAbstractSocket& accepted) {
  // The row wanted is the client's: its local end is our peer, its remote end is us. Our
  // own row of the connection has the same addresses the other way round, and our uid.
  return socketOwner(readTable(QStringLiteral("/proc/net/tcp")), readTable(QStringLiteral("/proc/net/tcp6")),
                     accepted.peerAddress(), accepted.peerPort(), accepted.localAddress(), accepted.localPort());
}

}  // namespace velmora::agent
