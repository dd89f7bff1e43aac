#include "office/OfficeProtocol.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QtEndian>

namespace velmora {

namespace {

using Kind = OfficeJob::Kind;

const std::pair<Kind, const char*> kKindNames[] = {
    {Kind::WebPage, "webpage"},       {Kind::PagePictures, "pictures"},       {Kind::PdfDocument, "pdf"},
    {Kind::SheetNames, "sheetnames"}, {Kind::SheetPages, "sheetpages"},       {Kind::WorkbookPage, "workbookpage"},
    {Kind::SlidePictures, "slides"},  {Kind::SheetPictures, "sheetpictures"},
};

QString kindName(Kind kind) {
  for (const auto& [each, name] : kKindNames)
    if (each == kind) return QString::fromLatin1(name);
  return {};
}

std::optional<Kind> kindNamed(const QString& name) {
  for (const auto& [kind, each] : kKindNames)
    if (name == QLatin1String(each)) return kind;
  return std::nullopt;
}

}  // namespace

QJsonObject OfficeJob::toJson() const {
  return {
      {"job", kindName(kind)}, {"document", document}, {"target", target}, {"imageType", imageType}, {"sheet", sheet}};
}

std::optional<OfficeJob> OfficeJob::fromJson(const QJsonObject& json) {
  OfficeJob job;
  const std::optional<Kind> kind = kindNamed(json.value("job").toString());
  if (!kind) return std::nullopt;
  job.kind = *kind;
  job.document = json.value("document").toString();
  job.target = json.value("target").toString();
  job.imageType = json.value("imageType").toString();
  job.sheet = json.value("sheet").toInt();
  if (job.document.isEmpty() || (job.target.isEmpty() && job.kind != Kind::SheetNames)) return std::nullopt;
  return job;
}

QJsonObject OfficeAnswer::toJson() const {
  QJsonArray numbers;
  for (const int sheet : sheets) numbers.append(sheet);
  return {{"failedStage", failedStage},
          {"description", description},
          {"files", QJsonArray::fromStringList(files)},
          {"names", QJsonArray::fromStringList(names)},
          {"sheets", numbers},
          {"firstPage", QJsonArray{firstPage.width(), firstPage.height()}}};
}

OfficeAnswer OfficeAnswer::fromJson(const QJsonObject& json) {
  OfficeAnswer answer = failure(json.value("failedStage").toString(), json.value("description").toString());
  for (const QJsonValue& file : json.value("files").toArray()) answer.files << file.toString();
  for (const QJsonValue& name : json.value("names").toArray()) answer.names << name.toString();
  for (const QJsonValue& sheet : json.value("sheets").toArray()) answer.sheets << sheet.toInt();
  const QJsonArray page = json.value("firstPage").toArray();
  answer.firstPage = QSize(page.at(0).toInt(), page.at(1).toInt());
  return answer;
}

QJsonObject stageNotice(const QString& stage) { return {{"stage", stage}}; }

QString noticedStage(const QJsonObject& frame) { return frame.value("stage").toString(); }

QByteArray encodeFrame(const QJsonObject& message) {
  const QByteArray body = QJsonDocument(message).toJson(QJsonDocument::Compact);
  QByteArray frame(4, Qt::Uninitialized);
  qToBigEndian<quint32>(quint32(body.size()), frame.data());
  return frame + body;
}

std::optional<QJsonObject> FrameReader::next() {
  if (broken_ || buffer_.size() < 4) return std::nullopt;
  const quint32 length = qFromBigEndian<quint32>(buffer_.constData());
  if (length > kLargestFrame) {
    broken_ = true;
    return std::nullopt;
  }
  if (buffer_.size() < 4 + qsizetype(length)) return std::nullopt;
  QJsonParseError error;
  const QJsonDocument document = QJsonDocument::fromJson(buffer_.mid(4, length), &error);
  buffer_.remove(0, 4 + length);
  if (error.error != QJsonParseError::NoError || !document.isObject()) {
    broken_ = true;
    return std::nullopt;
  }
  return document.object();
}

}  // namespace velmora
