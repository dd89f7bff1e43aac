#include "platform/ClipboardPlatform.h"

#include <QtEndian>

#include "platform/QtClipboard.h"

namespace velmora {

QByteArray narrowTextBlock(const QString& text) { return text.toLatin1() + '\0'; }

QByteArray unicodeTextBlock(const QString& text) {
  QByteArray block;
  for (const QChar c : text) {
    char unit[2];
    qToLittleEndian(c.unicode(), unit);
    block.append(unit, 2);
  }
  return block + QByteArray(2, '\0');
}

QString textOfNarrowBlock(const QByteArray& block) {
  const qsizetype nul = block.indexOf('\0');
  return QString::fromLatin1(nul < 0 ? block : block.left(nul));
}

QString textOfUnicodeBlock(const QByteArray& block) {
  QString text;
  for (qsizetype at = 0; at + 1 < block.size(); at += 2) {
    const char16_t unit = qFromLittleEndian<char16_t>(block.constData() + at);
    if (unit == 0) break;
    text.append(QChar(unit));
  }
  return text;
}

ClipboardFormatRegistry::ClipboardFormatRegistry(uint32_t firstId) : firstId_(firstId) {}

uint32_t ClipboardFormatRegistry::registerName(const QString& name) {
  if (name.isEmpty()) return 0;
  if (const uint32_t known = find(name)) return known;
  const uint64_t id = uint64_t{firstId_} + names_.size();
  if (id > cf::LastRegistered) return 0;
  names_.push_back(name);
  idsByFoldedName_.insert(name.toCaseFolded(), static_cast<uint32_t>(id));
  return static_cast<uint32_t>(id);
}

uint32_t ClipboardFormatRegistry::find(const QString& name) const {
  return idsByFoldedName_.value(name.toCaseFolded(), 0);
}

QString ClipboardFormatRegistry::nameOf(uint32_t id) const {
  if (id < firstId_ || id - firstId_ >= names_.size()) return QString();
  return names_[id - firstId_];
}

namespace {
ClipboardPlatform* installedPlatform = nullptr;
}

ClipboardPlatform& currentClipboardPlatform() {
  return installedPlatform ? *installedPlatform : QtClipboard::instance();
}

ScopedClipboardPlatform::ScopedClipboardPlatform(ClipboardPlatform& platform) : previous_(installedPlatform) {
  installedPlatform = &platform;
}

ScopedClipboardPlatform::~ScopedClipboardPlatform() { installedPlatform = previous_; }

}  // namespace velmora
