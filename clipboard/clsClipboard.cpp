#include "clipboard/clsClipboard.h"

#include <algorithm>
#include <array>
#include <utility>

#include "core/ScriptError.h"
#include "platform/DropFiles.h"

namespace velmora {

namespace {

// Names of the standard formats 1..17, as FormatName gives them.
const std::array<const char*, cf::LastStandard> kStandardFormatNames = {
    "Text",                                          // 1
    "Bitmap Picture",                                // 2
    "Meta-File Picture",                             // 3
    "Microsoft Symbolic Link (SYLK) data.",          // 4
    "Software Arts' Data Interchange information.",  // 5
    "Tagged Image File Format (TIFF) Picture",       // 6
    "Text (OEM)",                                    // 7
    "DIB Bitmap Picture",                            // 8
    "Colour Palette",                                // 9
    "Pen Data",                                      // 10
    "RIFF Audio data",                               // 11
    "Wave File",                                     // 12
    "Text (Unicode)",                                // 13
    "Enhanced Meta-File Picture",                    // 14
    "File List",                                     // 15
    "",                                              // 16
    "",                                              // 17
};

// Characters of the buffers the platform fills; it keeps one for the closing NUL.
constexpr int kFormatNameBuffer = 255;
constexpr int kFileNameBuffer = 260;

[[noreturn]] void raiseOpenFailed() {
  throw ScriptError(errnum::ClipboardOpenFailed, QStringLiteral("Unable to Open Clipboard."));
}

}  // namespace

clsClipboard::clsClipboard() : platform_(currentClipboardPlatform()) {}

clsClipboard::~clsClipboard() { ClipboardClose(); }

uint32_t clsClipboard::AddFormat(const QString& sName) {
  const uint32_t id = platform_.registerFormat(sName);
  return id > cf::FirstRegistered ? id : 0;
}

int16_t clsClipboard::FormatCount() { return static_cast<int16_t>(platform_.countFormats()); }

int32_t clsClipboard::GetCurrentFormats(quintptr hWndOwner) {
  m_lFormatID.clear();
  m_sFormatName.clear();
  m_iCount = 0;
  ClipboardOpen(hWndOwner);
  for (uint32_t id = platform_.enumFormats(0); id != 0; id = platform_.enumFormats(id)) {
    ++m_iCount;
    m_lFormatID.append(id);
    m_sFormatName.append(FormatName(id));
  }
  ClipboardClose();
  return m_iCount;
}

qsizetype clsClipboard::snapshotIndex(int32_t lIndex) const {
  if (lIndex < 1 || lIndex > m_iCount)
    throw ScriptError(errnum::SubscriptOutOfRange, QStringLiteral("Subscript out of range"));
  return lIndex - 1;
}

uint32_t clsClipboard::GetCurrentFormatID(int32_t lIndex) const { return m_lFormatID[snapshotIndex(lIndex)]; }

QString clsClipboard::GetCurrentFormatName(int32_t lIndex) const { return m_sFormatName[snapshotIndex(lIndex)]; }

bool clsClipboard::HasCurrentFormat(uint32_t lFormatId) const { return m_lFormatID.contains(lFormatId); }

QString clsClipboard::FormatName(uint32_t lFormatId) {
  if (lFormatId >= 1 && lFormatId <= cf::LastStandard) return QString::fromLatin1(kStandardFormatNames[lFormatId - 1]);
  return platform_.formatName(lFormatId).left(kFormatNameBuffer - 1);
}

uint32_t clsClipboard::FormatIDForName(quintptr hWndOwner, const QString& sFormatName) {
  GetCurrentFormats(hWndOwner);
  const qsizetype at = m_sFormatName.indexOf(sFormatName);
  return at < 0 ? 0 : m_lFormatID[at];
}

bool clsClipboard::IsDataAvailableForFormatName(quintptr hWndOwner, const QString& sFormatName) {
  const uint32_t id = FormatIDForName(hWndOwner, sFormatName);
  return id > 0 && platform_.isFormatAvailable(id);
}

bool clsClipboard::IsDataAvailableForFormat(uint32_t lFormatId) { return platform_.isFormatAvailable(lFormatId); }

bool clsClipboard::GetBinaryData(uint32_t lFormatId, QByteArray& bData) {
  bData.clear();
  const ClipboardMemory handle = GetClipboardMemoryHandle(lFormatId);
  if (!handle) return false;
  if (!handle->isEmpty()) bData = *handle;
  return !handle->isEmpty();
}

ClipboardMemory clsClipboard::GetClipboardMemoryHandle(uint32_t lFormatId) {
  ErrorIfNotOpen();
  return platform_.isFormatAvailable(lFormatId) ? platform_.data(lFormatId) : nullptr;
}

bool clsClipboard::SetBinaryData(uint32_t lFormatId, const QByteArray& bData) {
  ErrorIfNotOpen();
  return platform_.setData(lFormatId, makeClipboardMemory(bData));
}

bool clsClipboard::SetClipboardMemoryHandle(uint32_t lFormatId, ClipboardMemory hMem) {
  return platform_.setData(lFormatId, std::move(hMem));
}

bool clsClipboard::GetTextData(uint32_t lFormatId, QString& sTextOut) {
  if (lFormatId == cf::Text || lFormatId == cf::UnicodeText) {
    // The text service opens the clipboard itself, so this instance lets go of it meanwhile.
    const bool wasOpen = m_bOpen;
    const quintptr owner = m_hWnd;
    if (wasOpen) ClipboardClose();
    const std::optional<QString> text = platform_.text();
    if (wasOpen) ClipboardOpen(owner);
    if (!text) raiseOpenFailed();
    sTextOut = *text;
    return true;
  }
  QByteArray bytes;
  if (!GetBinaryData(lFormatId, bytes)) return false;
  sTextOut = QString::fromUtf8(bytes);
  return true;
}

bool clsClipboard::SetTextData(uint32_t lFormatId, const QString& sText) {
  if (sText.isEmpty()) return false;
  QByteArray bytes;
  bytes.reserve(sText.size());
  for (const QChar c : sText) {
    if (c.unicode() > 0xFF) throw ScriptError(errnum::Overflow, QStringLiteral("Overflow"));
    bytes.append(char(c.unicode()));
  }
  return SetBinaryData(lFormatId, bytes);
}

bool clsClipboard::GetFileList(QStringList& sFiles, int32_t& iFileCount) {
  const ClipboardMemory handle = GetClipboardMemoryHandle(cf::HDrop);
  if (!handle) return false;
  iFileCount = int32_t(dropfiles::count(*handle));
  if (iFileCount < 1) return false;
  sFiles.clear();
  for (int32_t i = 0; i < iFileCount; ++i) {
    QString name = dropfiles::queryFile(*handle, uint32_t(i), kFileNameBuffer);
    const qsizetype nul = name.indexOf(QChar(0));
    sFiles.append(nul < 0 ? name : name.left(nul));
  }
  SortFileNames(sFiles);
  return true;
}

bool clsClipboard::SetFileList(const QStringList& sFiles) {
  ErrorIfNotOpen();
  return SetBinaryData(cf::HDrop, dropfiles::build(sFiles, /*wideNames=*/false));
}

void clsClipboard::ClearClipboard() {
  ErrorIfNotOpen();
  platform_.empty();
}

void clsClipboard::ClipboardClose() {
  if (!m_bOpen) return;
  platform_.close();
  m_bOpen = false;
  m_hWnd = 0;
}

bool clsClipboard::ClipboardOpen(quintptr hWndOwner) {
  if (platform_.open(hWndOwner)) {
    m_bOpen = true;
    m_hWnd = hWndOwner;
    return true;
  }
  m_bOpen = false;
  m_hWnd = 0;
  raiseOpenFailed();
}

void clsClipboard::ErrorIfNotOpen() const {
  if (!m_bOpen)
    throw ScriptError(errnum::ClipboardNotOpen,
                      QStringLiteral("Attempt to access the clipboard when clipboard not Open."));
}

// Ascending by ordinal (code unit) comparison: upper case before lower case.
void clsClipboard::SortFileNames(QStringList& sFiles) {
  std::stable_sort(sFiles.begin(), sFiles.end(),
                   [](const QString& a, const QString& b) { return QString::compare(a, b, Qt::CaseSensitive) < 0; });
}

}  // namespace velmora
