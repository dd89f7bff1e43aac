#include "cli/Output.h"

#include <QJsonDocument>
#include <cstdio>

namespace velmora::cli {

void printJson(const QJsonObject& object) {
  const QByteArray text = QJsonDocument(object).toJson(QJsonDocument::Indented);
  std::fwrite(text.constData(), 1, size_t(text.size()), stdout);
  std::fflush(stdout);
}

}  // namespace velmora::cli
