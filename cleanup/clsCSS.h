#pragma once
#include <QString>

namespace velmora {

// Folds the rules of a style sheet into the `style` attributes of the elements they
// select, so that the content keeps its look without a separate style sheet. Three kinds
// of selector are applied: tag.class, .class and a bare tag name; every other selector is
// read and left without effect.
class clsCSS {
 public:
  QString MergeCssQuick(const QString& html, const QString& css);
};

}  // namespace velmora
