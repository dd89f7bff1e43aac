#pragma once
#include <QString>

#include "cleanup/RuleTable.h"

namespace velmora {

// Folds the rules of a style sheet into the `style` attributes of the elements they
// select, so that the content keeps its look without a separate style sheet. Three kinds
// of selector are applied: tag.class, .class and a bare tag name; every other selector is
// read and left without effect. Selector names go into the patterns as they are, so a
// name that is not a valid pattern raises ScriptError (and, in MergeCss, so does one that
// would make the page grow past what the sheet could add to it).
class clsCSS {
 public:
  // Rule by rule: every tag.class rule, then every .class rule, then every tag rule is
  // written into the start tags it selects (the sheet's declarations ahead of the tag's
  // own), and the class attributes go. `trace` records what each step changed.
  QString MergeCssQuick(const QString& html, const QString& css, RuleTrace* trace = nullptr);
  // Element by element: each start tag with a class gets the declarations of tag.class
  // and .class and loses its class; then tag rules reach the start tags of that name that
  // carry attributes.
  QString MergeCss(const QString& html, const QString& css);
};

}  // namespace velmora
