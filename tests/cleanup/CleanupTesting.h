#pragma once
// What the Word and Excel clean-up tests share: fixtures, the parts of a page, and the
// check that randomly damaged documents never crash or hang a pipeline.
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTextDocument>
#include <QTimer>

#include <functional>
#include <optional>

#include "cleanup/RuleTable.h"
#include "support/basPublic.h"
#include "tests/common/Helpers.h"
#include "tests/common/TestSupport.h"

namespace velmora::test {

struct Cleaned {
  QString style, body;
  RuleTrace trace;
};

inline QString fixture(const QString& name) { return ReadTextFile(testData(name)); }

constexpr std::nullopt_t kAny = std::nullopt;  // an output a case does not check

// One clean-up and what it must give: the body and, when given, the style.
struct Case {
  const char* name;
  QString html, options;
  std::optional<QString> body = {}, style = {};
  QString source = "import";
  bool wps = false;  // the WPS variant of the Word pipeline
};

// `clean(c)` runs one case's clean-up.
inline void expectCases(const std::vector<Case>& cases, const std::function<Cleaned(const Case&)>& clean) {
  for (const Case& c : cases) {
    const Cleaned out = clean(c);
    if (c.body) {
      EXPECT_EQ(out.body, *c.body) << c.name;
    }
    if (c.style) {
      EXPECT_EQ(out.style, *c.style) << c.name;
    }
  }
}

// The checked outputs of a document: <folder>/golden/<name>.style.html and .body.html.
inline void expectGolden(const QString& folder, const QString& name, const Cleaned& out) {
  EXPECT_EQ(out.style, fixture(folder + "/golden/" + name + ".style.html")) << name;
  EXPECT_EQ(out.body, fixture(folder + "/golden/" + name + ".body.html")) << name;
}

// What lies between "<body ...>" and the last "</body>" (from the start without a body tag).
inline QString bodyOf(const QString& page) {
  const qsizetype at = page.indexOf("<body", 0, Qt::CaseInsensitive);
  const qsizetype start = at < 0 ? 0 : page.indexOf('>', at) + 1;
  return page.mid(start, page.lastIndexOf("</body>", -1, Qt::CaseInsensitive) - start);
}

inline QStringList tagsOf(const QString& html) {
  QStringList tags;
  for (QRegularExpressionMatchIterator it = QRegularExpression("<[^>]*>").globalMatch(html); it.hasNext();)
    tags << it.next().captured();
  return tags;
}

inline bool startsLike(const QString& tag, const QString& permitted) {
  return QRegularExpression("^<(" + permitted + ")", QRegularExpression::CaseInsensitiveOption).match(tag).hasMatch();
}

// The text as a browser shows it, without the characters in `blanks`.
inline QString renderedText(const QString& html, const QString& blanks = R"(\s\x{a0})") {
  QTextDocument rendered;
  rendered.setHtml(html);
  return rendered.toPlainText().remove(QRegularExpression("[" + blanks + "]+"));
}

// A run of `Pipeline` in mode 1 starts from cleared outputs and error word, lets posted events
// through, and traces the one rule that changes `html` into `body` with the change in size.
template <typename Pipeline>
void expectStartsAfresh(const QString& html, const QString& body, const QString& rule, qsizetype shrinks) {
  Context context;
  context.g_sError = "SaveAs:earlier";
  Cleaned out{"old style", "old body", {}};
  bool delivered = false;
  QTimer::singleShot(0, [&] { delivered = true; });
  Pipeline(context).OptimizeHTML("import", html, "optimizemode:1", out.style, out.body, &out.trace);
  EXPECT_TRUE(delivered);
  EXPECT_EQ(context.g_sError, "");
  EXPECT_EQ(out.style, "<style>\r\n\r\n</style>");
  EXPECT_EQ(out.body, body);
  ASSERT_EQ(out.trace.steps.size(), 1u);
  EXPECT_EQ(out.trace.steps[0].rule, rule);
  EXPECT_EQ(out.trace.steps[0].sizeBefore - out.trace.steps[0].sizeAfter, shrinks);
}

// Runs `run(round, html, options)` on 150 randomly damaged copies of the documents with
// random options on: each call gives a body at most `growth` times the input (plus 2000), or
// a ScriptError numbered one of `errors`.
inline void expectMutationsSurvive(const QStringList& documents, const QStringList& keys, quint32 seed, int growth,
                                   const QList<long>& errors,
                                   const std::function<Cleaned(int, const QString&, const QString&)>& run) {
  QRandomGenerator random(seed);
  for (int round = 0; round < 150; ++round) {
    QString html = documents[round % documents.size()];
    for (int edit = 0; edit < 6; ++edit) {
      const qsizetype at = random.bounded(int(html.size()));
      if (random.bounded(2))
        html.remove(at, random.bounded(40));
      else
        html.insert(at, html.mid(random.bounded(int(html.size())), random.bounded(40)));
    }
    QString options = random.bounded(2) ? "optimizemode:1" : "optimizemode:2";
    for (const QString& key : keys)
      if (random.bounded(2)) options += ";" + key + ":1";
    try {
      EXPECT_LE(run(round, html, options).body.size(), growth * html.size() + 2000) << options;
    } catch (const ScriptError& error) {
      EXPECT_TRUE(errors.contains(error.number())) << error.description();
    }
  }
}

}  // namespace velmora::test
