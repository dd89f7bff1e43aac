#include "agent/CleanupEndpoint.h"

#include <httplib.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <optional>
#include <variant>

#include "agent/Log.h"
#include "cleanup/CleanupRun.h"
#include "core/ScriptError.h"

namespace velmora::agent {

namespace {

QByteArray errorJson(const QString& text) {
  return QJsonDocument(QJsonObject{{"error", text}}).toJson(QJsonDocument::Compact);
}

CleanupAnswer failure(int status, const QString& text) { return {status, errorJson(text)}; }

// A text member of the request: `fallback` when it is left out, nothing when it is there
// but not a text (or left out with no fallback).
std::optional<QString> textMember(const QJsonObject& request, const QString& name,
                                  std::optional<QString> fallback = std::nullopt) {
  const QJsonValue value = request.value(name);
  if (value.isUndefined()) return fallback;
  if (!value.isString()) return std::nullopt;
  return value.toString();
}

// The job the request asks for, or why it cannot be one.
std::variant<CleanupJob, QString> readJob(const QByteArray& requestBody) {
  QJsonParseError parseError;
  const QJsonDocument document = QJsonDocument::fromJson(requestBody, &parseError);
  if (parseError.error != QJsonParseError::NoError)
    return QStringLiteral("the request is not JSON: %1 at offset %2")
        .arg(parseError.errorString())
        .arg(parseError.offset);
  if (!document.isObject()) return QStringLiteral("the request must be a JSON object");
  const QJsonObject request = document.object();

  const auto engine = textMember(request, QStringLiteral("engine"));
  if (!engine || !cleanupEngines().contains(*engine)) {
    const QString given = engine ? u'"' + *engine + u'"' : QStringLiteral("(none, or not a text)");
    return QStringLiteral("unknown engine %1: \"engine\" wants one of %2").arg(given, cleanupEngines().join(u", "));
  }
  const auto source = textMember(request, QStringLiteral("source"), QStringLiteral("import"));
  if (!source || !cleanupSources().contains(*source)) return QStringLiteral("\"source\" wants import or paste");
  const auto options = textMember(request, QStringLiteral("opt"), QString());
  if (!options) return QStringLiteral("\"opt\" wants a text of key:value pairs");
  const auto html = textMember(request, QStringLiteral("html"));
  if (!html) return QStringLiteral("\"html\" wants the text to clean");
  const auto extraCss = textMember(request, QStringLiteral("extraCss"), QString());
  if (!extraCss) return QStringLiteral("\"extraCss\" wants the text of a style sheet");
  if (!extraCss->isEmpty() && *engine != u"wps-excel")
    return QStringLiteral("\"extraCss\" belongs to engine wps-excel");
  return CleanupJob{*engine, *source, *options, *html, *extraCss, true};
}

void reply(httplib::Response& response, const CleanupAnswer& answer) {
  response.status = answer.status;
  response.set_header("Cache-Control", "no-store");
  response.set_content(answer.json.constData(), size_t(answer.json.size()), "application/json");
}

// Why a request from `origin` may not use the endpoint, or nothing when it may. Browsers
// send Origin with every POST; a page of another origin (or none, "null") is refused.
QString originRefusal(const httplib::Request& request, const QString& ownOrigin) {
  if (request.get_header_value_count("Origin") != 1) return QStringLiteral("no single Origin header");
  const QString origin = QString::fromStdString(request.get_header_value("Origin"));
  if (origin != ownOrigin) return QStringLiteral("Origin \"%1\" is not the demo's own").arg(origin);
  return {};
}

enum class BodyRead { Whole, TooLarge, Broken };

// Reads the body into `body` up to the limit, whether its length is declared or it comes
// in chunks.
BodyRead readLimitedBody(const httplib::ContentReader& reader, const httplib::Response& response, QByteArray& body) {
  bool tooLarge = false;
  const bool read = reader([&](const char* data, size_t length) {
    tooLarge = body.size() + qsizetype(length) > cleanupBodyLimit;
    if (!tooLarge) body.append(data, qsizetype(length));
    return !tooLarge;
  });
  if (tooLarge || response.status == 413) return BodyRead::TooLarge;  // 413: the declared length
  return read ? BodyRead::Whole : BodyRead::Broken;
}

}  // namespace

CleanupAnswer answerCleanup(const QByteArray& requestBody) {
  auto job = readJob(requestBody);
  if (const QString* problem = std::get_if<QString>(&job)) return failure(400, *problem);
  Context context;  // never a page's: the clean-up only clears its error text
  try {
    const QJsonObject result = runCleanup(std::get<CleanupJob>(job), context);
    return {200, QJsonDocument(result).toJson(QJsonDocument::Compact)};
  } catch (const ScriptError& error) {
    return failure(422, QStringLiteral("the clean-up could not finish: ") + error.description());
  } catch (const std::bad_alloc&) {
    return failure(422, QStringLiteral("the clean-up could not finish: out of memory"));
  }
}

void addCleanupEndpoint(httplib::Server& server, const QString& ownOrigin) {
  // A body declared larger than the limit is skipped, never stored.
  server.set_payload_max_length(size_t(cleanupBodyLimit));
  server.Post("/clean", [ownOrigin](const httplib::Request& request, httplib::Response& response,
                                    const httplib::ContentReader& reader) {
    if (const QString refusal = originRefusal(request, ownOrigin); !refusal.isEmpty()) {
      log(QStringLiteral("demo server refused POST /clean: ") + refusal);
      return reply(response, failure(403, QStringLiteral("only the demo page may clean up here")));
    }
    QByteArray body;
    switch (readLimitedBody(reader, response, body)) {
      case BodyRead::Whole: return reply(response, answerCleanup(body));
      case BodyRead::TooLarge:
        return reply(
            response,
            failure(413, QStringLiteral("the request is larger than %1 MB").arg(cleanupBodyLimit / (1024 * 1024))));
      case BodyRead::Broken: return reply(response, failure(400, QStringLiteral("the request body could not be read")));
    }
  });
}

}  // namespace velmora::agent
