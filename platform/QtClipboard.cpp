#include "platform/QtClipboard.h"

#include <xcb/xcb.h>
#include <QBuffer>
#include <QClipboard>
#include <QGuiApplication>
#include <QImage>
#include <QMimeData>
#include <algorithm>
#include <cstdlib>
#include <memory>

#include "platform/ClipboardMime.h"
#include "platform/DropFiles.h"

namespace velmora {

namespace {

using clipboardmime::Presented;

// How long an owner that did not answer is taken as still silent.
constexpr int kSilentOwnerMemoryMs = 10000;

QClipboard* desktopClipboard() {
  return qobject_cast<QGuiApplication*>(QCoreApplication::instance()) ? QGuiApplication::clipboard() : nullptr;
}

// The window that owns the X11 CLIPBOARD selection; 0 when there is none or no X11 display.
uint32_t x11ClipboardOwner() {
  auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
  xcb_connection_t* connection = x11 ? x11->connection() : nullptr;
  if (!connection) return 0;
  static const xcb_atom_t clipboardAtom = [connection] {
    std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(
        xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 0, 9, "CLIPBOARD"), nullptr), &std::free);
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
  }();
  if (clipboardAtom == XCB_ATOM_NONE) return 0;
  std::unique_ptr<xcb_get_selection_owner_reply_t, decltype(&std::free)> reply(
      xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, clipboardAtom), nullptr),
      &std::free);
  return reply ? reply->owner : 0;
}

QByteArray pngOf(const QImage& image) {
  QByteArray png;
  QBuffer buffer(&png);
  buffer.open(QIODevice::WriteOnly);
  return image.save(&buffer, "PNG") ? png : QByteArray();
}

// The offered picture as PNG: the owner's own PNG when it offers one, else its picture converted.
QByteArray pictureAsPng(const QMimeData& mime) {
  if (mime.hasFormat(QStringLiteral("image/png"))) {
    const QByteArray png = mime.data(QStringLiteral("image/png"));
    if (!png.isEmpty()) return png;
  }
  return pngOf(qvariant_cast<QImage>(mime.imageData()));
}

QString sourceUrlOf(const QMimeData& mime) {
  for (const QString& type : clipboardmime::sourceUrlTypes()) {
    if (!mime.hasFormat(type)) continue;
    const QString url = clipboardmime::decodeSourceUrl(mime.data(type));
    if (!url.isEmpty()) return url;
  }
  return QString();
}

}  // namespace

QtClipboard& QtClipboard::instance() {
  static QtClipboard clipboard;
  return clipboard;
}

QtClipboard::QtClipboard()
    : htmlFormat_(registry_.registerName(htmlFormatName())),
      richTextFormat_(registry_.registerName(richTextFormatName())) {}

void QtClipboard::watch(QClipboard* clipboard) {
  if (watched_ == clipboard) return;
  watched_ = clipboard;
  QObject::connect(clipboard, &QClipboard::dataChanged, [this] { silentOwner_ = 0; });
}

std::optional<QStringList> QtClipboard::offeredTypes() {
  QClipboard* clipboard = desktopClipboard();
  if (!clipboard) return std::nullopt;
  watch(clipboard);
  const uint32_t owner = x11ClipboardOwner();
  if (owner != 0 && owner == silentOwner_ && !silentOwnerRemembered_.hasExpired()) return std::nullopt;
  const QMimeData* mime = clipboard->mimeData();
  const QStringList types = mime ? mime->formats() : QStringList();
  // A live owner always lists at least TARGETS: nothing at all means it did not answer.
  if (types.isEmpty() && owner != 0 && !clipboard->ownsClipboard()) {
    silentOwner_ = owner;
    silentOwnerRemembered_.setRemainingTime(kSilentOwnerMemoryMs);
    return std::nullopt;
  }
  return types;
}

std::optional<QtClipboard::Offer> QtClipboard::readOffer() {
  const std::optional<QStringList> types = offeredTypes();
  if (!types) return std::nullopt;
  const QMimeData* mime = desktopClipboard()->mimeData();
  return mime ? present(*mime, *types) : Offer();
}

QtClipboard::Offer QtClipboard::present(const QMimeData& mime, const QStringList& types) {
  Offer offer;
  const auto add = [&offer](uint32_t id, const QString& type) {
    const bool known = std::any_of(offer.begin(), offer.end(), [id](const Offered& f) { return f.id == id; });
    if (id != 0 && !known) offer.push_back({id, type});
  };
  for (const QString& type : types) {
    switch (clipboardmime::classify(type)) {
      case Presented::Hidden: break;
      case Presented::Text:
        add(cf::Text, type);
        add(cf::UnicodeText, type);
        break;
      case Presented::Html: add(htmlFormat_, type); break;
      case Presented::Image: add(cf::Bitmap, type); break;
      case Presented::FileList:
        // Links copied in a browser come as URI lists too; only local files make a file list.
        if (!clipboardmime::localFilesOfUriList(mime.data(type)).isEmpty()) add(cf::HDrop, type);
        break;
      case Presented::RichText: add(richTextFormat_, type); break;
      case Presented::Named: add(registry_.registerName(type), type); break;
    }
  }
  return offer;
}

const QtClipboard::Offer& QtClipboard::liveOrOpenOffer() {
  if (open_) return openOffer_;
  lastLiveOffer_ = readOffer().value_or(Offer());
  return lastLiveOffer_;
}

