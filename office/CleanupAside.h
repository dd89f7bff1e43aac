#pragma once
#include "core/Aside.h"
#include "core/Context.h"
#include "core/Producers.h"

namespace velmora {

// A clean-up runs aside (core/Aside.h) on a copy of the page's context, so that the page's
// other calls meanwhile never race with it; what the clean-up leaves in the error text is
// the page's once it is done.
template <class Cleanup>
StyledHtml cleanUpAside(Context& context, Cleanup cleanup) {
  Context aside = context;
  StyledHtml out = runAside([&] { return cleanup(aside); });
  context.g_sError = aside.g_sError;
  return out;
}

// The Excel clean-up of one sheet page or pasted table, aside; `extraCss` is the workbook's
// shared style sheet that the WPS variant puts ahead of the sheet's own rules.
StyledHtml cleanUpSheetAside(Context& context, const QString& source, const QString& html, const QString& extraCss,
                             const QString& options);

}  // namespace velmora
