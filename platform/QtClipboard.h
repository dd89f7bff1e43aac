#pragma once
#include <QDeadlineTimer>
#include <QPointer>
#include <QStringList>
#include <utility>
#include <vector>

#include "platform/ClipboardPlatform.h"

class QClipboard;
class QMimeData;

namespace velmora {

// The desktop's clipboard (on X11 the CLIPBOARD selection, through Qt's xcb platform), with
// the MIME types programs offer presented as clipboard formats (see ClipboardMime.h):
// "HTML Format", 1 and 13 (text), 2 (picture: PNG bytes), 15 (file-drop block with wide
// names), "Rich Text Format", and every other MIME type as a registered format named by it.
// Registered ids are handed out from 0xC001 and stay with their names for the process.
//
// X11 has no clipboard lock: "open" takes a snapshot of the offered formats, and fails when
// the selection has an owner that does not answer (Qt gives up on it after about 5 s). Such a
// silent owner is remembered for a short while, or until the clipboard changes hands, so the
// queries of one call do not each wait for it again. Data is fetched from the owner when it is read. Qt learns that
// another program took the clipboard from the event loop, which the hosts run between calls.
//
// Writes replace the whole clipboard with what this process wrote since it last became the
// owner: 1 and 13 as text/plain, 2 as a picture (the block holds an encoded image), 15 as
// text/uri-list, "HTML Format" as its HTML in text/html, "Rich Text Format" as text/rtf and a
// registered format under its name. The other standard formats have no counterpart here.
class QtClipboard final : public ClipboardPlatform {
 public:
  static QtClipboard& instance();

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
  // One presented format and the MIME type that carries it.
  struct Offered {
    uint32_t id;
    QString mimeType;
  };
  using Offer = std::vector<Offered>;

  QtClipboard();
  // Forgets a silent owner when Qt sees the clipboard change hands.
  void watch(QClipboard* clipboard);
  // The MIME types offered now; nothing when the clipboard cannot be reached or its owner does
  // not answer.
  std::optional<QStringList> offeredTypes();
  std::optional<Offer> readOffer();
  Offer present(const QMimeData& mime, const QStringList& types);
  const Offer& liveOrOpenOffer();
  QByteArray render(const Offered& format);
  bool addToMime(QMimeData& mime, uint32_t id, const QByteArray& bytes);

  ClipboardFormatRegistry registry_;
  const uint32_t htmlFormat_;
  const uint32_t richTextFormat_;
  bool open_ = false;
  quintptr owner_ = 0;
  Offer openOffer_;
  Offer lastLiveOffer_;
  std::vector<std::pair<uint32_t, QByteArray>> written_;
  QPointer<QClipboard> watched_;
  uint32_t silentOwner_ = 0;
  QDeadlineTimer silentOwnerRemembered_;
};

}  // namespace velmora
