#pragma once
// Word documents built in memory, so a test says what its document holds instead of
// depending on a fixture file whose content nobody remembers.

#include <zlib.h>

#include <QBuffer>
#include <QByteArray>
#include <QColor>
#include <QDataStream>
#include <QFile>
#include <QImage>
#include <QList>
#include <QSize>
#include <QString>
#include <QTemporaryDir>
#include <QUrl>
#include <utility>

#include "clipboard/clsSaveBitmapAs.h"

namespace velmora::test {

// A ZIP archive with every entry stored, not deflated: readers accept it and it needs no compressor.
inline QByteArray zipArchive(const QList<std::pair<QString, QByteArray>>& entries) {
  QByteArray archive, directory;
  QDataStream out(&archive, QIODevice::WriteOnly), dir(&directory, QIODevice::WriteOnly);
  out.setByteOrder(QDataStream::LittleEndian);
  dir.setByteOrder(QDataStream::LittleEndian);
  const quint16 kVersion = 20, kTime = 0, kDate = (0 << 9) | (1 << 5) | 1;  // 1980-01-01: archives stay byte-identical
  for (const auto& [name, data] : entries) {
    const QByteArray path = name.toUtf8();
    const auto crc =
        quint32(crc32(crc32(0, nullptr, 0), reinterpret_cast<const Bytef*>(data.constData()), data.size()));
    const auto offset = quint32(archive.size()), size = quint32(data.size());
    out << quint32(0x04034b50) << kVersion << quint16(0) << quint16(0) << kTime << kDate << crc << size << size
        << quint16(path.size()) << quint16(0);
    out.writeRawData(path.constData(), path.size());
    out.writeRawData(data.constData(), data.size());
    dir << quint32(0x02014b50) << kVersion << kVersion << quint16(0) << quint16(0) << kTime << kDate << crc << size
        << size << quint16(path.size()) << quint16(0) << quint16(0) << quint16(0) << quint16(0) << quint32(0) << offset;
    dir.writeRawData(path.constData(), path.size());
  }
  const auto directoryOffset = quint32(archive.size());
  out.writeRawData(directory.constData(), directory.size());
  out << quint32(0x06054b50) << quint16(0) << quint16(0) << quint16(entries.size()) << quint16(entries.size())
      << quint32(directory.size()) << directoryOffset << quint16(0);
  return archive;
}

// A single-colour picture in "png", "jpg" or "gif" (Qt writes no GIF; the product's encoder does).
inline QByteArray pictureBytes(const char* format, QSize size, QColor colour) {
  QImage image(size, QImage::Format_RGB32);
  image.fill(colour);
  QByteArray bytes;
  if (QByteArray(format) == "gif") {
    QTemporaryDir folder;
    QFile gif(folder.filePath("picture.gif"));
    if (writeGif(image, gif.fileName()) && gif.open(QIODevice::ReadOnly)) bytes = gif.readAll();
    return bytes;
  }
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  image.save(&buffer, format);
  return bytes;
}

struct WordPicture {
  QByteArray bytes;
  QString extension;  // "png", "jpeg"/"jpg", "gif"
  QSize sizePx;
};

struct WordDocumentDescription {
  enum class Paper { A4, Letter, TenByTwenty } paper = Paper::A4;  // the last: 10 x 20 cm
  int pages = 1;                           // each page: a heading and a few paragraphs; hard page breaks between pages
  QList<WordPicture> pictures;             // embedded pictures, placed inline on page 1 (in order)
  bool firstPictureTwice = false;          // the first picture appears a second time (same media file, two drawings)
  bool table = false;                      // a 2x3 table with text in every cell
  bool list = false;                       // a bulleted list of three items (real numbering.xml)
  bool headerAndFooter = false;            // a header "Header text" and a footer "Footer text"
  bool footnote = false;                   // one footnote with text "Footnote text"
  bool equation = false;                   // one equation, a^2+b^2=c^2, as Office Math
  QString linkedPicturePath;               // when set: one picture linked (not embedded) to this absolute local file
  QString text = "Velmora test document";  // the heading text of page 1
};

namespace word {

inline const QString kW = "http://schemas.openxmlformats.org/wordprocessingml/2006/main";
inline const QString kR = "http://schemas.openxmlformats.org/officeDocument/2006/relationships";
inline const QString kXml = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n";

inline QString run(const QString& text) {
  return "<w:r><w:t xml:space=\"preserve\">" + text.toHtmlEscaped() + "</w:t></w:r>";
}
inline QString paragraph(const QString& runs, const QString& properties = {}) {
  return "<w:p>" + (properties.isEmpty() ? "" : "<w:pPr>" + properties + "</w:pPr>") + runs + "</w:p>";
}
inline QString heading(const QString& text) { return paragraph(run(text), "<w:pStyle w:val=\"Heading1\"/>"); }

// Word stores sizes in EMUs, 914400 to the inch; at 96 dpi a pixel is 9525 of them.
inline QString pictureRun(int id, const QString& relation, QSize sizePx, bool linked) {
  const QString cx = QString::number(qint64(sizePx.width()) * 9525),
                cy = QString::number(qint64(sizePx.height()) * 9525);
  const QString blip = QString("<a:blip r:%1=\"%2\"/>").arg(linked ? "link" : "embed", relation);
  const QString number = QString::number(id);
  return "<w:r><w:drawing><wp:inline distT=\"0\" distB=\"0\" distL=\"0\" distR=\"0\"><wp:extent cx=\"" + cx +
         "\" cy=\"" + cy + "\"/><wp:docPr id=\"" + number + "\" name=\"Picture " + number +
         "\"/><wp:cNvGraphicFramePr><a:graphicFrameLocks noChangeAspect=\"1\"/></wp:cNvGraphicFramePr>"
         "<a:graphic><a:graphicData uri=\"http://schemas.openxmlformats.org/drawingml/2006/picture\"><pic:pic>"
         "<pic:nvPicPr><pic:cNvPr id=\"" +
         number + "\" name=\"Picture " + number +
         "\"/><pic:cNvPicPr/></pic:nvPicPr>"
         "<pic:blipFill>" +
         blip +
         "<a:stretch><a:fillRect/></a:stretch></pic:blipFill><pic:spPr><a:xfrm>"
         "<a:off x=\"0\" y=\"0\"/><a:ext cx=\"" +
         cx + "\" cy=\"" + cy +
         "\"/></a:xfrm><a:prstGeom prst=\"rect\">"
         "<a:avLst/></a:prstGeom></pic:spPr></pic:pic></a:graphicData></a:graphic></wp:inline></w:drawing></w:r>";
}

inline QString table() {
  QString rows;
  for (int row = 1; row <= 2; ++row) {
    rows += "<w:tr>";
    for (int column = 1; column <= 3; ++column)
      rows += "<w:tc><w:tcPr><w:tcW w:w=\"3000\" w:type=\"dxa\"/></w:tcPr>" +
              paragraph(run(QString("Cell %1.%2").arg(row).arg(column))) + "</w:tc>";
    rows += "</w:tr>";
  }
  const QString line = "w:val=\"single\" w:sz=\"4\" w:space=\"0\" w:color=\"000000\"/>";
  return "<w:tbl><w:tblPr><w:tblW w:w=\"0\" w:type=\"auto\"/><w:tblBorders><w:top " + line + "<w:left " + line +
         "<w:bottom " + line + "<w:right " + line + "<w:insideH " + line + "<w:insideV " + line +
         "</w:tblBorders></w:tblPr><w:tblGrid><w:gridCol w:w=\"3000\"/><w:gridCol w:w=\"3000\"/>"
         "<w:gridCol w:w=\"3000\"/></w:tblGrid>" +
         rows + "</w:tbl>" +
         paragraph({});  // Word wants a paragraph after a table: two tables in a row would otherwise merge
}

inline QString list() {
  QString items;
  for (const char* item : {"First item", "Second item", "Third item"})
    items += paragraph(run(item), "<w:numPr><w:ilvl w:val=\"0\"/><w:numId w:val=\"1\"/></w:numPr>");
  return items;
}

inline QString numbering() {
  return kXml + "<w:numbering xmlns:w=\"" + kW +
         "\"><w:abstractNum w:abstractNumId=\"0\">"
         "<w:multiLevelType w:val=\"hybridMultilevel\"/><w:lvl w:ilvl=\"0\"><w:start w:val=\"1\"/>"
         "<w:numFmt w:val=\"bullet\"/><w:lvlText w:val=\"\u2022\"/><w:lvlJc w:val=\"left\"/>"
         "<w:pPr><w:ind w:left=\"720\" w:hanging=\"360\"/></w:pPr></w:lvl></w:abstractNum>"
         "<w:num w:numId=\"1\"><w:abstractNumId w:val=\"0\"/></w:num></w:numbering>";
}

inline QString styles() {
  return kXml + "<w:styles xmlns:w=\"" + kW +
         "\"><w:docDefaults><w:rPrDefault><w:rPr><w:sz w:val=\"22\"/>"
         "</w:rPr></w:rPrDefault><w:pPrDefault><w:pPr><w:spacing w:after=\"160\"/></w:pPr></w:pPrDefault>"
         "</w:docDefaults><w:style w:type=\"paragraph\" w:default=\"1\" w:styleId=\"Normal\"><w:name w:val=\"Normal\"/>"
         "</w:style><w:style w:type=\"paragraph\" w:styleId=\"Heading1\"><w:name w:val=\"heading 1\"/>"
         "<w:basedOn w:val=\"Normal\"/><w:next w:val=\"Normal\"/><w:qFormat/><w:pPr><w:keepNext/>"
         "<w:spacing w:before=\"240\"/><w:outlineLvl w:val=\"0\"/></w:pPr><w:rPr><w:b/><w:sz w:val=\"32\"/></w:rPr>"
         "</w:style></w:styles>";
}

// The header or footer: `tag` is "hdr" or "ftr".
inline QString margin(const QString& tag, const QString& text) {
  return kXml + "<w:" + tag + " xmlns:w=\"" + kW + "\">" + paragraph(run(text)) + "</w:" + tag + ">";
}

// Word always writes the separator (-1) and continuation separator (0) notes, so readers expect them.
inline QString footnotes() {
  return kXml + "<w:footnotes xmlns:w=\"" + kW +
         "\">"
         "<w:footnote w:type=\"separator\" w:id=\"-1\"><w:p><w:r><w:separator/></w:r></w:p></w:footnote>"
         "<w:footnote w:type=\"continuationSeparator\" w:id=\"0\"><w:p><w:r><w:continuationSeparator/></w:r></w:p>"
         "</w:footnote><w:footnote w:id=\"1\"><w:p><w:r><w:rPr><w:vertAlign w:val=\"superscript\"/></w:rPr>"
         "<w:footnoteRef/></w:r>" +
         run(" Footnote text") + "</w:p></w:footnote></w:footnotes>";
}
inline QString footnoteReference() {
  return "<w:r><w:rPr><w:vertAlign w:val=\"superscript\"/></w:rPr><w:footnoteReference w:id=\"1\"/></w:r>";
}

inline QString section(const WordDocumentDescription& doc) {
  using Paper = WordDocumentDescription::Paper;
  const QSize twips = doc.paper == Paper::A4       ? QSize(11906, 16838)
                      : doc.paper == Paper::Letter ? QSize(12240, 15840)
                                                   : QSize(5670, 11339);
  const QString margins = doc.headerAndFooter ? "<w:headerReference w:type=\"default\" r:id=\"rIdHeader\"/>"
                                                "<w:footerReference w:type=\"default\" r:id=\"rIdFooter\"/>"
                                              : "";
  return "<w:sectPr>" + margins + QString("<w:pgSz w:w=\"%1\" w:h=\"%2\"/>").arg(twips.width()).arg(twips.height()) +
         "<w:pgMar w:top=\"1440\" w:right=\"1440\" w:bottom=\"1440\" w:left=\"1440\" w:header=\"720\" w:footer=\"720\""
         " w:gutter=\"0\"/></w:sectPr>";
}

// Collects the document's relationships while the body is written, so ids and targets stay in step.
struct Relations {
  QString xml;
  void add(const QString& id, const QString& type, const QString& target, bool external = false) {
    xml += "<Relationship Id=\"" + id + "\" Type=\"" + kR + "/" + type + "\" Target=\"" + target.toHtmlEscaped() +
           (external ? "\" TargetMode=\"External\"/>" : "\"/>");
  }
  QString file() const {
    return kXml + "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">" + xml +
           "</Relationships>";
  }
};

inline QString contentTypes(const WordDocumentDescription& doc) {
  const QString ns = "application/vnd.openxmlformats-officedocument.wordprocessingml.";
  QString types =
      kXml + "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
             "<Default Extension=\"rels\" ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
             "<Default Extension=\"xml\" ContentType=\"application/xml\"/>"
             "<Default Extension=\"png\" ContentType=\"image/png\"/>"
             "<Default Extension=\"jpeg\" ContentType=\"image/jpeg\"/>"
             "<Default Extension=\"jpg\" ContentType=\"image/jpeg\"/>"
             "<Default Extension=\"gif\" ContentType=\"image/gif\"/>";
  const auto add = [&](bool used, const QString& path, const QString& type) {
    if (used) types += "<Override PartName=\"" + path + "\" ContentType=\"" + ns + type + "+xml\"/>";
  };
  add(true, "/word/document.xml", "document.main");
  add(true, "/word/styles.xml", "styles");
  add(doc.list, "/word/numbering.xml", "numbering");
  add(doc.headerAndFooter, "/word/header1.xml", "header");
  add(doc.headerAndFooter, "/word/footer1.xml", "footer");
  add(doc.footnote, "/word/footnotes.xml", "footnotes");
  return types + "</Types>";
}

inline QString rootRelations() {
  return kXml +
         "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
         "<Relationship Id=\"rId1\" Type=\"" +
         kR + "/officeDocument\" Target=\"word/document.xml\"/></Relationships>";
}

// Page 1's pictures: every embedded one in order, the first again when asked, then the linked one.
inline QString pictures(const WordDocumentDescription& doc, Relations& relations,
                        QList<std::pair<QString, QByteArray>>& files) {
  QString runs;
  for (qsizetype i = 0; i < doc.pictures.size(); ++i) {
    const WordPicture& picture = doc.pictures[i];
    const QString id = QString("rIdImage%1").arg(i + 1), name = QString("image%1.%2").arg(i + 1).arg(picture.extension);
    relations.add(id, "image", "media/" + name);
    files.append({"word/media/" + name, picture.bytes});
    runs += pictureRun(int(i) + 1, id, picture.sizePx, false);
  }
  if (doc.firstPictureTwice && !doc.pictures.isEmpty())
    runs += pictureRun(int(doc.pictures.size()) + 1, "rIdImage1", doc.pictures.first().sizePx, false);
  if (!doc.linkedPicturePath.isEmpty()) {
    relations.add("rIdLinked", "image", QUrl::fromLocalFile(doc.linkedPicturePath).toString(QUrl::FullyEncoded), true);
    // Sized without looking at the file: a link may name anything, a pipe included.
    runs += pictureRun(int(doc.pictures.size()) + 2, "rIdLinked", QSize(96, 96), true);
  }
  return runs.isEmpty() ? QString() : paragraph(runs);
}

inline QString page(int number, const QString& title) {
  return heading(title) + paragraph(run(QString("This is page %1 of the test document.").arg(number))) +
         paragraph(run("It holds a few plain paragraphs so the page has some body text.")) +
         paragraph(run("The last paragraph of the page."));
}

}  // namespace word

// A complete .docx file with the content `doc` asks for.
inline QByteArray makeDocx(const WordDocumentDescription& doc) {
  using namespace word;
  Relations relations;
  QList<std::pair<QString, QByteArray>> files;
  relations.add("rIdStyles", "styles", "styles.xml");
  QString body = page(1, doc.text) + pictures(doc, relations, files);
  if (doc.footnote) body += paragraph(run("A sentence with a footnote.") + footnoteReference());
  if (doc.equation)
    body += paragraph("<m:oMath><m:sSup><m:e><m:r><m:t>a</m:t></m:r></m:e><m:sup><m:r><m:t>2</m:t></m:r></m:sup>"
                      "</m:sSup><m:r><m:t>+</m:t></m:r><m:sSup><m:e><m:r><m:t>b</m:t></m:r></m:e><m:sup><m:r><m:t>2"
                      "</m:t></m:r></m:sup></m:sSup><m:r><m:t>=</m:t></m:r><m:sSup><m:e><m:r><m:t>c</m:t></m:r>"
                      "</m:e><m:sup><m:r><m:t>2</m:t></m:r></m:sup></m:sSup></m:oMath>");
  if (doc.table) body += table();
  if (doc.list) body += list();
  for (int number = 2; number <= doc.pages; ++number)
    body += paragraph("<w:r><w:br w:type=\"page\"/></w:r>") + page(number, QString("Page %1").arg(number));
  QList<std::pair<QString, QByteArray>> entries = {{"[Content_Types].xml", contentTypes(doc).toUtf8()},
                                                   {"_rels/.rels", rootRelations().toUtf8()},
                                                   {"word/styles.xml", styles().toUtf8()}};
  if (doc.list) {
    relations.add("rIdNumbering", "numbering", "numbering.xml");
    entries.append({"word/numbering.xml", numbering().toUtf8()});
  }
  if (doc.headerAndFooter) {
    relations.add("rIdHeader", "header", "header1.xml");
    relations.add("rIdFooter", "footer", "footer1.xml");
    entries.append({"word/header1.xml", margin("hdr", "Header text").toUtf8()});
    entries.append({"word/footer1.xml", margin("ftr", "Footer text").toUtf8()});
  }
  if (doc.footnote) {
    relations.add("rIdFootnotes", "footnotes", "footnotes.xml");
    entries.append({"word/footnotes.xml", footnotes().toUtf8()});
  }
  const QString document = kXml + "<w:document xmlns:w=\"" + kW + "\" xmlns:r=\"" + kR +
                           "\" xmlns:wp=\"http://schemas.openxmlformats.org/drawingml/2006/wordprocessingDrawing\""
                           " xmlns:a=\"http://schemas.openxmlformats.org/drawingml/2006/main\""
                           " xmlns:pic=\"http://schemas.openxmlformats.org/drawingml/2006/picture\""
                           " xmlns:m=\"http://schemas.openxmlformats.org/officeDocument/2006/math\"><w:body>" +
                           body + section(doc) + "</w:body></w:document>";
  entries.append({"word/document.xml", document.toUtf8()});
  entries.append({"word/_rels/document.xml.rels", relations.file().toUtf8()});
  return zipArchive(entries + files);
}

}  // namespace velmora::test
