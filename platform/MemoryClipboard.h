#pragma once
#include <utility>
#include <vector>

#include "platform/ClipboardPlatform.h"

namespace velmora {

// A clipboard held in memory, for tests: what "another program" offered is put in with put(),
// in the order the clipboard enumerates it; another holder is simulated with
// setHeldByAnotherProgram(). It keeps the home platform's rules: data can be read and written
// only while the clipboard is open, and the text service cannot open a clipboard that is
// still open.
class MemoryClipboard final : public ClipboardPlatform {
 public:
  explicit MemoryClipboard(uint32_t firstRegisteredId = cf::FirstRegistered + 1);

  // Offers `bytes` under the format (replacing what it held); registers a name first.
  void put(uint32_t id, const QByteArray& bytes);
  uint32_t putNamed(const QString& name, const QByteArray& bytes);
  // Text as a program that copies Unicode text offers it: formats 13 and 1.
  void putText(const QString& text);
  void setHeldByAnotherProgram(bool held) { heldByAnotherProgram_ = held; }

  bool isOpen() const { return open_; }
  quintptr openOwner() const { return owner_; }
  QByteArray bytesOf(uint32_t id) const;

  bool open(quintptr owner) override;
  void close() override;
  bool empty() override;
  int countFormats() override;
  uint32_t enumFormats(uint32_t after) override;
  uint32_t registerFormat(const QString& name) override;
  QString formatName(uint32_t id) override;
  bool isFormatAvailable(uint32_t id) override;
  ClipboardMemory data(uint32_t id) override;
  bool setData(uint32_t id, ClipboardMemory block) override;
  std::optional<QString> text() override;

 private:
  void store(uint32_t id, ClipboardMemory block);

  ClipboardFormatRegistry registry_;
  std::vector<std::pair<uint32_t, ClipboardMemory>> formats_;
  bool open_ = false;
  quintptr owner_ = 0;
  bool heldByAnotherProgram_ = false;
};

}  // namespace velmora
