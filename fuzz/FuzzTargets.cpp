#include "fuzz/FuzzTargets.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "cleanup/clsQuickFormat.h"
#include "clipboard/clsFlashHeader.h"
#include "control/OptionString.h"
#include "support/basPublic.h"

namespace velmora::fuzz {

namespace {

QByteArray bytesOf(const uint8_t* data, size_t size) {
  return QByteArray(reinterpret_cast<const char*>(data), qsizetype(size));
}

QString writeFile(const QString& name, const QByteArray& bytes) {
  static QTemporaryDir folder;
  const QString path = folder.path() + u'/' + name;
  QFile file(path);
  if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) file.write(bytes);
  return path;
}

void flashHeader(const uint8_t* data, size_t size) {
  Context context;
  clsFlashHeader reader(context);
  reader.Parse(writeFile(QStringLiteral("movie.swf"), bytesOf(data, size)));
}

void textFile(const uint8_t* data, size_t size) {
  int code = encoding::Find;
  ReadTextFileAs(writeFile(QStringLiteral("text.txt"), bytesOf(data, size)), code);
  QByteArray bytes = bytesOf(data, size);
  DetectUTF8(bytes, code);
}

void optionString(const uint8_t* data, size_t size) {
  const QString options = QString::fromUtf8(bytesOf(data, size));
  for (const char* key : {"mode", "api", "imgtype", ""}) GetOptValue(options, QString::fromLatin1(key));
}

// Style sheet links resolve against an address nothing listens on, so no fetch leaves
// the machine and each fails at once.
void quickFormat(const uint8_t* data, size_t size) {
  Context context;
  QString style, body;
  const QString html = QString::fromUtf8(bytesOf(data, size));
  const QString head = QStringLiteral("Version:0.9\r\nStartHTML:0000000071\r\nSourceURL:http://127.0.0.1:9/a/b.html\r\n");
  clsQuickFormat(context).QuickFormatFrom(head + html, style, body);
  clsQuickFormat::ResolveUrl(QStringLiteral("http://127.0.0.1:9/a"), html.left(64));
}

}  // namespace

const std::vector<Target>& targets() {
  static const std::vector<Target> all{
      {"flash_header", flashHeader},
      {"text_file", textFile},
      {"option_string", optionString},
      {"quick_format", quickFormat},
  };
  return all;
}

}  // namespace velmora::fuzz
