#pragma once
#include <QString>

#include "cleanup/RuleTable.h"
#include "core/Context.h"

namespace velmora {

// The Word clean-up pipeline: turns the HTML that Word writes (a saved web page, source
// "import", or the clipboard's "HTML Format" text, source "paste") into Style and Body.
// `Variant::WPS` is the same pipeline with the WPS Writer rule changes.
class WordCleanup {
 public:
  enum class Variant { Word, WPS };
  explicit WordCleanup(Context& context, Variant variant = Variant::Word) : context_(context), variant_(variant) {}

  void OptimizeHTML(const QString& source, const QString& html, const QString& options, QString& style, QString& body,
                    RuleTrace* trace = nullptr);

 private:
  Context& context_;
  Variant variant_;
};

}  // namespace velmora
