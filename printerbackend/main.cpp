// velmora-printer-backend: the CUPS backend of the virtual printer "VelmoraPrinter". CUPS
// runs it as `backend job-id user title copies options [file]` for each job of the queue
// (as root when its mode is 0700), and without arguments to list the devices it serves.
// It prints for the user who printed: it becomes that user before it touches anything,
// talks with the user's control through the printer's settings key of that user's
// registry store, and writes the pictures into that user's working folder only.
#include <grp.h>
#include <pwd.h>
#include <unistd.h>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryFile>
#include <cstdio>
#include <optional>

#include "printerbackend/PrintJob.h"
#include "printerbackend/PrinterValues.h"

using namespace velmora;

namespace {

// CUPS's backend exit codes: the job done (or refused on its own), or cancelled.
constexpr int kBackendOk = 0;
constexpr int kBackendCancel = 5;

void log(const char* level, const QString& text) { std::fprintf(stderr, "%s: %s\n", level, qPrintable(text)); }

// Becomes `user` for good; a backend run by that user already is them.
bool becomeUser(const passwd& user) {
  if (geteuid() == user.pw_uid) return true;
  if (geteuid() != 0) return false;
  return initgroups(user.pw_name, user.pw_gid) == 0 && setgid(user.pw_gid) == 0 && setuid(user.pw_uid) == 0 &&
         geteuid() == user.pw_uid;
}

// The job as a file: the one CUPS names, or standard input copied aside.
std::optional<QString> jobFile(int argc, char** argv, QTemporaryFile& copy) {
  if (argc == 7) return QFile::decodeName(argv[6]);
  QFile input;
  if (!input.open(stdin, QIODevice::ReadOnly) || !copy.open()) return std::nullopt;
  while (!input.atEnd())
    if (copy.write(input.read(1 << 20)) < 0) return std::nullopt;
  copy.flush();
  return copy.fileName();
}

PrintSettings settingsFrom(const PrinterValues& values) {
  PrintSettings settings;
  settings.fileFormat = values.get(QStringLiteral("file_format"));
  bool number = false;
  const int quality = values.get(QStringLiteral("jpg_quality")).toInt(&number);
  if (number) settings.jpgQuality = std::clamp(quality, 1, 100);
  settings.path = values.get(QStringLiteral("path"));
  settings.fileName = values.get(QStringLiteral("file_name"));
  return settings;
}

int runJob(int argc, char** argv) {
  const passwd* found = getpwnam(argv[2]);
  if (!found) {
    log("ERROR", QStringLiteral("there is no user %1 to print for").arg(QString::fromLocal8Bit(argv[2])));
    return kBackendCancel;
  }
  const passwd user = *found;
  if (!becomeUser(user)) {
    log("ERROR", QStringLiteral("cannot print as %1").arg(QString::fromLocal8Bit(user.pw_name)));
    return kBackendCancel;
  }
  PrinterValues values(PrinterValues::folderOf(user.pw_uid));
  values.set(QStringLiteral("progressflag"), QStringLiteral("begin"));
  QElapsedTimer working;
  working.start();
  const PrintSettings settings = settingsFrom(values);
  PrintedJob printed;
  QTemporaryFile copy;
  if (const QString refused = settingsRefusal(settings, user.pw_uid); !refused.isEmpty()) {
    log("ERROR", QStringLiteral("refused: ") + refused);
  } else if (const std::optional<QString> file = jobFile(argc, argv, copy)) {
    printed = printPages(*file, settings);
    if (!printed.failure.isEmpty()) log("ERROR", printed.failure);
  } else {
    log("ERROR", QStringLiteral("the job could not be read"));
  }
  values.set(QStringLiteral("r_pagecount"), QString::number(printed.pages));
  values.set(QStringLiteral("r_filecount"), QString::number(printed.files));
  values.set(QStringLiteral("progressflag"), QStringLiteral("end"));
  log("INFO", QStringLiteral("%1 page(s), %2 picture(s) in %3 s")
                  .arg(printed.pages)
                  .arg(printed.files)
                  .arg(working.elapsed() / 1000.0, 0, 'f', 2));
  return kBackendOk;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 1) {
    std::puts("direct velmora:/ \"Velmora\" \"Velmora virtual printer (pages to pictures)\"");
    return kBackendOk;
  }
  if (argc < 6 || argc > 7) {
    std::fprintf(stderr, "usage: %s job-id user title copies options [file]\n", argv[0]);
    return kBackendCancel;
  }
  QCoreApplication app(argc, argv);  // the picture encoders' plug-ins
  return runJob(argc, argv);
}
