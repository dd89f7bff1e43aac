#include "dialogs/clsCommonDialog.h"

#include <QApplication>
#include <QFileDialog>
#include <QFileInfo>
#include <QRegularExpression>

namespace velmora {

namespace {

constexpr QChar Nul = u'\0';

// Item separators of the page's filter text, and the pattern separator inside one item.
const QRegularExpression& filterItemSeparator() {
  static const QRegularExpression separator(QStringLiteral("[|:]"));
  return separator;
}
constexpr QChar PatternSeparator = u';';

// On the common dialog "*.*" matches every file, with or without a dot in its name; as a
// glob it would hide names without one, so it becomes "*".
QString qtPatterns(const QString& patterns) {
  QStringList globs;
  for (const QString& piece : patterns.split(PatternSeparator, Qt::SkipEmptyParts)) {
    const QString glob = piece.trimmed();
    if (!glob.isEmpty()) globs.append(glob == u"*.*" ? QStringLiteral("*") : glob);
  }
  return globs.join(u' ');
}

// A modal dialog needs a widget application and a screen someone can see; on the offscreen
// or minimal platform it would wait forever for a click that cannot come.
bool canShowDialog() {
  if (!qobject_cast<QApplication*>(QCoreApplication::instance())) return false;
  const QString platform = QGuiApplication::platformName();
  return platform != u"offscreen" && platform != u"minimal";
}

bool isInside(const QString& path, const QString& folder) {
  return folder.endsWith(u'/') ? path.startsWith(folder) : path.startsWith(folder + u'/');
}

// The deepest folder holding every path. The dialog picks files in one folder, but a typed
// absolute name may point elsewhere; the names are then kept relative to the common folder.
QString commonFolder(const QStringList& paths) {
  QString folder = QFileInfo(paths.first()).path();
  for (const QString& path : paths)
    while (!isInside(path, folder) && folder != QFileInfo(folder).path()) folder = QFileInfo(folder).path();
  return folder;
}

// The file-name buffer the common dialog fills: one path as it is; several as their folder
// and their names, each followed by a NUL, with one more NUL at the end.
QString selectionBuffer(const QStringList& paths) {
  if (paths.size() == 1) return paths.first();
  const QString folder = commonFolder(paths);
  const qsizetype nameStart = folder.size() + (folder.endsWith(u'/') ? 0 : 1);
  QString buffer = folder + Nul;
  for (const QString& path : paths) buffer += path.mid(nameStart) + Nul;
  return buffer + Nul;
}

// Which of the offered filters is selected. With the details hidden, Qt names it by its
// description alone, simplified, as the list shows it.
qsizetype selectedFilter(const QFileDialog& dialog, const QStringList& qtFilters,
                         const QList<clsCommonDialog::FilterPair>& pairs) {
  const QString selected = dialog.selectedNameFilter();
  for (qsizetype i = 0; i < qtFilters.size(); ++i)
    if (qtFilters[i] == selected || pairs[i].description.simplified() == selected) return i;
  return -1;
}

QFileDialog::FileMode fileModeFor(bool save, int32_t flags) {
  if (save) return QFileDialog::AnyFile;
  if (flags & clsCommonDialog::OFN_ALLOWMULTISELECT) return QFileDialog::ExistingFiles;
  if (flags & clsCommonDialog::OFN_FILEMUSTEXIST) return QFileDialog::ExistingFile;
  return QFileDialog::AnyFile;
}

// Hook procedures and dialog templates cannot be served; those bits are dropped.
int32_t callerFlags(int32_t flags) {
  return flags & ~(clsCommonDialog::OFN_ENABLEHOOK | clsCommonDialog::OFN_ENABLETEMPLATE);
}

}  // namespace

struct clsCommonDialog::Request {
  bool save = false;
  int32_t flags = 0;
  QString filter;
  int32_t filterIndex = 1;
  QString initDir;
  QString title;
  QString defaultExt;
  QWidget* owner = nullptr;
};

QList<clsCommonDialog::FilterPair> clsCommonDialog::ParseFilter(const QString& filter) {
  const QStringList items = filter.split(filterItemSeparator());
  QList<FilterPair> pairs;
  for (qsizetype i = 0; i + 1 < items.size(); i += 2) {
    if (items[i].isEmpty() || items[i + 1].isEmpty()) break;
    pairs.append({items[i], items[i + 1]});
  }
  return pairs;
}

QStringList clsCommonDialog::QtNameFilters(const QString& filter) {
  QStringList filters;
  for (const FilterPair& pair : ParseFilter(filter))
    filters.append(pair.description + QStringLiteral(" (") + qtPatterns(pair.pattern) + u')');
  return filters;
}

void clsCommonDialog::ParseMultiFileName(const QString& buffer, QString& folder, QStringList& names, int32_t& count) {
  const qsizetype end = buffer.indexOf(QString(2, Nul));
  const QString text = end < 0 ? buffer : buffer.left(end);
  if (!text.contains(Nul)) {
    const qsizetype nameStart = text.lastIndexOf(u'/') + 1;
    folder = text.left(nameStart);
    names = QStringList{text.mid(nameStart)};
    count = 1;
    return;
  }
  names = text.split(Nul);
  folder = names.takeFirst();
  names.removeAll(QString());
  count = int32_t(names.size());
}

bool clsCommonDialog::VBGetOpenFileName(QString& FileName, QString& FileTitle, bool FileMustExist, bool MultiSelect,
                                        bool& ReadOnly, bool HideReadOnly, QString& Filter, int32_t& FilterIndex,
                                        const QString& InitDir, const QString& DlgTitle, const QString& DefaultExt,
                                        QWidget* owner, int32_t& Flags) {
  Request request{false, callerFlags(Flags), Filter, FilterIndex, InitDir, DlgTitle, DefaultExt, owner};
  if (FileMustExist) request.flags |= OFN_FILEMUSTEXIST;
  if (MultiSelect) request.flags |= OFN_ALLOWMULTISELECT;
  if (ReadOnly) request.flags |= OFN_READONLY;
  if (HideReadOnly) request.flags |= OFN_HIDEREADONLY;
  if (request.flags & OFN_ALLOWMULTISELECT) request.flags |= OFN_EXPLORER;
  const bool chosen = show(request, FileName, FileTitle, Filter, FilterIndex, Flags);
  // Qt's dialog has no read-only box, so the caller's choice comes back as it went in.
  if (chosen) ReadOnly = Flags & OFN_READONLY;
  return chosen;
}

bool clsCommonDialog::VBGetSaveFileName(QString& FileName, QString& FileTitle, bool OverWritePrompt, QString& Filter,
                                        int32_t& FilterIndex, const QString& InitDir, const QString& DlgTitle,
                                        const QString& DefaultExt, QWidget* owner, int32_t& Flags) {
  Request request{true, callerFlags(Flags) | OFN_HIDEREADONLY, Filter, FilterIndex, InitDir, DlgTitle, DefaultExt,
                  owner};
  if (OverWritePrompt) request.flags |= OFN_OVERWRITEPROMPT;
  return show(request, FileName, FileTitle, Filter, FilterIndex, Flags);
}

bool clsCommonDialog::show(const Request& request, QString& FileName, QString& FileTitle, QString& Filter,
                           int32_t& FilterIndex, int32_t& Flags) {
  apiReturn_ = 0;
  extendedError_ = 0;
  const QString initialName = FileName;
  FileName.clear();
  FileTitle.clear();
  Filter.clear();
  FilterIndex = -1;
  Flags = 0;
  if (!canShowDialog()) {
    extendedError_ = CDERR_DIALOGFAILURE;
    return false;
  }

  // Qt's own dialog rather than the desktop's: the same on every desktop, and scriptable.
  QFileDialog dialog(request.owner);
  dialog.setOption(QFileDialog::DontUseNativeDialog);
  // The list shows the page's descriptions as written, without Qt's pattern suffix.
  dialog.setOption(QFileDialog::HideNameFilterDetails);
  dialog.setWindowModality(Qt::ApplicationModal);
  dialog.setAcceptMode(request.save ? QFileDialog::AcceptSave : QFileDialog::AcceptOpen);
  dialog.setFileMode(fileModeFor(request.save, request.flags));
  dialog.setOption(QFileDialog::DontConfirmOverwrite, !(request.flags & OFN_OVERWRITEPROMPT));
  if (!request.title.isEmpty()) dialog.setWindowTitle(request.title);
  // A folder that does not exist is passed over, as the common dialog does: the dialog then
  // opens in the current folder.
  if (QFileInfo(request.initDir).isDir()) dialog.setDirectory(request.initDir);
  if (!request.defaultExt.isEmpty()) dialog.setDefaultSuffix(request.defaultExt);
  if (!initialName.isEmpty()) dialog.selectFile(initialName);

  const QList<FilterPair> pairs = ParseFilter(request.filter);
  const QStringList qtFilters = QtNameFilters(request.filter);
  if (!qtFilters.isEmpty()) {
    dialog.setNameFilters(qtFilters);
    // The index counts from 1. There is no custom filter to show for 0, and nothing sensible
    // to show for an index past the list, so both show the first filter.
    const bool inRange = request.filterIndex >= 1 && request.filterIndex <= qtFilters.size();
    dialog.selectNameFilter(qtFilters[inRange ? request.filterIndex - 1 : 0]);
  }

  if (dialog.exec() != QDialog::Accepted) return false;
  const QStringList selected = dialog.selectedFiles();
  if (selected.isEmpty()) return false;

  apiReturn_ = 1;
  FileName = request.flags & OFN_ALLOWMULTISELECT ? selectionBuffer(selected) : selected.first();
  FileTitle = QFileInfo(selected.first()).fileName();
  Flags = request.flags;
  const qsizetype chosenFilter = selectedFilter(dialog, qtFilters, pairs);
  if (chosenFilter >= 0) {
    Filter = pairs[chosenFilter].description + Nul + pairs[chosenFilter].pattern;
    FilterIndex = int32_t(chosenFilter + 1);
  } else {
    FilterIndex = 0;  // no filter was offered
  }
  return true;
}

QString ShowOpenDialog(bool b_FileMustExist, bool b_MultiSelect, const QString& s_Filter, int32_t l_FilterIndex,
                       const QString& s_InitDir, const QString& s_DlgTitle) {
  QString fileName, fileTitle, filter = s_Filter;
  bool readOnly = false;
  int32_t filterIndex = l_FilterIndex, flags = 0;
  clsCommonDialog dialog;
  if (!dialog.VBGetOpenFileName(fileName, fileTitle, b_FileMustExist, b_MultiSelect, readOnly, true, filter,
                                filterIndex, s_InitDir, s_DlgTitle, QString(), nullptr, flags))
    return QString();
  if (!b_MultiSelect) return fileName;

  QString folder;
  QStringList names;
  int32_t count = 0;
  clsCommonDialog::ParseMultiFileName(fileName, folder, names, count);
  if (!folder.isEmpty() && !folder.endsWith(u'/')) folder += u'/';
  for (QString& name : names) name.prepend(folder);
  return names.join(u'|');
}

QString ShowSaveDialog(bool b_OverWritePrompt, const QString& s_Filter, int32_t l_FilterIndex, const QString& s_InitDir,
                       const QString& s_DlgTitle, const QString& s_DefaultExt) {
  QString fileName, fileTitle, filter = s_Filter;
  int32_t filterIndex = l_FilterIndex, flags = 0;
  clsCommonDialog dialog;
  dialog.VBGetSaveFileName(fileName, fileTitle, b_OverWritePrompt, filter, filterIndex, s_InitDir, s_DlgTitle,
                           s_DefaultExt, nullptr, flags);
  return fileName;
}

}  // namespace velmora
