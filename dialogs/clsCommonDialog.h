#pragma once
#include <QString>
#include <QStringList>
#include <cstdint>

class QWidget;

namespace velmora {

// The open and save dialogs the page cannot show by itself, over Qt's own file dialog.
//
// Filter texts come as the page writes them: descriptions and patterns alternating, every
// item separated from the next by "|" or ":" (both separate, so a ":" inside a description
// shifts the pairs), several patterns in one item separated by ";" — "所有文件(*.*)|*.*".
//
// Flags keep the common-dialog values so callers can pass and read them unchanged; the ones
// Qt's dialog has a counterpart for are applied, the others travel through untouched.
class clsCommonDialog {
 public:
  static constexpr int32_t OFN_READONLY = 0x1;
  static constexpr int32_t OFN_OVERWRITEPROMPT = 0x2;
  static constexpr int32_t OFN_HIDEREADONLY = 0x4;
  static constexpr int32_t OFN_ENABLEHOOK = 0x20;
  static constexpr int32_t OFN_ENABLETEMPLATE = 0x40;
  static constexpr int32_t OFN_ALLOWMULTISELECT = 0x200;
  static constexpr int32_t OFN_FILEMUSTEXIST = 0x1000;
  static constexpr int32_t OFN_EXPLORER = 0x80000;
  // Extended error: the dialog could not be created (no widget application, or a display
  // platform nobody can see, where a modal dialog would wait forever).
  static constexpr int32_t CDERR_DIALOGFAILURE = 0xFFFF;

  // 1 when a file was chosen, 0 when the user cancelled or the dialog failed.
  int32_t APIReturn() const { return apiReturn_; }
  // CDERR_DIALOGFAILURE after a dialog that could not be shown, else 0.
  int32_t ExtendedError() const { return extendedError_; }

  // On success FileName holds the chosen path; with OFN_ALLOWMULTISELECT and several files
  // it holds the folder and the names, each followed by a NUL, and one more NUL at the end
  // (read it with ParseMultiFileName). Filter comes back as the chosen entry (description,
  // NUL, pattern) and FilterIndex as its number from 1. On cancel or failure: FileName,
  // FileTitle and Filter "", FilterIndex -1, Flags 0. `owner` nullptr: no owner window.
  bool VBGetOpenFileName(QString& FileName, QString& FileTitle, bool FileMustExist, bool MultiSelect, bool& ReadOnly,
                         bool HideReadOnly, QString& Filter, int32_t& FilterIndex, const QString& InitDir,
                         const QString& DlgTitle, const QString& DefaultExt, QWidget* owner, int32_t& Flags);
  bool VBGetSaveFileName(QString& FileName, QString& FileTitle, bool OverWritePrompt, QString& Filter,
                         int32_t& FilterIndex, const QString& InitDir, const QString& DlgTitle,
                         const QString& DefaultExt, QWidget* owner, int32_t& Flags);

  // Splits a file-name buffer: a single path gives its folder (up to and including the last
  // "/") and its name; a NUL-separated buffer gives the folder first, then the names.
  static void ParseMultiFileName(const QString& buffer, QString& folder, QStringList& names, int32_t& count);

  // The page's filter text as (description, pattern) pairs, in order. An empty item ends
  // the list, as a double separator does for the common dialog.
  struct FilterPair {
    QString description;
    QString pattern;
  };
  static QList<FilterPair> ParseFilter(const QString& filter);
  // The same pairs in Qt's form, "Description (*.png *.jpg)", one per pair.
  static QStringList QtNameFilters(const QString& filter);

 private:
  struct Request;
  bool show(const Request& request, QString& FileName, QString& FileTitle, QString& Filter, int32_t& FilterIndex,
            int32_t& Flags);

  int32_t apiReturn_ = 0;
  int32_t extendedError_ = 0;
};

// One path, several joined by "|", or "" when the user cancels or the dialog fails.
QString ShowOpenDialog(bool b_FileMustExist, bool b_MultiSelect, const QString& s_Filter, int32_t l_FilterIndex,
                       const QString& s_InitDir, const QString& s_DlgTitle);
// The path to save to, or "" when the user cancels or the dialog fails.
QString ShowSaveDialog(bool b_OverWritePrompt, const QString& s_Filter, int32_t l_FilterIndex, const QString& s_InitDir,
                       const QString& s_DlgTitle, const QString& s_DefaultExt);

}  // namespace velmora
