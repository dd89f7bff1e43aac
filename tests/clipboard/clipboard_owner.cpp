// Owns the desktop clipboard for the clipboard tests, offering several targets at once as
// browsers and office programs do: each argument "type=file" offers the file's bytes under
// that MIME type. Prints "ready" once it owns the clipboard, then serves requests until it is
// ended.
#include <QClipboard>
#include <QFile>
#include <QGuiApplication>
#include <QMimeData>
#include <cstdio>

int main(int argc, char** argv) {
  QGuiApplication app(argc, argv);
  auto* offered = new QMimeData;
  for (const QString& argument : app.arguments().mid(1)) {
    const qsizetype equals = argument.indexOf(u'=');
    QFile file(argument.mid(equals + 1));
    if (equals < 1 || !file.open(QIODevice::ReadOnly)) {
      std::fprintf(stderr, "clipboard_owner: cannot offer %s\n", qPrintable(argument));
      return 2;
    }
    offered->setData(argument.left(equals), file.readAll());
  }
  QGuiApplication::clipboard()->setMimeData(offered);
  std::printf("ready\n");
  std::fflush(stdout);
  return app.exec();
}
