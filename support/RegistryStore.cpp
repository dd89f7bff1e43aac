#include "support/RegistryStore.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLockFile>
#include <QSaveFile>
#include <QStandardPaths>
#include <QThread>

namespace velmora {
namespace {

// A key is {"name": its spelling, "keys": {folded name: key}, "values": {folded name:
// value}}; a value is {"name": its spelling, "type": number, "data": ...}. The document
// holds the four roots under their names.
const QString kName = QStringLiteral("name");
const QString kKeys = QStringLiteral("keys");
const QString kValues = QStringLiteral("values");
const QString kType = QStringLiteral("type");
const QString kData = QStringLiteral("data");

constexpr int kLockWaitMs = 10000;

QString rootName(uint32_t root) {
  switch (root) {
    case registryroot::ClassesRoot: return QStringLiteral("HKEY_CLASSES_ROOT");
    case registryroot::CurrentUser: return QStringLiteral("HKEY_CURRENT_USER");
    case registryroot::LocalMachine: return QStringLiteral("HKEY_LOCAL_MACHINE");
    case registryroot::Users: return QStringLiteral("HKEY_USERS");
  }
  return QString();
}

QString folded(const QString& name) { return name.toCaseFolded(); }

// The key names from the root down; nothing when a segment is empty.
std::optional<QStringList> splitPath(QString path) {
  if (path.endsWith(u'\\')) path.chop(1);
  if (path.isEmpty()) return QStringList();
  const QStringList segments = path.split(u'\\');
  if (segments.contains(QString())) return std::nullopt;
  return segments;
}

std::optional<QJsonObject> descend(QJsonObject key, const QStringList& segments) {
  for (const QString& segment : segments) {
    const QJsonValue subkey = key[kKeys].toObject().value(folded(segment));
    if (!subkey.isObject()) return std::nullopt;
    key = subkey.toObject();
  }
  return key;
}

// JSON objects are values: a change deep down is copied back up level by level.
bool changeBelow(QJsonObject& key, const QStringList& segments, bool create,
                 const std::function<bool(QJsonObject&)>& change) {
  if (segments.isEmpty()) return change(key);
  QJsonObject subkeys = key[kKeys].toObject();
  const QString name = folded(segments.first());
  const bool present = subkeys.value(name).isObject();
  if (!present && !create) return false;
  QJsonObject subkey = present ? subkeys.value(name).toObject() : QJsonObject{{kName, segments.first()}};
  if (!changeBelow(subkey, segments.mid(1), create, change)) return false;
  subkeys.insert(name, subkey);
  key.insert(kKeys, subkeys);
  return true;
}

QStringList spellings(const QJsonObject& entries) {
  QStringList names;
  for (const QJsonValue& entry : entries) names << entry.toObject().value(kName).toString();
  return names;
}

QJsonValue encodedData(const RegistryValue& value) {
  switch (value.type) {
    case registrytype::String:
    case registrytype::ExpandString: return value.data.toString();
    case registrytype::Number:
    case registrytype::BigEndianNumber: return qint64(value.data.toUInt());
    case registrytype::StringList: return QJsonArray::fromStringList(value.data.toStringList());
  }
  return QString::fromLatin1(value.data.toByteArray().toBase64());
}

QVariant decodedData(uint32_t type, const QJsonValue& data) {
  switch (type) {
    case registrytype::String:
    case registrytype::ExpandString: return data.toString();
    case registrytype::Number:
    case registrytype::BigEndianNumber: return quint32(data.toInteger());
    case registrytype::StringList: {
      QStringList items;
      for (const QJsonValue& item : data.toArray()) items << item.toString();
      return items;
    }
  }
  return QByteArray::fromBase64(data.toString().toLatin1());
}

// Makes `folder` and its missing parents, each open to its owner alone. Another store
// may make the same folder at the same moment.
bool makePrivateFolder(const QString& folder) {
  const QFileInfo info(folder);
  if (info.isDir()) return true;
  if (!makePrivateFolder(info.absolutePath())) return false;
  return QDir().mkdir(info.absoluteFilePath(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner) ||
         QFileInfo(folder).isDir();
}

// QLockFile's own wait doubles its pause up to five seconds; a change holds the lock for
// milliseconds, so waiting writers poll at a short interval instead.
bool acquire(QLockFile& lock) {
  const QDeadlineTimer deadline(kLockWaitMs);
  while (!lock.tryLock(0)) {
    if (lock.error() != QLockFile::LockFailedError || deadline.hasExpired()) return false;
    QThread::msleep(1);
  }
  return true;
}

}  // namespace

// The values kept here (the virtual printer's protocol values among them) belong to one
// user and one login session. The user's own programs read and write them, and so does the
// printer backend that prints the user's job: it runs as that user and finds the folder
// from the user's id (/run/user/<uid>/velmora/registry). Nobody else may read them, and
// the runtime folder is the user's alone (mode 0700).
QString RegistryStore::defaultFolder() {
  const QString chosen = qEnvironmentVariable("VELMORA_REGISTRY_DIR");
  if (!chosen.isEmpty()) return chosen;
  const QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
  return runtime.isEmpty() ? QString() : runtime + QStringLiteral("/velmora/registry");
}

bool RegistryStore::isRoot(uint32_t root) { return !rootName(root).isEmpty(); }

// No folder (no runtime folder known) means no file: nothing reads, every change fails.
QString RegistryStore::filePath() const {
  return folder_.isEmpty() ? QString() : folder_ + QStringLiteral("/registry.json");
}

std::optional<RegistryValue> RegistryStore::readValue(uint32_t root, const QString& path, const QString& name) const {
  const std::optional<QJsonObject> key = findKey(root, path);
  if (!key) return std::nullopt;
  const QJsonValue value = (*key)[kValues].toObject().value(folded(name));
  if (!value.isObject()) return std::nullopt;
  const auto type = uint32_t(value[kType].toInteger());
  return RegistryValue{type, decodedData(type, value[kData])};
}

bool RegistryStore::keyExists(uint32_t root, const QString& path) const { return findKey(root, path).has_value(); }

QStringList RegistryStore::valueNames(uint32_t root, const QString& path) const {
  const std::optional<QJsonObject> key = findKey(root, path);
  return key ? spellings((*key)[kValues].toObject()) : QStringList();
}

QStringList RegistryStore::subkeyNames(uint32_t root, const QString& path) const {
  const std::optional<QJsonObject> key = findKey(root, path);
  return key ? spellings((*key)[kKeys].toObject()) : QStringList();
}

bool RegistryStore::writeValue(uint32_t root, const QString& path, const QString& name, const RegistryValue& value) {
  return changeKey(root, path, /*create=*/true, [&](QJsonObject& key) {
    QJsonObject values = key[kValues].toObject();
    const QString spelling = values.value(folded(name))[kName].toString(name);
    values.insert(folded(name),
                  QJsonObject{{kName, spelling}, {kType, qint64(value.type)}, {kData, encodedData(value)}});
    key.insert(kValues, values);
    return true;
  });
}

bool RegistryStore::createKey(uint32_t root, const QString& path) {
  return changeKey(root, path, /*create=*/true, [](QJsonObject&) { return true; });
}

bool RegistryStore::deleteKey(uint32_t root, const QString& path) {
  const std::optional<QStringList> segments = splitPath(path);
  if (!segments || segments->isEmpty()) return false;
  const QString name = folded(segments->last());
  return changeKey(root, segments->mid(0, segments->size() - 1), /*create=*/false, [&](QJsonObject& parent) {
    QJsonObject subkeys = parent[kKeys].toObject();
    if (!subkeys.contains(name)) return false;
    subkeys.remove(name);
    parent.insert(kKeys, subkeys);
    return true;
  });
}

bool RegistryStore::deleteValue(uint32_t root, const QString& path, const QString& name) {
  return changeKey(root, path, /*create=*/false, [&](QJsonObject& key) {
    QJsonObject values = key[kValues].toObject();
    if (!values.contains(folded(name))) return false;
    values.remove(folded(name));
    key.insert(kValues, values);
    return true;
  });
}

// Unlocked: the file is only ever replaced whole by a rename, so a reader sees the old
// document or the new one. A damaged file reads as the empty document.
QJsonObject RegistryStore::load() const {
  QFile file(filePath());
  if (!file.open(QIODevice::ReadOnly)) return {};
  return QJsonDocument::fromJson(file.readAll()).object();
}

std::optional<QJsonObject> RegistryStore::findKey(uint32_t root, const QString& path) const {
  const std::optional<QStringList> segments = splitPath(path);
  if (!isRoot(root) || !segments) return std::nullopt;
  return descend(load()[rootName(root)].toObject(), *segments);
}

bool RegistryStore::changeKey(uint32_t root, const QString& path, bool create, const KeyChange& change) {
  const std::optional<QStringList> segments = splitPath(path);
  return segments && changeKey(root, *segments, create, change);
}

// The file is read afresh under the lock, so a change made by another store since this
// one last looked is kept.
bool RegistryStore::changeKey(uint32_t root, const QStringList& segments, bool create, const KeyChange& change) {
  if (!isRoot(root) || folder_.isEmpty() || !makePrivateFolder(folder_)) return false;
  QLockFile lock(filePath() + QStringLiteral(".lock"));
  if (!acquire(lock)) return false;
  QJsonObject document = load();
  QJsonObject rootKey = document[rootName(root)].toObject();
  if (!changeBelow(rootKey, segments, create, change)) return false;
  document.insert(rootName(root), rootKey);
  return save(document);
}

bool RegistryStore::save(const QJsonObject& document) const {
  QSaveFile file(filePath());
  if (!file.open(QIODevice::WriteOnly) || !file.setPermissions(QFile::ReadOwner | QFile::WriteOwner)) return false;
  file.write(QJsonDocument(document).toJson(QJsonDocument::Compact));
  return file.commit();
}

}  // namespace velmora
