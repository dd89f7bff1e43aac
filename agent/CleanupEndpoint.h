#pragma once
#include <QByteArray>
#include <QString>

namespace httplib {
class Server;
}

namespace velmora::agent {

// "POST /clean" of the demo server: the demo page hands it Word or Excel HTML and gets back
// what the clean-up makes of it. In: {"engine", "source", "opt", "html", "extraCss"}
// ("source" and "opt" may be left out: "import" and no options; "extraCss", the workbook's
// shared style sheet, belongs to "wps-excel" only). Out: {"Style", "Body", "trace"}, the
// same as `velmora clean --trace`; on failure {"error": text} with 400 (bad request), 403
// (a page of another origin), 413 (more than cleanupBodyLimit bytes) or 422 (the clean-up
// could not finish).
constexpr qsizetype cleanupBodyLimit = 64 * 1024 * 1024;

struct CleanupAnswer {
  int status;
  QByteArray json;
};

// The answer to a request body that came from the demo's own page. Runs on the HTTP
// server's thread: the clean-up is pure text work and gets a context of its own.
CleanupAnswer answerCleanup(const QByteArray& requestBody);

// Serves "POST /clean" on `server` to pages of `ownOrigin` only.
void addCleanupEndpoint(httplib::Server& server, const QString& ownOrigin);

}  // namespace velmora::agent
