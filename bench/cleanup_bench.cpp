// Runs the Word and Excel clean-up pipelines over generated pages of a given size, prints
// the time each run took, and writes every rule application (the rule, its input where
// it is not the previous output, and a hash of its output) as JSON lines, so that
// bench/cleanup_rules.mjs can replay the same rule list with Node's regular expressions.
//   cleanup_bench DATA_DIR SIZE_BYTES OUT_DIR
#include <QCoreApplication>
#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <cstdio>
#include <functional>
#include <limits>

#include "cleanup/ExcelCleanup.h"
#include "cleanup/WordCleanup.h"
#include "platform/LargeBlocks.h"

using namespace velmora;

namespace {

// Timed runs per case (the machine is shared; the fastest run is the least disturbed).
constexpr int kRounds = 3;

QString readText(const QString& path) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) qFatal("cannot read %s", qPrintable(path));
  return QString::fromUtf8(file.readAll());
}

// The fixture's head, then its body repeated until the page has about `size` characters.
QString pageOfSize(const QString& fixture, qsizetype size) {
  const qsizetype bodyStart = fixture.indexOf(u'>', fixture.indexOf(u"<body", 0, Qt::CaseInsensitive)) + 1;
  const qsizetype bodyEnd = fixture.lastIndexOf(u"</body>", -1, Qt::CaseInsensitive);
  const QString head = fixture.left(bodyStart), body = fixture.mid(bodyStart, bodyEnd - bodyStart);
  QString page = head;
  for (int copy = 0; page.size() < size; ++copy) page += body + QStringLiteral("\r\n<p>copy %1</p>\r\n").arg(copy);
  return page + QStringLiteral("</body></html>");
}

QByteArray sha1(const QString& text) {
  return QCryptographicHash::hash(QByteArrayView(reinterpret_cast<const char*>(text.utf16()), text.size() * 2),
                                  QCryptographicHash::Sha1)
      .toHex();
}

// Runs one pipeline with every rule application written to `log`; returns milliseconds.
double runLogged(const std::function<void(RuleTrace*)>& pipeline, const QString& logPath) {
  QFile log(logPath);
  if (!log.open(QIODevice::WriteOnly | QIODevice::Truncate)) qFatal("cannot write %s", qPrintable(logPath));
  RuleTrace trace;
  QString previous;
  trace.observer = [&](const Rule& rule, const QString& before, const QString& after) {
    QJsonObject line{{"name", QString::fromUtf16(rule.name)},
                     {"pattern", QString::fromUtf16(rule.pattern)},
                     {"replacement", QString::fromUtf16(rule.replacement)},
                     {"untilStable", rule.untilStable},
                     {"output", QString::fromLatin1(sha1(after))}};
    if (before.constData() != previous.constData() && before != previous) line["input"] = before;
    log.write(QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n');
    previous = after;
  };
  pipeline(&trace);  // logged run: what the replay needs
  // Timed runs, the pipeline as the control runs it; the fastest counts, as in the replay.
  double fastest = std::numeric_limits<double>::max();
  for (int round = 0; round < kRounds; ++round) {
    QElapsedTimer timer;
    timer.start();
    pipeline(nullptr);
    fastest = std::min(fastest, double(timer.nsecsElapsed()) / 1e6);
  }
  return fastest;
}

}  // namespace

int main(int argc, char** argv) {
  KeepLargeBlocksForReuse();  // as the hosts run
  QCoreApplication app(argc, argv);
  if (argc != 4) {
    std::fprintf(stderr, "usage: cleanup_bench DATA_DIR SIZE_BYTES OUT_DIR\n");
    return 2;
  }
  const QString data = QString::fromLocal8Bit(argv[1]), out = QString::fromLocal8Bit(argv[3]);
  const qsizetype size = QByteArray(argv[2]).toLongLong();
  const QString word = pageOfSize(readText(data + "/word/clipboard_format.txt"), size);
  const QString excel = pageOfSize(readText(data + "/excel/clipboard_format.txt"), size);
  Context context;
  struct Case {
    const char* name;
    const QString& page;
    QString options;
  };
  const Case cases[] = {
      {"word-mode1", word,
       "optimizemode:1;opt1vml:1;opt1absolute:1;opt1eq:1;opt1margin:1;opt1space:1;opt1grid:1;opt1css:1"},
      {"word-mode2", word, "optimizemode:2;opt2image:1;opt2table:1;opt2eq:1;opt2indent:1;opt2ptobr:1"},
      {"excel-mode1", excel, "optimizemode:1;opt1vml:1;opt1space:1;opt1table:1;opt1overflow:1;opt1css:1"},
      {"excel-mode2", excel, "optimizemode:2;opt2image:1;opt2space:1;opt2table:1"},
  };
  for (const Case& c : cases) {
    QString style, body;
    const bool isWord = QByteArray(c.name).startsWith("word");
    const double ms = runLogged(
        [&](RuleTrace* trace) {
          if (isWord)
            WordCleanup(context).OptimizeHTML("paste", c.page, c.options, style, body, trace);
          else
            ExcelCleanup(context).OptimizeHTML("paste", c.page, c.options, style, body, trace);
        },
        out + "/" + c.name + ".jsonl");
    std::printf("%s %lld %.1f\n", c.name, static_cast<long long>(c.page.size()), ms);
  }
  return 0;
}
