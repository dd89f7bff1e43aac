#pragma once
#include <signal.h>
#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include "office/OfficeAutomation.h"
#include "tests/common/Helpers.h"
#include "tests/common/TestSupport.h"
#include "tests/office/WordDocuments.h"

namespace velmora::test {

// An office helper of the test's own, in a runtime folder of its own, for a test that
// changes the helper's settings or stops its office on purpose. Leaves a second after the
// test's last caller.
class PrivateOfficeHelper {
 public:
  explicit PrivateOfficeHelper(const QByteArray& timeLimitSeconds = "60") {
    QFile::setPermissions(runtime_.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    environment_.set("XDG_RUNTIME_DIR", runtime_.path().toUtf8());
    environment_.set("VELMORA_OFFICE_TIME_LIMIT", timeLimitSeconds);
    environment_.set("VELMORA_OFFICE_IDLE", "1");
  }
  QString runtime() const { return runtime_.path(); }
  // The process holding this helper's LibreOffice for text documents, or 0.
  qint64 workerPid() const {
    const QByteArray profile = officeHelperProfileFolder().toUtf8();
    return pidWhere([&](const QList<QByteArray>& args) { return args.contains("--worker") && args.contains(profile); });
  }
  // The headless LibreOffice serving this helper's workbooks and presentations, or 0.
  qint64 workbookOfficePid() const {
    const QByteArray profile = officeHelperProfileFolder().toUtf8() + "-uno";
    return pidWhere([&](const QList<QByteArray>& args) {
      return args.value(0).endsWith("soffice.bin") && args.join(' ').contains(profile);
    });
  }
  // Whether the helper and its office have left.
  bool gone() const { return workerPid() == 0 && workbookOfficePid() == 0 && !QFile::exists(officeHelperSocketPath()); }

 private:
  static qint64 pidWhere(const std::function<bool(const QList<QByteArray>&)>& matches) {
    for (const QString& pid : QDir("/proc").entryList({"[0-9]*"}, QDir::Dirs)) {
      QFile cmdline("/proc/" + pid + "/cmdline");
      if (cmdline.open(QIODevice::ReadOnly) && matches(cmdline.readAll().split('\0'))) return pid.toLongLong();
    }
    return 0;
  }

  QTemporaryDir runtime_;
  ScopedEnvironment environment_;
};

// A document of three A4 pages holding a PNG (twice), a JPEG and a GIF, a table, a list,
// a header, a footer, a footnote and an equation.
inline WordDocumentDescription richDocument() {
  WordDocumentDescription doc;
  doc.pages = 3;
  doc.pictures = {{pictureBytes("png", {120, 80}, Qt::red), "png", {120, 80}},
                  {pictureBytes("jpg", {100, 60}, Qt::green), "jpeg", {100, 60}},
                  {pictureBytes("gif", {90, 70}, Qt::blue), "gif", {90, 70}}};
  doc.firstPictureTwice = doc.table = doc.list = doc.headerAndFooter = doc.footnote = doc.equation = true;
  return doc;
}

}  // namespace velmora::test
