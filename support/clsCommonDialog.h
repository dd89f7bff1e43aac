#pragma once
#include <QString>
#include <QStringList>

namespace velmora {

// The open and save dialogs the page cannot show by itself. Filter texts come as the page
// writes them: descriptions and patterns alternating, separated by "|" or ":" (both
// separate), several patterns in one item separated by ";" — "所有文件(*.*)|*.*".
class clsCommonDialog {
 public:
  // 1 when a file was chosen, 0 when the user cancelled.
  int APIReturn() const { return apiReturn_; }
  // Always 0 here: the dialog reports no failure other than cancelling.
  int ExtendedError() const { return extendedError_; }

  // The chosen paths; empty when cancelled.
  QStringList VBGetOpenFileName(bool mustExist, bool multiSelect, const QString& filter, int32_t filterIndex,
                                const QString& initDir, const QString& title);
  QString VBGetSaveFileName(bool overwritePrompt, const QString& filter, int32_t filterIndex, const QString& initDir,
                            const QString& title, const QString& defaultExt);

  // The filter text in Qt's form, one entry per description and pattern pair.
  static QStringList QtNameFilters(const QString& filter);

 private:
  int apiReturn_ = 0;
  int extendedError_ = 0;
};

// One path, several joined by "|", or "" when the user cancels.
QString ShowOpenDialog(bool mustExist, bool multiSelect, const QString& filter, int32_t filterIndex,
                       const QString& initDir, const QString& title);
QString ShowSaveDialog(bool overwritePrompt, const QString& filter, int32_t filterIndex, const QString& initDir,
                       const QString& title, const QString& defaultExt);

}  // namespace velmora
