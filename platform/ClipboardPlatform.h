#pragma once
#include <QByteArray>
#include <QHash>
#include <QString>
#include <QtGlobal>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace velmora {

// Clipboard format identifiers: 1 to 17 are the standard formats, 0xC000 and up are formats
// registered by name.
namespace cf {
constexpr uint32_t Text = 1;
constexpr uint32_t Bitmap = 2;
constexpr uint32_t MetaFilePict = 3;
constexpr uint32_t Tiff = 6;
constexpr uint32_t Dib = 8;
constexpr uint32_t UnicodeText = 13;
constexpr uint32_t EnhMetaFile = 14;
constexpr uint32_t HDrop = 15;
constexpr uint32_t LastStandard = 17;
constexpr uint32_t FirstRegistered = 0xC000;
constexpr uint32_t LastRegistered = 0xFFFF;
}  // namespace cf

// Names of the registered formats the system relies on.
inline QString htmlFormatName() { return QStringLiteral("HTML Format"); }
inline QString richTextFormatName() { return QStringLiteral("Rich Text Format"); }

// A block of clipboard memory: what the clipboard hands out for a format and what is handed
// to it. A null pointer is "no block" (the handle 0).
using ClipboardMemory = std::shared_ptr<const QByteArray>;
inline ClipboardMemory makeClipboardMemory(QByteArray bytes) {
  return std::make_shared<const QByteArray>(std::move(bytes));
}

// The blocks of the two text formats: 1 holds one byte per character (characters above 255
// become '?') and 13 UTF-16 little-endian, each closed by a NUL. Reading stops at the first NUL.
QByteArray narrowTextBlock(const QString& text);
QByteArray unicodeTextBlock(const QString& text);
QString textOfNarrowBlock(const QByteArray& block);
QString textOfUnicodeBlock(const QByteArray& block);

// Format names registered with the clipboard. Names are matched without regard to case and
// keep the spelling they were first registered with; an id, once given, stays with its name
// for the life of the registry.
class ClipboardFormatRegistry {
 public:
  // 0xC000 itself is not handed out by default: AddFormat reads that answer as a failure.
  explicit ClipboardFormatRegistry(uint32_t firstId = cf::FirstRegistered + 1);
  // The name's id, registering it first if needed; 0 for an empty name or a full registry.
  uint32_t registerName(const QString& name);
  // 0 when the name was never registered.
  uint32_t find(const QString& name) const;
  // "" when the id was never handed out.
  QString nameOf(uint32_t id) const;

 private:
  uint32_t firstId_;
  std::vector<QString> names_;  // names_[id - firstId_]
  QHash<QString, uint32_t> idsByFoldedName_;
};

// The clipboard as the layer above sees it: the operations of the home platform's clipboard
// interface, one to one. A read or a write of data needs the clipboard open through open();
// counting formats, testing one, registering and naming formats do not. open() fails while
// another holder keeps the clipboard (or its owner does not answer).
class ClipboardPlatform {
 public:
  virtual ~ClipboardPlatform() = default;

  virtual bool open(quintptr owner) = 0;
  virtual void close() = 0;
  // Removes every format; needs the clipboard open.
  virtual bool empty() = 0;

  virtual int countFormats() = 0;
  // The format after `after` (0 = the first one), or 0 at the end; needs the clipboard open.
  virtual uint32_t enumFormats(uint32_t after) = 0;
  virtual uint32_t registerFormat(const QString& name) = 0;
  // The registered name of a format id, "" for an id that has none.
  virtual QString formatName(uint32_t id) = 0;
  virtual bool isFormatAvailable(uint32_t id) = 0;

  // The format's block, or null when it is not offered or the clipboard is not open.
  virtual ClipboardMemory data(uint32_t id) = 0;
  // Hands a block to the clipboard for that format; needs the clipboard open.
  virtual bool setData(uint32_t id, ClipboardMemory block) = 0;

  // The clipboard's text through the platform's text service, which opens and closes the
  // clipboard itself: "" when no text is offered, nothing when the clipboard cannot be opened
  // (another holder keeps it, including a caller that still has it open).
  virtual std::optional<QString> text() = 0;
};

// The clipboard every clsClipboard created from now on uses: by default the desktop's own
// (QtClipboard); tests put an in-memory one in its place with ScopedClipboardPlatform.
ClipboardPlatform& currentClipboardPlatform();

class ScopedClipboardPlatform {
 public:
  explicit ScopedClipboardPlatform(ClipboardPlatform& platform);
  ~ScopedClipboardPlatform();
  ScopedClipboardPlatform(const ScopedClipboardPlatform&) = delete;
  ScopedClipboardPlatform& operator=(const ScopedClipboardPlatform&) = delete;

 private:
  ClipboardPlatform* previous_;
};

}  // namespace velmora
