#pragma once
#include <QString>
#include <memory>

#include "core/Context.h"
#include "core/Producers.h"
#include "office/OfficeAutomation.h"

namespace velmora {

// A presentation as one picture per slide: the presentation program exports every slide
// into a folder named by a time stamp in the working folder, the pictures are found again
// by their names, and, with "tw", scaled to that width.
class clsPPT : public SlideExporter {
 public:
  clsPPT(Context& context, std::unique_ptr<OfficeAutomation> office);

  // Options: "imgtype" (png, gif, else jpg), "api" ("0" PowerPoint then WPS, "1" PowerPoint
  // only, the default, "2" WPS only), "tw" (a width in pixels).
  Result<QString> PPT2Images(const QString& file, const QString& options) override;

 private:
  Context& context_;
  std::unique_ptr<OfficeAutomation> office_;
};

}  // namespace velmora
