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

// Shaped like what Excel puts on the clipboard for a large copied range: a long style
// sheet of cell classes in the head, then thousands of cells carrying a class, inline
// border and width styles, and rich-text runs inside some of them.
QString realExcelCopy(qsizetype size) {
  QString head = QStringLiteral(
      "<html xmlns:v=\"urn:schemas-microsoft-com:vml\" xmlns:o=\"urn:schemas-microsoft-com:office:office\" "
      "xmlns:x=\"urn:schemas-microsoft-com:office:excel\" xmlns=\"http://www.w3.org/TR/REC-html40\">\r\n<head>\r\n"
      "<meta http-equiv=Content-Type content=\"text/html; charset=utf-8\">\r\n<style>\r\n<!--table\r\n"
      "\t{mso-displayed-decimal-separator:\"\\.\";\r\n\tmso-displayed-thousand-separator:\"\\,\";}\r\n"
      ".font5\r\n\t{color:red;\r\n\tfont-size:11.0pt;\r\n\tfont-weight:700;\r\n\tfont-family:\"Calibri\", "
      "sans-serif;}\r\n");
  for (int c = 63; c < 263; ++c)
    head += QStringLiteral(".xl%1\r\n\t{mso-style-parent:style0;\r\n\tcolor:#%2;\r\n\tmso-number-format:\"%3\";\r\n"
                           "\ttext-align:%4;\r\n\tborder:.5pt solid windowtext;\r\n\tbackground:#%5;\r\n"
                           "\tmso-pattern:black none;\r\n\twhite-space:normal;}\r\n")
                .arg(c)
                .arg(QString::number(0x102030 * (c % 7), 16).rightJustified(6, u'0'))
                .arg(c % 3 == 0   ? QStringLiteral("0\\.00")
                     : c % 3 == 1 ? QStringLiteral("\\@")
                                  : QStringLiteral("Short Date"))
                .arg(c % 2 ? QStringLiteral("center") : QStringLiteral("left"))
                .arg(QString::number(0xfff0e0 - 0x010101 * (c % 20), 16));
  head += QStringLiteral(
      "-->\r\n</style>\r\n</head>\r\n<body link=\"#0563C1\" vlink=\"#954F72\">\r\n"
      "<table border=0 cellpadding=0 cellspacing=0 width=1024 style='border-collapse:collapse;width:768pt'>\r\n"
      "<!--StartFragment-->\r\n");
  QString page = head;
  for (int row = 0; page.size() < size; ++row) {
    page += QStringLiteral(" <tr height=20 style='height:15.0pt'>\r\n");
    for (int col = 0; col < 16; ++col) {
      const int cls = 63 + (row * 16 + col) % 200;
      if (col % 5 == 4)
        page += QStringLiteral("  <td class=xl%1 style='border-top:none;border-left:none;width:48pt'>Total <font "
                               "class=\"font5\">%2</font></td>\r\n")
                    .arg(cls)
                    .arg(row * col);
      else
        page += QStringLiteral(
                    "  <td class=xl%1 align=right style='border-top:none;border-left:none' x:num=\"%2\">%3</td>\r\n")
                    .arg(cls)
                    .arg(row + col * 0.25)
                    .arg(row + col * 0.25, 0, 'f', 2);
    }
    page += QStringLiteral(" </tr>\r\n");
  }
  return page + QStringLiteral("<!--EndFragment-->\r\n</table>\r\n</body>\r\n</html>\r\n");
}

