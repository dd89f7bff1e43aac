#pragma once
#include <QString>
#include <memory>

#include "core/Context.h"
#include "core/Result.h"
#include "office/OfficeApplication.h"

namespace velmora {

// A document converted by the office program: as the web page it saves (read back as text,
// for the Word clean-up), or as one picture per page. Keeps nothing between calls: each
// call has the office open the document afresh, read-only, and close it without saving.
class clsMicrosoftWord {
 public:
  clsMicrosoftWord(Context& context, std::unique_ptr<OfficeAutomation> office,
                   QString progId = QStringLiteral("Word.Application"));

  // The page "Velmora_Temp_Word_Doc.html" in the working folder, its pictures in the
  // companion folder beside it.
  Result<QString> Word2HTML(const QString& file);
  // One picture fragment per page; "imgtype" picks png, gif or (anything else) jpg.
  Result<QString> Word2Images(const QString& file, const QString& options);

 private:
  Context& context_;
  OfficeApplication application_;
};

}  // namespace velmora
