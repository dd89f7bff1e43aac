#include "fuzz/FuzzTargets.h"

#include <QByteArray>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "cleanup/ExcelCleanup.h"
#include "cleanup/WordCleanup.h"
#include "cleanup/clsCSS.h"
#include "cleanup/clsQuickFormat.h"
#include "clipboard/basClipBoard.h"
#include "clipboard/clsFlashHeader.h"
#include "core/OptionString.h"
#include "dialogs/clsCommonDialog.h"
#include "office/OfficeProtocol.h"
#include "office/WordWebPage.h"
#include "platform/ClipboardMime.h"
#include "platform/DropFiles.h"
#include "support/basPublic.h"
#include "upload/LocalReferences.h"

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
  const QString head =
      QStringLiteral("Version:0.9\r\nStartHTML:0000000071\r\nSourceURL:http://127.0.0.1:9/a/b.html\r\n");
  clsQuickFormat(context).QuickFormatFrom(head + html, style, body);
  clsQuickFormat::ResolveUrl(QStringLiteral("http://127.0.0.1:9/a"), html.left(64));
}

// "HTML Format" blocks whose header offsets may lie.
void htmlFormat(const uint8_t* data, size_t size) {
  const QByteArray block = bytesOf(data, size);
  clipboardmime::htmlOfHtmlFormatBlock(block);
  const QString text = QString::fromUtf8(block);
  for (const char* name : {"StartFragment", "SourceURL", "Version"})
    GetHTMLFormatHeader(text, QString::fromLatin1(name));
}

// File lists: a uri-list as an X file manager offers it, and the file-drop block.
void fileLists(const uint8_t* data, size_t size) {
  const QByteArray bytes = bytesOf(data, size);
  clipboardmime::localFilesOfUriList(bytes);
  dropfiles::names(bytes);
  dropfiles::queryFile(bytes, 0, 260);
}

// What a file dialog hands back: the multi-file buffer and the filter text.
void dialogBuffers(const uint8_t* data, size_t size) {
  const QString text = QString::fromUtf8(bytesOf(data, size));
  QString folder;
  QStringList names;
  int32_t count = 0;
  clsCommonDialog::ParseMultiFileName(text, folder, names, count);
  clsCommonDialog::QtNameFilters(text);
}

// The Word clean-up; the first byte picks the variant, the source and the mode.
void wordCleanup(const uint8_t* data, size_t size) {
  if (size == 0) return;
  const uint8_t pick = data[0];
  Context context;
  WordCleanup cleanup(context, pick & 1 ? WordCleanup::Variant::WPS : WordCleanup::Variant::Word);
  const QString options =
      pick & 4 ? QStringLiteral("optimizemode:1;opt1vml:1;opt1absolute:1;opt1eq:1;opt1margin:1;opt1space:1;"
                                "opt1grid:1;opt1css:1;pagewidth:1")
               : QStringLiteral("optimizemode:2;opt2image:1;opt2table:1;opt2eq:1;opt2indent:1;opt2ptobr:1");
  QString style, body;
  cleanup.OptimizeHTML(pick & 2 ? QStringLiteral("paste") : QStringLiteral("import"),
                       QString::fromUtf8(bytesOf(data + 1, size - 1)), options, style, body);
}

// The Excel clean-up; the first byte picks the source and the mode, and for the WPS
// variant a shared style sheet.
void excelCleanup(const uint8_t* data, size_t size) {
  if (size == 0) return;
  const uint8_t pick = data[0];
  Context context;
  const QString options =
      pick & 4 ? QStringLiteral("optimizemode:1;opt1vml:1;opt1space:1;opt1table:1;opt1overflow:1;opt1css:1")
               : QStringLiteral("optimizemode:2;opt2image:1;opt2space:1;opt2table:1");
  const QString extraCss =
      pick & 1 ? QStringLiteral("td {mso-number-format:General;border:none} .xl65 {color:red}") : QString();
  QString style, body;
  ExcelCleanup(context).OptimizeHTML(pick & 2 ? QStringLiteral("paste") : QStringLiteral("import"),
                                     QString::fromUtf8(bytesOf(data + 1, size - 1)), extraCss, options, style, body);
}

// Both CSS merges; the text up to the first NUL is the style sheet, the rest the HTML.
void cssMerge(const uint8_t* data, size_t size) {
  const QByteArray bytes = bytesOf(data, size);
  const qsizetype split = bytes.indexOf('\0');
  const QString css = QString::fromUtf8(split < 0 ? bytes : bytes.left(split));
  const QString html = split < 0 ? QStringLiteral("<p class=a>x</p>") : QString::fromUtf8(bytes.mid(split + 1));
  clsCSS().MergeCssQuick(html, css);
  clsCSS().MergeCss(html, css);
}

