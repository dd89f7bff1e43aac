#include <gtest/gtest.h>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QStringList>

#include <algorithm>

#include "core/ScriptError.h"
#include "fuzz/FuzzTargets.h"

namespace velmora {
namespace {

// Seeds that look like what each parser expects, so that mutations reach past the first
// check; then random bytes.
std::vector<QByteArray> seeds() {
  return {
      QByteArray::fromHex("4657530a400000007800055f00000fa000"),    // "FWS", a plain movie
      QByteArray::fromHex("4357530a40000000789c0b0808000000ffff"),  // "CWS", a packed one
      "\xef\xbb\xbfhello \xe4\xb8\xad",
      "mode:html;api:0;;x:y:z",
      "<html><head><link rel=stylesheet href=\"../x.css\"><script>x</script></head><body>"
      "<!--StartFragment--><p>a</p><!--EndFragment--></body></html>",
      "Version:0.9\r\nStartHTML:0000000105\r\nEndHTML:0000000170\r\nStartFragment:0000000141\r\n"
      "EndFragment:0000000153\r\n<html><body><!--StartFragment-->\xe4\xb8\xad<b>x</b><!--EndFragment--></body></html>",
      "file:///tmp/a%20b.png\r\n# comment\r\nfile://host/x\r\n",
      QByteArray("C:\\docs\0a.doc\0b.xls\0\0", 21),
      "\x03<html><head><style>p.MsoNormal{margin:0cm;mso-pagination:none}@page WordSection1{size:595.3pt 841.9pt;"
      "margin:72pt 90pt}</style></head><body><div class=WordSection1><p class=MsoNormal><span lang=EN>x</span>"
      "<!--[if gte vml 1]><v:shape style='width:1pt'><v:imagedata src=\"a_files/i.png\"/></v:shape><![endif]-->"
      "</p></div></body></html>",
      QByteArray::fromHex("00000034") + R"({"job":"webpage","document":"/a.docx","target":"/p"})",
      "\x01#<a href=\"file",
      "\x02\"<img src=\"",  // runs of one character through the rule lists
      "<style type=\"text/css\">@page { size: 8.27in 11.69in; margin: 0.79in 2cm }</style><img src=\"Velmora_Temp_"
      "Word_Doc_html_1.png\"><img src=\"file:///etc/x.png\"><img src=\"../Velmora_Temp_Word_Doc_html_1.png\">"};
}

QByteArray mutate(QByteArray bytes, QRandomGenerator& random) {
  const int edits = 1 + int(random.bounded(8));
  for (int i = 0; i < edits; ++i) {
    const qsizetype at = bytes.isEmpty() ? 0 : qsizetype(random.bounded(quint32(bytes.size())));
    switch (random.bounded(4)) {
      case 0:
        if (!bytes.isEmpty()) bytes[at] = char(random.bounded(256));
        break;
      case 1: bytes.insert(at, char(random.bounded(256))); break;
      case 2: bytes.remove(at, 1 + qsizetype(random.bounded(4))); break;
      default: bytes.truncate(at); break;
    }
  }
  return bytes;
}

// How a run ended: "returned", "gave up" (a ScriptError, the clear error a script would
// see) or the exception that escaped.
std::string outcome(const fuzz::Target& target, const QByteArray& input) {
  try {
    target.run(reinterpret_cast<const uint8_t*>(input.constData()), size_t(input.size()));
    return "returned";
  } catch (const ScriptError&) {
    return "gave up";
  } catch (const std::exception& error) {
    return std::string("threw ") + error.what();
  }
}

// Every parser's entry point takes each seed as it is, then 300 inputs (every third random
// bytes, the others mutated seeds). Each input comes back within seconds, the same way every
// time; a damaged input may be given up on, a seed never; a crash ends the program.
TEST(FuzzReplay, EveryParserTakesTheSeedsAndTheirMutations) {
  QRandomGenerator random(20261123);
  std::vector<QByteArray> inputs = seeds();
  const size_t seedCount = inputs.size();
  for (int round = 0; round < 300; ++round) {
    QByteArray input =
        round % 3 ? mutate(inputs[size_t(round) % seedCount], random) : QByteArray(random.bounded(512), 0);
    if (round % 3 == 0) std::generate(input.begin(), input.end(), [&] { return char(random.bounded(256)); });
    inputs.push_back(input);
  }
  QStringList replayed;
  for (const fuzz::Target& target : fuzz::targets()) {
    replayed << target.name;
    for (size_t i = 0; i < inputs.size(); ++i) {
      QElapsedTimer timer;
      timer.start();
      const std::string first = outcome(target, inputs[i]);
      EXPECT_LT(timer.elapsed(), 5000) << target.name << " took " << timer.elapsed() << " ms on input " << i;
      EXPECT_TRUE(first == "returned" || (first == "gave up" && i >= seedCount))
          << target.name << " " << first << " on input " << i << ": " << inputs[i].toHex().toStdString();
      EXPECT_EQ(outcome(target, inputs[i]), first) << target.name << ", input " << i << " again";
    }
  }
  EXPECT_EQ(replayed, (QStringList{"flash_header", "text_file", "option_string", "quick_format", "html_format",
                                   "file_lists", "dialog_buffers", "word_cleanup", "excel_cleanup", "css_merge",
                                   "office_frames", "word_web_page", "slow_runs"}))
      << "every parser is replayed";
}

}  // namespace
}  // namespace velmora
