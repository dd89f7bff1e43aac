#include "office/OfficeProtocol.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QtEndian>

namespace velmora {

namespace {

QString kindName(OfficeJob::Kind kind) {
  return kind == OfficeJob::Kind::WebPage ? QStringLiteral("webpage") : QStringLiteral("pictures");
}

}  // namespace

QJsonObject OfficeJob::toJson() const {
  return {{"job", kindName(kind)}, {"document", document}, {"target", target}, {"imageType", imageType}};
}

std::optional<OfficeJob> OfficeJob::fromJson(const QJsonObject& json) {
  OfficeJob job;
  const QString kind = json.value("job").toString();
  if (kind == kindName(Kind::WebPage))
    job.kind = Kind::WebPage;
  else if (kind == kindName(Kind::PagePictures))
    job.kind = Kind::PagePictures;
  else
    return std::nullopt;
  job.document = json.value("document").toString();
  job.target = json.value("target").toString();
  job.imageType = json.value("imageType").toString();
  if (job.document.isEmpty() || job.target.isEmpty()) return std::nullopt;
  return job;
}

QJsonObject OfficeAnswer::toJson() const {
  return {{"failedStage", failedStage}, {"description", description}, {"files", QJsonArray::fromStringList(files)}};
}

OfficeAnswer OfficeAnswer::fromJson(const QJsonObject& json) {
  OfficeAnswer answer{json.value("failedStage").toString(), json.value("description").toString(), {}};
  for (const QJsonValue& file : json.value("files").toArray()) answer.files << file.toString();
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
