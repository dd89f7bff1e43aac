#pragma once
#include <QByteArray>
#include <QJsonObject>
#include <QSize>
#include <QString>
#include <QStringList>
#include <optional>

namespace velmora {

// What the automation layer and the office helper (velmora-office) say to each other. Each
// message is one frame: a 4-byte big-endian length, then a compact JSON object. The same
// frames run between the helper's front process and the worker that holds LibreOffice.

// One document, one job: the office opens the document hidden and read-only, does the job,
// and closes it without saving.
struct OfficeJob {
  enum class Kind {
    WebPage,        // a document saved as a web page
    PagePictures,   // a document drawn page by page
    PdfDocument,    // a document saved as PDF, for the printer
    SheetNames,     // a workbook's sheet names, in workbook order
    SheetPages,     // one sheet of a workbook (or every visible one) saved as a web page
    WorkbookPage,   // a whole workbook saved as one web page
    SlidePictures,  // every slide of a presentation exported as a picture
    SheetPictures,  // the used range of one sheet (or every visible one) as a picture
  };
  Kind kind = Kind::WebPage;
  QString document;   // the document's path
  QString target;     // the page's path; pictures: every picture's path up to its number
  QString imageType;  // pictures: "png", "gif" or "jpg"
  int sheet = 0;      // sheets: the sheet's number from 1, or 0 for every visible sheet

  // Workbooks, presentations and PDF are served by an office of their own (see the helper):
  // LibreOfficeKit loads no workbook, and saves no PDF once it has drawn a page.
  bool forTheSecondOffice() const { return kind >= Kind::PdfDocument; }

  QJsonObject toJson() const;
  static std::optional<OfficeJob> fromJson(const QJsonObject& json);
};

// How the job went. A failed job names the stage that stopped it, as the office reports it:
// "CreateObject" (the office could not start), "Open" (loading the document), "SetSheet"
// (a sheet the workbook does not have) or "SaveAs" (writing what was asked), with a
// description a person can read.
struct OfficeAnswer {
  QString failedStage;
  QString description;
  QStringList files;  // pictures: the pictures written, in order
  QStringList names;  // SheetNames: the names
  // SheetPages: the number of each sheet on the page, in order; WorkbookPage: the numbers
  // of the sheets holding at least one filled cell.
  QList<int> sheets;
  QSize firstPage;  // PdfDocument: the first page's size, in hundredths of a millimetre

  bool ok() const { return failedStage.isEmpty(); }
  QJsonObject toJson() const;
  static OfficeAnswer fromJson(const QJsonObject& json);
  static OfficeAnswer failure(const QString& stage, const QString& description) {
    OfficeAnswer answer;
    answer.failedStage = stage;
    answer.description = description;
    return answer;
  }
};

// The worker says when its office has started ("Ready"), and while a job runs, which stage
// it has reached, so that the front process can say where a hung or crashed office stopped.
QJsonObject stageNotice(const QString& stage);
// The stage a notice names, or "" when the frame is an answer.
QString noticedStage(const QJsonObject& frame);

QByteArray encodeFrame(const QJsonObject& message);

// Collects frames from a byte stream.
class FrameReader {
 public:
  // A frame larger than this is a broken peer, never a real message.
  static constexpr qsizetype kLargestFrame = 16 * 1024 * 1024;

  void append(const QByteArray& bytes) { buffer_.append(bytes); }
  // The next complete frame, or nothing while it has not all arrived. A frame that is too
  // large or not a JSON object marks the stream broken.
  std::optional<QJsonObject> next();
  bool broken() const { return broken_; }

 private:
  QByteArray buffer_;
  bool broken_ = false;
};

}  // namespace velmora
