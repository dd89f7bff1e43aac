#include <gtest/gtest.h>

#include "cleanup/WordCleanup.h"

namespace velmora {
namespace {

struct Cleaned {
  QString style;
  QString body;
};

Cleaned clean(const QString& html, const QString& options) {
  Context context;
  Cleaned out;
  WordCleanup(context).OptimizeHTML("import", html, options, out.style, out.body);
  return out;
}

const QString kPage =
    "<html><head><style>\r\n<!--\r\np.MsoNormal\r\n\t{mso-style-parent:\"\";\r\n\tmargin:0cm;\r\n"
    "\tfont-size:10.5pt;}\r\n-->\r\n</style></head><body lang=ZH-CN><div>\r\n<p class=MsoNormal "
    "style='color:red'>x</p>\r\n</div></body></html>";

// With opt1css in mode 1 the sheet goes into the elements' style attributes, ahead of
// their own declarations, and Style is empty; the bare div is unwrapped afterwards.
TEST(WordCleanupCss, FoldsTheSheetIntoTheBodyInModeOne) {
  const Cleaned merged = clean(kPage, "optimizemode:1;opt1css:1");
  EXPECT_EQ(merged.style, QString());
  EXPECT_EQ(merged.body, "\r\n<p style=\"margin:0cm;font-size:10.5pt;color:red\"  >x</p>\r\n");
}

TEST(WordCleanupCss, IsOnlyAModeOneOption) {
  const Cleaned plain = clean(kPage, "optimizemode:2;opt1css:1");
  EXPECT_EQ(plain.style, QString());
  EXPECT_EQ(plain.body, "\r\n<p>x</p>\r\n");

  const Cleaned kept = clean(kPage, "optimizemode:1;opt1css:0");
  EXPECT_EQ(kept.style, "<style>\r\np.MsoNormal {margin:0cm;font-size:10.5pt;}\r\n</style>");
  EXPECT_EQ(kept.body, "\r\n<p class=MsoNormal style='color:red'>x</p>\r\n");
}

}  // namespace
}  // namespace velmora
