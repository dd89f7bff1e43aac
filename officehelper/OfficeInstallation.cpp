#include "officehelper/OfficeInstallation.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QUrl>

#include "officehelper/PrivateProfile.h"

namespace velmora {

namespace {

bool holdsLibreOffice(const QString& folder) {
  return QFileInfo::exists(folder + QStringLiteral("/libmergedlo.so")) ||
         QFileInfo::exists(folder + QStringLiteral("/libsofficeapp.so"));
}

}  // namespace

QString libreOfficeProgramFolder() {
  if (qEnvironmentVariableIsSet("VELMORA_LIBREOFFICE_PROGRAM")) {
    const QString named = qEnvironmentVariable("VELMORA_LIBREOFFICE_PROGRAM");
    return holdsLibreOffice(named) ? named : QString();
  }
  for (const QString& folder :
       {QStringLiteral("/usr/lib/libreoffice/program"), QStringLiteral("/opt/libreoffice/program")})
    if (holdsLibreOffice(folder)) return folder;
  for (const QString& dir : qEnvironmentVariable("PATH").split(u':', Qt::SkipEmptyParts)) {
    const QFileInfo soffice(dir + QStringLiteral("/soffice"));
    if (soffice.exists()) return QFileInfo(soffice.canonicalFilePath()).absolutePath();
  }
  return {};
}

Result<QString> prepareLibreOffice(const QString& profileFolder) {
  if (const Outcome profile = writePrivateProfile(profileFolder); !profile) return profile.failure();
  const QString program = libreOfficeProgramFolder();
  if (program.isEmpty())
    return Failure{QStringLiteral("CreateObject:"),
                   QStringLiteral("LibreOffice is not installed: install the packages libreoffice-writer-nogui "
                                  "(documents), libreoffice-calc-nogui (sheets) and libreoffice-impress-nogui "
                                  "(slides)")};
  return program;
}

QString fileUrl(const QString& path) { return QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded); }

QString readableLoadFailure(const QString& text) {
  // What LibreOffice says for a damaged file, a password-protected one and a file in no
  // form it knows alike.
  if (text.isEmpty() || text.contains(QStringLiteral("empty reference")) ||
      text.contains(QStringLiteral("type detection failed")))
    return QStringLiteral("the file is damaged, protected by a password, or not a document LibreOffice reads");
  const QRegularExpressionMatch quoted = QRegularExpression(QStringLiteral("\"([^\"]+)\"")).match(text);
  if (quoted.hasMatch()) return quoted.captured(1);
  return text.section(QStringLiteral(" at "), 0, 0);
}

QString whyNotADocument(const QString& path) {
  const QFileInfo file(path);
  if (!file.isFile()) return QStringLiteral("there is no such file");
  if (file.size() == 0) return QStringLiteral("the file is empty");
  return {};
}

}  // namespace velmora