// Shaped like a long Word copy: headings and paragraphs in Word's classes and spans, lists
// with their conditional comments, tables with mso- styles, and pictures given both as VML
// and as an image.
QString realWordCopy(const QString& fixture, qsizetype size) {
  const qsizetype bodyStart = fixture.indexOf(u'>', fixture.indexOf(u"<body", 0, Qt::CaseInsensitive)) + 1;
  QString page = fixture.left(bodyStart) + QStringLiteral("\r\n<div class=WordSection1>\r\n<!--StartFragment-->\r\n");
  for (int part = 0; page.size() < size; ++part) {
    page +=
        QStringLiteral("<h2 style='margin-top:12.0pt;mso-list:l0 level1 lfo1'><![if !supportLists]><span lang=EN-US "
                       "style='mso-bidi-font-family:Calibri'><span style='mso-list:Ignore'>%1.<span "
                       "style='font:7.0pt \"Times New Roman\"'>&nbsp;&nbsp; </span></span></span><![endif]><span "
                       "lang=EN-US>Section %1<o:p></o:p></span></h2>\r\n")
            .arg(part);
    for (int p = 0; p < 4; ++p)
      page += QStringLiteral("<p class=MsoNormal style='text-indent:21.0pt;line-height:150%%'><span lang=EN-US "
                             "style='font-size:12.0pt;line-height:150%%;font-family:\"Times New Roman\",serif'>The "
                             "quarterly figures of part %1 rose, <b style='mso-bidi-font-weight:normal'>as "
                             "planned</b>, and <i>the costs</i> fell.<span style='mso-spacerun:yes'>&nbsp; "
                             "</span>Details follow in the table below.<o:p></o:p></span></p>\r\n")
                  .arg(part);
    for (int item = 0; item < 3; ++item)
      page +=
          QStringLiteral("<p class=MsoListParagraph style='margin-left:18.0pt;text-indent:-18.0pt;mso-list:l1 level1 "
                         "lfo2'><![if !supportLists]><span lang=EN-US style='font-family:Symbol'><span "
                         "style='mso-list:Ignore'>·<span style='font:7.0pt \"Times New Roman\"'>&nbsp;&nbsp;&nbsp; "
                         "</span></span></span><![endif]><span lang=EN-US>Item %1<o:p></o:p></span></p>\r\n")
              .arg(item);
    page +=
        QStringLiteral("<table class=MsoTableGrid border=1 cellspacing=0 cellpadding=0 style='border-collapse:collapse;"
                       "border:none;mso-border-alt:solid windowtext .5pt;mso-yfti-tbllook:1184'>\r\n");
    for (int r = 0; r < 4; ++r) {
      page += QStringLiteral(" <tr style='mso-yfti-irow:%1'>\r\n").arg(r);
      for (int c = 0; c < 4; ++c)
        page += QStringLiteral("  <td width=138 valign=top style='width:103.7pt;border:solid windowtext 1.0pt;"
                               "mso-border-alt:solid windowtext .5pt;padding:0cm 5.4pt 0cm 5.4pt'><p class=MsoNormal>"
                               "<span lang=EN-US>%1<o:p></o:p></span></p></td>\r\n")
                    .arg(r * 4 + c);
      page += QStringLiteral(" </tr>\r\n");
    }
    page +=
        QStringLiteral("</table>\r\n<p class=MsoNormal><span lang=EN-US><!--[if gte vml 1]><v:shape id=\"Picture_%1\" "
                       "o:spid=\"_x0000_i10%1\" type=\"#_x0000_t75\" style='width:415pt;height:233pt;visibility:"
                       "visible'><v:imagedata src=\"file:///C:/Users/u/AppData/Local/Temp/msohtmlclip1/01/"
                       "clip_image%1.png\" o:title=\"\"/></v:shape><![endif]--><![if !vml]><img width=553 "
                       "height=311 src=\"file:///C:/Users/u/AppData/Local/Temp/msohtmlclip1/01/clip_image%1.png\" "
                       "v:shapes=\"Picture_%1\"><![endif]><o:p></o:p></span></p>\r\n")
            .arg(part);
  }
  return page + QStringLiteral("<!--EndFragment-->\r\n</div>\r\n</body>\r\n</html>\r\n");
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
  const QString realExcel = realExcelCopy(size);
  const QString realWord = realWordCopy(readText(data + "/word/clipboard_format.txt"), size);
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
      {"word-real-1", realWord,
       "optimizemode:1;opt1vml:1;opt1absolute:1;opt1eq:1;opt1margin:1;opt1space:1;opt1grid:1;opt1css:1"},
      {"excel-real-1", realExcel, "optimizemode:1;opt1vml:1;opt1space:1;opt1table:1;opt1overflow:1;opt1css:1"},
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
