#pragma once
#include <QString>

namespace velmora {

// Folds the rules of a style sheet into the `style` attributes of the elements they
// select, so that the content keeps its look without a separate style sheet.
class clsCSS {
 public:
  QString MergeCssQuick(const QString& html, const QString& css);
  QString MergeCss(const QString& html, const QString& css);
};

}  // namespace velmora