bool QtClipboard::open(quintptr owner) {
  if (open_ && owner != owner_) return false;
  std::optional<Offer> offer = readOffer();
  if (!offer) return false;
  open_ = true;
  owner_ = owner;
  openOffer_ = std::move(*offer);
  return true;
}

void QtClipboard::close() {
  open_ = false;
  owner_ = 0;
  openOffer_.clear();
}

bool QtClipboard::empty() {
  if (!open_) return false;
  written_.clear();
  desktopClipboard()->clear();
  openOffer_.clear();
  return true;
}

int QtClipboard::countFormats() { return int(liveOrOpenOffer().size()); }

uint32_t QtClipboard::enumFormats(uint32_t after) {
  if (!open_) return 0;
  auto it = openOffer_.begin();
  if (after != 0) {
    it = std::find_if(openOffer_.begin(), openOffer_.end(), [after](const Offered& f) { return f.id == after; });
    if (it != openOffer_.end()) ++it;
  }
  return it == openOffer_.end() ? 0 : it->id;
}

uint32_t QtClipboard::registerFormat(const QString& name) { return registry_.registerName(name); }

QString QtClipboard::formatName(uint32_t id) { return registry_.nameOf(id); }

bool QtClipboard::isFormatAvailable(uint32_t id) {
  const Offer& offer = liveOrOpenOffer();
  return std::any_of(offer.begin(), offer.end(), [id](const Offered& f) { return f.id == id; });
}

ClipboardMemory QtClipboard::data(uint32_t id) {
  if (!open_) return nullptr;
  const auto it = std::find_if(openOffer_.begin(), openOffer_.end(), [id](const Offered& f) { return f.id == id; });
  if (it == openOffer_.end()) return nullptr;
  QByteArray bytes = render(*it);
  // An owner that fails to deliver leaves nothing: the format reads as absent.
  return bytes.isEmpty() ? nullptr : makeClipboardMemory(std::move(bytes));
}

QByteArray QtClipboard::render(const Offered& format) {
  const QMimeData* mime = desktopClipboard()->mimeData();
  if (!mime) return {};
  if (format.id == cf::Text || format.id == cf::UnicodeText) {
    const QString text = mime->text();
    if (text.isEmpty()) return {};
    return format.id == cf::Text ? narrowTextBlock(text) : unicodeTextBlock(text);
  }
  if (format.id == cf::Bitmap) return pictureAsPng(*mime);
  if (format.id == cf::HDrop) {
    const QStringList files = clipboardmime::localFilesOfUriList(mime->data(format.mimeType));
    return files.isEmpty() ? QByteArray() : dropfiles::build(files, /*wideNames=*/true);
  }
  if (format.id == htmlFormat_) {
    // A program may offer the block itself under its own name (as Windows programs do);
    // its HTML is framed anew, so the offsets the readers get always hold.
    QByteArray offered = mime->data(format.mimeType);
    if (format.mimeType == htmlFormatName()) offered = clipboardmime::htmlOfHtmlFormatBlock(offered);
    const QString html = clipboardmime::decodeHtml(offered);
    return html.isEmpty() ? QByteArray() : clipboardmime::htmlFormatBlock(html, sourceUrlOf(*mime));
  }
  return mime->data(format.mimeType);
}

bool QtClipboard::setData(uint32_t id, ClipboardMemory block) {
  QClipboard* clipboard = desktopClipboard();
  if (!open_ || !block || !clipboard) return false;
  // Another program took the clipboard since this process last wrote to it.
  if (!clipboard->ownsClipboard()) written_.clear();

  auto formats = written_;
  const auto it = std::find_if(formats.begin(), formats.end(), [id](const auto& f) { return f.first == id; });
  if (it != formats.end())
    it->second = *block;
  else
    formats.emplace_back(id, *block);

  auto mime = std::make_unique<QMimeData>();
  for (const auto& [format, bytes] : formats)
    if (!addToMime(*mime, format, bytes)) return false;
  written_ = std::move(formats);
  clipboard->setMimeData(mime.release());
  openOffer_ = readOffer().value_or(Offer());
  return true;
}

bool QtClipboard::addToMime(QMimeData& mime, uint32_t id, const QByteArray& bytes) {
  if (id == cf::Text) {
    mime.setText(textOfNarrowBlock(bytes));
  } else if (id == cf::UnicodeText) {
    mime.setText(textOfUnicodeBlock(bytes));
  } else if (id == cf::Bitmap) {
    const QImage picture = QImage::fromData(bytes);
    if (picture.isNull()) return false;
    mime.setImageData(picture);
  } else if (id == cf::HDrop) {
    const QStringList files = dropfiles::names(bytes);
    if (files.isEmpty()) return false;
    mime.setData(QStringLiteral("text/uri-list"), clipboardmime::uriListOfFiles(files));
  } else if (id == htmlFormat_) {
    mime.setData(QStringLiteral("text/html"), clipboardmime::htmlOfHtmlFormatBlock(bytes));
  } else if (id == richTextFormat_) {
    mime.setData(QStringLiteral("text/rtf"), bytes);
  } else {
    const QString name = registry_.nameOf(id);
    if (name.isEmpty()) return false;  // a standard format with no counterpart here
    mime.setData(name, bytes);
  }
  return true;
}

std::optional<QString> QtClipboard::text() {
  if (open_ || !offeredTypes()) return std::nullopt;
  const QMimeData* mime = desktopClipboard()->mimeData();
  return mime ? mime->text() : QString();
}

}  // namespace velmora
