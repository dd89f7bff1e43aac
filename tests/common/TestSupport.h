#pragma once
#include <QByteArray>
#include <QString>
#include <QTemporaryDir>
#include <functional>
#include <vector>

namespace velmora::test {

// Points QDir::tempPath() (TMPDIR) at a fresh folder for the life of the object, so a test
// that creates controls never touches the machine's real working folder.
class ScopedTempRoot {
 public:
  ScopedTempRoot();
  ~ScopedTempRoot();
  QString path() const { return dir_.path(); }
  // Writes `bytes` to path()/name (folders created as needed) and returns the full path.
  QString write(const QString& name, const QByteArray& bytes) const;

 private:
  QTemporaryDir dir_;
  QByteArray oldTmpdir_;
  bool hadTmpdir_;
};

// Runs the event loop until `done` is true or `timeoutMs` has passed; returns `done()`.
bool waitUntil(const std::function<bool()>& done, int timeoutMs = 10000);

QString testData(const QString& name);

// `bytes` with their start made the signature of the picture type the name's extension
// says (png, jpg, gif, bmp), the size kept where it allows: what the upload takes for a
// picture of that type.
QByteArray asPicture(const QString& name, QByteArray bytes = "picture bytes");

// Connections to 127.0.0.1:`port` that stay idle for the object's life: every other one
// stops halfway through its request line, the rest never send a byte.
class IdleConnections {
 public:
  IdleConnections(quint16 port, int count);
  ~IdleConnections();
  IdleConnections(const IdleConnections&) = delete;
  IdleConnections& operator=(const IdleConnections&) = delete;
  int opened() const { return int(sockets_.size()); }

 private:
  std::vector<int> sockets_;
};

}  // namespace velmora::test
