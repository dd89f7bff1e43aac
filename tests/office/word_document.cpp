// Writes Word documents for the browser tests and the benchmark: word_document FILE PAGES PICTURES [letter]
// (pages of text with a table and a list; the pictures photo-like JPEGs and PNGs of
// 640 x 480, shown at 160 x 120 on page 1).
#include <QCoreApplication>
#include <QFile>
#include <QPainter>
#include <QRandomGenerator>

#include "tests/office/WordDocuments.h"

using namespace velmora::test;

namespace {

QByteArray photo(int seed, const char* format) {
  QImage image(640, 480, QImage::Format_RGB32);
  QRandomGenerator random(seed);
  QPainter painter(&image);
  for (int i = 0; i < 60; ++i)
    painter.fillRect(int(random.bounded(640)), int(random.bounded(480)), 40 + int(random.bounded(200)),
                     30 + int(random.bounded(150)), QColor::fromRgb(random.generate()));
  painter.end();
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  image.save(&buffer, format, 85);
  return bytes;
}

}  // namespace

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  if (argc < 4) return 2;
  WordDocumentDescription doc;
  doc.pages = atoi(argv[2]);
  doc.table = doc.list = doc.headerAndFooter = doc.footnote = doc.equation = true;
  if (argc > 4)
    doc.paper = QByteArray(argv[4]) == "small" ? WordDocumentDescription::Paper::TenByTwenty
                                               : WordDocumentDescription::Paper::Letter;
  for (int i = 0; i < atoi(argv[3]); ++i) {
    const bool jpeg = i % 2 == 0;
    doc.pictures << WordPicture{photo(i, jpeg ? "jpg" : "png"), jpeg ? "jpeg" : "png", QSize(160, 120)};
  }
  QFile file(QString::fromLocal8Bit(argv[1]));
  return file.open(QIODevice::WriteOnly) && file.write(makeDocx(doc)) > 0 ? 0 : 1;
}
