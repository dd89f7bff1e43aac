#include <gtest/gtest.h>
#include <zlib.h>
#include <QtEndian>

#include "clipboard/clsFlashHeader.h"
#include "tests/common/Helpers.h"
#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

// Packs the frame rectangle as a movie stores it: a 5-bit field width, then the four
// fields, most significant bit first, padded to whole bytes, followed by some frame data.
QByteArray rectangle(int bits, quint32 xmin, quint32 xmax, quint32 ymin, quint32 ymax) {
  QByteArray out;
  quint64 acc = 0;
  int used = 0;
  auto put = [&](quint32 value, int width) {
    for (int i = width - 1; i >= 0; --i) {
      acc = (acc << 1) | ((value >> i) & 1u);
      if (++used == 8) {
        out.append(char(acc));
        acc = 0;
        used = 0;
      }
    }
  };
  put(bits, 5);
  for (quint32 v : {xmin, xmax, ymin, ymax}) put(v, bits);
  if (used) out.append(char(acc << (8 - used)));
  return out + QByteArray(64, '\x11');  // frame rate, frame count and tags follow
}

QByteArray movie(const QByteArray& rect, bool compressed, qint64 lengthOverride = -1) {
  QByteArray head = compressed ? "CWS" : "FWS";
  head.append(char(10));
  const quint32 length = lengthOverride >= 0 ? quint32(lengthOverride) : quint32(8 + rect.size());
  head.append(reinterpret_cast<const char*>(&length), 4);  // little-endian on x86 and ARM
  if (!compressed) return head + rect;
  QByteArray packed(int(compressBound(uLong(rect.size()))), Qt::Uninitialized);
  uLongf size = uLongf(packed.size());
  compress(reinterpret_cast<Bytef*>(packed.data()), &size, reinterpret_cast<const Bytef*>(rect.constData()),
           uLong(rect.size()));
  packed.truncate(qsizetype(size));
  return head + packed;
}

class FlashHeader : public ::testing::Test {
 protected:
  test::ScopedTempRoot temp;
  Context context;
  clsFlashHeader reader{context};

  bool parse(const QString& name, const QByteArray& bytes) { return reader.Parse(temp.write(name, bytes)); }
};

TEST_F(FlashHeader, ReadsTheSizeOfPlainAndCompressedMovies) {
  const struct {
    QByteArray rect;
    int width, height;
  } cases[] = {
      {rectangle(15, 0, 11000, 0, 8000), 550, 400},
      {rectangle(8, 0, 30, 0, 10), 2, 0},                     // half pixels round to even
      {rectangle(20, 1000, 21000, 2000, 42000), 1000, 2000},  // wide fields take as many bytes as they need
  };
  for (const auto& c : cases) {
    for (bool compressed : {false, true}) {
      ASSERT_TRUE(parse(compressed ? "packed.SWF" : "plain.swf", movie(c.rect, compressed)));
      EXPECT_EQ(reader.Width(), c.width) << compressed;
      EXPECT_EQ(reader.Height(), c.height) << compressed;
    }
  }
  EXPECT_EQ(context.g_sError, "");
}

TEST_F(FlashHeader, RefusesFilesThatAreNotSwf) {
  EXPECT_FALSE(parse("movie.swf.bak", movie(rectangle(15, 0, 20, 0, 20), false)));
  EXPECT_EQ(context.g_sError, "InvalidFile:swf");
  EXPECT_FALSE(reader.Parse(temp.path() + "/missing.swf"));
  EXPECT_EQ(context.g_sError, "InvalidFile:swf");

  EXPECT_FALSE(parse("picture.swf", QByteArray("\x89PNG\r\n\x1a\n", 8) + QByteArray(100, 'x')));
  EXPECT_EQ(context.g_sError, "") << "another signature fails without a word";
  EXPECT_FALSE(parse("other.swf", "ZWS" + movie(rectangle(15, 0, 20, 0, 20), false).mid(3)));
}

TEST_F(FlashHeader, DamagedMoviesFailWithoutCrashing) {
  const QByteArray good = movie(rectangle(15, 0, 11000, 0, 8000), true);
  EXPECT_FALSE(parse("empty.swf", ""));
  EXPECT_FALSE(parse("short.swf", "FWS"));
  EXPECT_FALSE(parse("cut.swf", movie(rectangle(31, 0, 1, 0, 1), false).left(12)));
  EXPECT_FALSE(parse("truncated.swf", good.left(good.size() / 2)));
  EXPECT_FALSE(parse("corrupt.swf", good.left(8) + QByteArray(40, '\x7f')));
  EXPECT_FALSE(parse("lying-short.swf", movie(rectangle(15, 0, 11000, 0, 8000), true, 10)));
  EXPECT_FALSE(parse("lying-huge.swf", movie(rectangle(15, 0, 11000, 0, 8000), true, 0xFFFFFFFF)));
  EXPECT_FALSE(parse("too-wide.swf", movie(rectangle(31, 0, 0x7FFFFFFF, 0, 20), false))) << "a size beyond 16 bits";
  EXPECT_EQ(context.g_sError, "");
}

}  // namespace
}  // namespace velmora
