#include "support/clsCommonDialog.h"

#include <QFileDialog>
#include <QRegularExpression>

namespace velmora {

namespace {

// Qt's own dialog, not the desktop's: it looks and behaves the same on every desktop.
void prepare(QFileDialog& dialog, const QString& filter, int32_t filterIndex, const QString& initDir,
             const QString& title) {
  dialog.setOption(QFileDialog::DontUseNativeDialog);
  if (!title.isEmpty()) dialog.setWindowTitle(title);
  if (!initDir.isEmpty()) dialog.setDirectory(initDir);
  const QStringList filters = clsCommonDialog::QtNameFilters(filter);
  dialog.setNameFilters(filters);
  // The index counts from 1; one outside the list shows the first filter.
  if (!filters.isEmpty())
    dialog.selectNameFilter(filters.value(filterIndex >= 1 && filterIndex <= filters.size() ? filterIndex - 1 : 0));
}

}  // namespace

QStringList clsCommonDialog::QtNameFilters(const QString& filter) {
  const QStringList items = filter.split(QRegularExpression(QStringLiteral("[|:]")));
  QStringList filters;
  for (qsizetype i = 0; i + 1 < items.size(); i += 2) {
    const QString patterns = items[i + 1].split(u';', Qt::SkipEmptyParts).join(u' ');
    if (patterns.trimmed().isEmpty()) continue;
    filters.append(items[i] + QStringLiteral(" (") + patterns + u')');
  }
  return filters;
}

QStringList clsCommonDialog::VBGetOpenFileName(bool mustExist, bool multiSelect, const QString& filter,
                                               int32_t filterIndex, const QString& initDir, const QString& title) {
  apiReturn_ = 0;
  extendedError_ = 0;
  QFileDialog dialog;
  prepare(dialog, filter, filterIndex, initDir, title);
  dialog.setAcceptMode(QFileDialog::AcceptOpen);
  dialog.setFileMode(multiSelect ? QFileDialog::ExistingFiles
                                 : mustExist ? QFileDialog::ExistingFile : QFileDialog::AnyFile);
  if (dialog.exec() != QDialog::Accepted) return {};
  apiReturn_ = 1;
  return dialog.selectedFiles();
}

QString clsCommonDialog::VBGetSaveFileName(bool overwritePrompt, const QString& filter, int32_t filterIndex,
                                           const QString& initDir, const QString& title, const QString& defaultExt) {
  apiReturn_ = 0;
  extendedError_ = 0;
  QFileDialog dialog;
  prepare(dialog, filter, filterIndex, initDir, title);
  dialog.setAcceptMode(QFileDialog::AcceptSave);
  dialog.setFileMode(QFileDialog::AnyFile);
  dialog.setOption(QFileDialog::DontConfirmOverwrite, !overwritePrompt);
  if (!defaultExt.isEmpty()) dialog.setDefaultSuffix(defaultExt);
  if (dialog.exec() != QDialog::Accepted) return {};
  apiReturn_ = 1;
  return dialog.selectedFiles().value(0);
}

QString ShowOpenDialog(bool mustExist, bool multiSelect, const QString& filter, int32_t filterIndex,
                       const QString& initDir, const QString& title) {
  return clsCommonDialog().VBGetOpenFileName(mustExist, multiSelect, filter, filterIndex, initDir, title).join(u'|');
}

QString ShowSaveDialog(bool overwritePrompt, const QString& filter, int32_t filterIndex, const QString& initDir,
                       const QString& title, const QString& defaultExt) {
  return clsCommonDialog().VBGetSaveFileName(overwritePrompt, filter, filterIndex, initDir, title, defaultExt);
}

}  // namespace velmora
