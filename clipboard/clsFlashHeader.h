#pragma once
#include <QByteArray>
#include <QString>

#include "core/Producers.h"

namespace velmora {

// Reads a Flash movie's display size from its header: the signature ("FWS" plain, "CWS"
// zlib-compressed after the first 8 bytes) and the frame-size rectangle, four n-bit twip
// coordinates after a 5-bit field width, packed most significant bit first.
class clsFlashHeader : public FlashHeaderReader {
 public:
  explicit clsFlashHeader(Context& context) : context_(context) {}

  bool Parse(const QString& fileName) override;
  int16_t Width() const override { return m_iWidth; }
  int16_t Height() const override { return m_iHeight; }

 private:
  static bool Inflate(QByteArray& bytes, quint32 expectedLength);

  Context& context_;
  int16_t m_iWidth = 0;
  int16_t m_iHeight = 0;
};

}  // namespace velmora
