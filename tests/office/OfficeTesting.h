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
    for (const QString& pid : QDir("/proc").entryList({"[0-9]*"}, QDir::Dirs)) {
      QFile cmdline("/proc/" + pid + "/cmdline");
      if (!cmdline.open(QIODevice::ReadOnly)) continue;
      const QByteArray args = cmdline.readAll();
      if (args.split('\0').contains("--worker") && args.contains(profile)) return pid.toLongLong();
    }
    return 0;
  }
  // Whether the helper and its office have left.
  bool gone() const { return workerPid() == 0 && !QFile::exists(officeHelperSocketPath()); }

 private:
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
