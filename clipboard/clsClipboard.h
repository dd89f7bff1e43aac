#pragma once
#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>
#include <cstdint>

#include "platform/ClipboardPlatform.h"

namespace velmora {

namespace errnum {
// 1570 and 1571 above the user error base.
constexpr long ClipboardNotOpen = 0x80040622L;
constexpr long ClipboardOpenFailed = 0x80040623L;
}  // namespace errnum

// Opens and closes the clipboard, keeps a snapshot of the formats it offers (id and name of
// each) and reads or writes data by format. It works over the clipboard platform that is
// current when the instance is created (currentClipboardPlatform()).
//
// Indices of the snapshot are 1-based as the callers count them; an index outside 1..count
// raises "Subscript out of range". The file list of GetFileList is 0-based (files[0] is the
// first name). Errors are raised as ScriptError:
//   errnum::ClipboardOpenFailed "Unable to Open Clipboard." when another holder keeps it;
//   errnum::ClipboardNotOpen "Attempt to access the clipboard when clipboard not Open." when
//   an operation that needs the clipboard open runs while it is closed.
class clsClipboard {
 public:
  clsClipboard();
  ~clsClipboard();
  clsClipboard(const clsClipboard&) = delete;
  clsClipboard& operator=(const clsClipboard&) = delete;

  uint32_t AddFormat(const QString& sName);
  int16_t FormatCount();
  int32_t GetCurrentFormats(quintptr hWndOwner);
  uint32_t GetCurrentFormatID(int32_t lIndex) const;
  QString GetCurrentFormatName(int32_t lIndex) const;
  bool HasCurrentFormat(uint32_t lFormatId) const;
  QString FormatName(uint32_t lFormatId);
  uint32_t FormatIDForName(quintptr hWndOwner, const QString& sFormatName);
  bool IsDataAvailableForFormatName(quintptr hWndOwner, const QString& sFormatName);
  bool IsDataAvailableForFormat(uint32_t lFormatId);
  bool GetBinaryData(uint32_t lFormatId, QByteArray& bData);
  ClipboardMemory GetClipboardMemoryHandle(uint32_t lFormatId);
  bool SetBinaryData(uint32_t lFormatId, const QByteArray& bData);
  bool SetClipboardMemoryHandle(uint32_t lFormatId, ClipboardMemory hMem);
  bool GetTextData(uint32_t lFormatId, QString& sTextOut);
  bool SetTextData(uint32_t lFormatId, const QString& sText);
  bool GetFileList(QStringList& sFiles, int32_t& iFileCount);
  bool SetFileList(const QStringList& sFiles);
  void ClearClipboard();
  void ClipboardClose();
  bool ClipboardOpen(quintptr hWndOwner);

  bool IsOpen() const { return m_bOpen; }
  quintptr OwnerWindow() const { return m_hWnd; }

 private:
  void ErrorIfNotOpen() const;
  static void SortFileNames(QStringList& sFiles);
  qsizetype snapshotIndex(int32_t lIndex) const;

  ClipboardPlatform& platform_;
  QVector<uint32_t> m_lFormatID;
  QVector<QString> m_sFormatName;
  int32_t m_iCount = 0;
  bool m_bOpen = false;
  quintptr m_hWnd = 0;
};

}  // namespace velmora
