#pragma once
#include <QString>

#include "core/Producers.h"

namespace velmora {

// Turns a piece of a web page copied in the browser into a page template: the page around
// the piece with its linked style sheets fetched and put inline, and a placeholder span
// where the piece stood. Works only for pages served over HTTP, whose address resolves
// the links.
class clsQuickFormat : public QuickFormatter {
 public:
  explicit clsQuickFormat(Context& context) : context_(context) {}

  void QuickFormat(QString& style, QString& body) override;
  // The same from a given "HTML Format" text instead of the clipboard's.
  void QuickFormatFrom(const QString& clipboardText, QString& style, QString& body);

  static QString ResolveUrl(const QString& base, const QString& reference);

 private:
  QString inlineStyleSheets(const QString& html, const QString& base) const;

  Context& context_;
};

}  // namespace velmora
