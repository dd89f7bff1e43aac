#include "officehelper/PrivateProfile.h"

#include <QDir>
#include <QSaveFile>

namespace velmora {

namespace {

struct Setting {
  const char* path;
  const char* name;
  const char* value;
};

constexpr Setting kSettings[] = {
    // Macros: the highest security level, and never run at all.
    {"/org.openoffice.Office.Common/Security/Scripting", "MacroSecurityLevel", "3"},
    {"/org.openoffice.Office.Common/Security/Scripting", "DisableMacrosExecution", "true"},
    // Linked pictures and other outside resources a document names are never loaded.
    {"/org.openoffice.Office.Common/Security/Scripting", "BlockUntrustedRefererLinks", "true"},
    {"/org.openoffice.Office.Writer/Content/Update", "Link", "2"},  // never update links
    {"/org.openoffice.Office.Calc/Content/Update", "Link", "2"},
    // Nothing written beside the user's document, nothing remembered of it.
    {"/org.openoffice.Office.Common/Misc", "UseDocumentOOoLockFile", "false"},
    {"/org.openoffice.Office.Common/Misc", "UseDocumentSystemFileLocking", "false"},
    {"/org.openoffice.Office.Common/Save/Document", "CreateBackup", "false"},
    {"/org.openoffice.Office.Recovery/AutoSave", "Enabled", "false"},
    {"/org.openoffice.Office.Recovery/RecoveryInfo", "Enabled", "false"},
    {"/org.openoffice.Office.Common/History", "PickListSize", "0"},
    // Outside files are named by absolute address in saved pages.
    {"/org.openoffice.Office.Common/Save/URL", "FileSystem", "false"},
    {"/org.openoffice.Office.Common/Save/URL", "Internet", "false"},
    // The corner marks of the text area are a screen aid, not part of the page.
    {"/org.openoffice.Office.UI/ColorScheme/ColorSchemes/org.openoffice.Office.UI:ColorScheme['LibreOffice']/"
     "DocBoundaries",
     "IsVisible", "false"},
};

QByteArray settingLine(const Setting& s) {
  return QByteArray("<item oor:path=\"") + s.path + "\"><prop oor:name=\"" + s.name + "\" oor:op=\"fuse\"><value>" +
         s.value + "</value></prop></item>";
}

// The settings file with ours in force. LibreOffice keeps its own entries there too (the
// version it last checked the profile against, among others); without them every start
// would redo a first start's work, so they stay, and only the lines setting our values
// are written again. LibreOffice writes one entry per line.
QByteArray registryModifications(const QByteArray& existing) {
  QByteArray kept;
  for (const QByteArray& line : existing.split('\n')) {
    if (!line.startsWith("<item ")) continue;
    bool ours = false;
    for (const Setting& s : kSettings)
      ours = ours || (line.contains(QByteArray("oor:path=\"") + s.path + "\"><prop oor:name=\"" + s.name + "\""));
    if (!ours) kept += line + '\n';
  }
  QByteArray xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<oor:items xmlns:oor=\"http://openoffice.org/2001/registry\" xmlns:xs=\"http://www.w3.org/2001/XMLSchema\" "
      "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n" +
      kept;
  for (const Setting& s : kSettings) xml += settingLine(s) + '\n';
  return xml + "</oor:items>\n";
}

}  // namespace

Outcome writePrivateProfile(const QString& folder) {
  const QString user = folder + QStringLiteral("/user");
  if (!QDir().mkpath(user)) return Failure{QStringLiteral("CreateObject:"), QStringLiteral("cannot create ") + user};
  QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
  const QString path = user + QStringLiteral("/registrymodifications.xcu");
  QByteArray existing;
  if (QFile old(path); old.open(QIODevice::ReadOnly)) existing = old.readAll();
  QSaveFile file(path);
  if (!file.open(QIODevice::WriteOnly) || file.write(registryModifications(existing)) < 0 || !file.commit())
    return Failure{QStringLiteral("CreateObject:"),
                   QStringLiteral("cannot write the office profile: ") + file.errorString()};
  return {};
}

}  // namespace velmora
