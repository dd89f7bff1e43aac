#include "office/CleanupAside.h"

#include "cleanup/ExcelCleanup.h"

namespace velmora {

StyledHtml cleanUpSheetAside(Context& context, const QString& source, const QString& html, const QString& extraCss,
                             const QString& options) {
  return cleanUpAside(context, [=](Context& aside) {
    StyledHtml out;
    ExcelCleanup(aside).OptimizeHTML(source, html, extraCss, options, out.style, out.body);
    return out;
  });
}

}  // namespace velmora