// The office helper's frames, as a caller or a broken worker might send them, split at an
// arbitrary point.
void officeFrames(const uint8_t* data, size_t size) {
  const QByteArray bytes = bytesOf(data, size);
  FrameReader reader;
  reader.append(bytes.left(bytes.size() / 2));
  while (const std::optional<QJsonObject> frame = reader.next()) OfficeJob::fromJson(*frame);
  reader.append(bytes.mid(bytes.size() / 2));
  while (const std::optional<QJsonObject> frame = reader.next()) {
    OfficeJob::fromJson(*frame);
    OfficeAnswer::fromJson(*frame);
  }
}

// The page LibreOffice saved, reshaped in a folder of its own beside one real picture.
void wordWebPage(const uint8_t* data, size_t size) {
  static QTemporaryDir folder;
  const QString page = folder.path() + QStringLiteral("/Velmora_Temp_Word_Doc.html");
  QFile::remove(page);
  QFile file(page);
  if (file.open(QIODevice::WriteOnly)) file.write(bytesOf(data, size));
  file.close();
  QFile picture(folder.path() + QStringLiteral("/Velmora_Temp_Word_Doc_html_1.png"));
  if (picture.open(QIODevice::WriteOnly)) picture.write("png");
  picture.close();
  (void)shapeAsWordPage(page);
}

// One clean-up pipeline or upload scan over `text`, chosen by `pick`.
void runRuleList(uint8_t pick, const QString& text) {
  Context context;
  QString style, body;
  switch (pick % 6) {
    case 0:
    case 1:
      WordCleanup(context, pick & 8 ? WordCleanup::Variant::WPS : WordCleanup::Variant::Word)
          .OptimizeHTML(pick & 16 ? QStringLiteral("paste") : QStringLiteral("import"), text,
                        pick % 6 ? QStringLiteral("optimizemode:1;opt1vml:1;opt1absolute:1;opt1eq:1;opt1margin:1;"
                                                  "opt1space:1;opt1grid:1;opt1css:1;pagewidth:1")
                                 : QStringLiteral("optimizemode:2;opt2image:1;opt2table:1;opt2eq:1;opt2indent:1;"
                                                  "opt2ptobr:1"),
                        style, body);
      break;
    case 2:
    case 3:
      ExcelCleanup(context).OptimizeHTML(
          pick & 16 ? QStringLiteral("paste") : QStringLiteral("import"), text,
          pick % 6 == 3 ? QStringLiteral("optimizemode:1;opt1vml:1;opt1space:1;opt1table:1;opt1overflow:1;opt1css:1")
                        : QStringLiteral("optimizemode:2;opt2image:1;opt2space:1;opt2table:1"),
          style, body);
      break;
    default:
      for (const char* mode : {"local", "word", "excel", "wordimage", "pastefilelist"})
        findLocalReferences(QString::fromLatin1(mode), text);
  }
}

// Long runs of one character after a short opening, through every rule list: a rule whose
// time grows with the square of the text shows as a run four times as long taking far
// more than four times as long, and stops the fuzzer with the input that shows it. (A rule
// that gives up at the match limit ends quickly and passes.) The local upload's anchor rule
// is not among them: by its wording it scans to the end of the text for every character it
// steps over, and only the time limit bounds it.
// Bytes: the rule list, the character (Latin-1), the opening.
void slowRuns(const uint8_t* data, size_t size) {
  if (size < 2) return;
  const QString opening = QString::fromLatin1(bytesOf(data + 2, std::min<size_t>(size - 2, 64)));
  const auto millisecondsFor = [&](qsizetype runLength) {
    QElapsedTimer timer;
    timer.start();
    runRuleList(data[0], opening + QString(runLength, QChar(data[1])));
    return timer.elapsed();
  };
  constexpr qsizetype kRun = 20'000;
  const auto slow = [](qint64 shortMs, qint64 longMs) {
    return longMs > 50 && longMs > 10 * std::max<qint64>(shortMs, 1);
  };
  qint64 shortMs = millisecondsFor(kRun), longMs = millisecondsFor(4 * kRun);
  // A busy machine only ever adds time: before calling a rule slow, the fastest of a few
  // more runs of each length decides.
  for (int again = 0; again < 3 && slow(shortMs, longMs); ++again) {
    shortMs = std::min(shortMs, millisecondsFor(kRun));
    longMs = std::min(longMs, millisecondsFor(4 * kRun));
  }
  if (slow(shortMs, longMs)) {
    std::fprintf(stderr, "slow_runs: %lld ms for %lld characters, %lld ms for a quarter of them\n",
                 static_cast<long long>(longMs), static_cast<long long>(4 * kRun), static_cast<long long>(shortMs));
    std::abort();
  }
}

}  // namespace

const std::vector<Target>& targets() {
  static const std::vector<Target> all{
      {"flash_header", flashHeader},     {"text_file", textFile},         {"option_string", optionString},
      {"quick_format", quickFormat},     {"html_format", htmlFormat},     {"file_lists", fileLists},
      {"dialog_buffers", dialogBuffers}, {"word_cleanup", wordCleanup},   {"excel_cleanup", excelCleanup},
      {"css_merge", cssMerge},           {"office_frames", officeFrames}, {"word_web_page", wordWebPage},
      {"slow_runs", slowRuns},
  };
  return all;
}

}  // namespace velmora::fuzz
