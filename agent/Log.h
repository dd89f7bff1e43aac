#pragma once
#include <QString>

class QAbstractSocket;
class QWebSocket;

namespace velmora::agent {

// One line on standard error, "velmora-agent: <text>"; safe from any thread.
void log(const QString& text);
// "address:port" of the other end.
QString peerOf(const QAbstractSocket& socket);
QString peerOf(const QWebSocket& socket);

}  // namespace velmora::agent
