#include "platform/MemoryClipboard.h"

#include <algorithm>

namespace velmora {

MemoryClipboard::MemoryClipboard(uint32_t firstRegisteredId) : registry_(firstRegisteredId) {}

void MemoryClipboard::store(uint32_t id, ClipboardMemory block) {
  auto it = std::find_if(formats_.begin(), formats_.end(), [id](const auto& entry) { return entry.first == id; });
  if (it != formats_.end())
    it->second = std::move(block);
  else
    formats_.emplace_back(id, std::move(block));
}

void MemoryClipboard::put(uint32_t id, const QByteArray& bytes) { store(id, makeClipboardMemory(bytes)); }

uint32_t MemoryClipboard::putNamed(const QString& name, const QByteArray& bytes) {
  const uint32_t id = registry_.registerName(name);
  put(id, bytes);
  return id;
}

void MemoryClipboard::putText(const QString& text) {
  put(cf::UnicodeText, unicodeTextBlock(text));
  put(cf::Text, narrowTextBlock(text));
}

QByteArray MemoryClipboard::bytesOf(uint32_t id) const {
  for (const auto& [format, block] : formats_)
    if (format == id) return *block;
  return {};
}

bool MemoryClipboard::open(quintptr owner) {
  if (heldByAnotherProgram_ || (open_ && owner != owner_)) return false;
  open_ = true;
  owner_ = owner;
  return true;
}

void MemoryClipboard::close() {
  open_ = false;
  owner_ = 0;
}

bool MemoryClipboard::empty() {
  if (!open_) return false;
  formats_.clear();
  return true;
}

int MemoryClipboard::countFormats() { return int(formats_.size()); }

uint32_t MemoryClipboard::enumFormats(uint32_t after) {
  if (!open_) return 0;
  auto it = formats_.begin();
  if (after != 0) {
    it = std::find_if(formats_.begin(), formats_.end(), [after](const auto& entry) { return entry.first == after; });
    if (it != formats_.end()) ++it;
  }
  return it == formats_.end() ? 0 : it->first;
}

uint32_t MemoryClipboard::registerFormat(const QString& name) { return registry_.registerName(name); }

QString MemoryClipboard::formatName(uint32_t id) { return registry_.nameOf(id); }

bool MemoryClipboard::isFormatAvailable(uint32_t id) {
  return std::any_of(formats_.begin(), formats_.end(), [id](const auto& entry) { return entry.first == id; });
}

ClipboardMemory MemoryClipboard::data(uint32_t id) {
  if (!open_) return nullptr;
  for (const auto& [format, block] : formats_)
    if (format == id) return block;
  return nullptr;
}

bool MemoryClipboard::setData(uint32_t id, ClipboardMemory block) {
  if (!open_ || !block || id == 0) return false;
  store(id, std::move(block));
  return true;
}

std::optional<QString> MemoryClipboard::text() {
  if (open_ || heldByAnotherProgram_) return std::nullopt;
  if (isFormatAvailable(cf::UnicodeText)) return textOfUnicodeBlock(bytesOf(cf::UnicodeText));
  return textOfNarrowBlock(bytesOf(cf::Text));
}

}  // namespace velmora
