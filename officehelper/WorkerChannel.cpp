#include "officehelper/WorkerChannel.h"

#include <unistd.h>

namespace velmora {

WorkerChannel::WorkerChannel() : answerFd_(dup(STDOUT_FILENO)) { dup2(STDERR_FILENO, STDOUT_FILENO); }

void WorkerChannel::announceReady() { send(stageNotice(QStringLiteral("Ready"))); }

void WorkerChannel::noticeStage(const QString& stage) { send(stageNotice(stage)); }

void WorkerChannel::serve(const std::function<OfficeAnswer(const OfficeJob&)>& run) {
  FrameReader reader;
  char chunk[65536];
  for (;;) {
    const ssize_t n = read(STDIN_FILENO, chunk, sizeof chunk);
    if (n <= 0) return;
    reader.append(QByteArray(chunk, n));
    while (const std::optional<QJsonObject> frame = reader.next()) {
      const std::optional<OfficeJob> job = OfficeJob::fromJson(*frame);
      send((job ? run(*job) : OfficeAnswer::failure(QStringLiteral("Open"), QStringLiteral("a malformed job")))
               .toJson());
    }
    if (reader.broken()) return;
  }
}

void WorkerChannel::send(const QJsonObject& message) {
  const QByteArray frame = encodeFrame(message);
  for (qsizetype done = 0; done < frame.size();) {
    const ssize_t n = write(answerFd_, frame.constData() + done, size_t(frame.size() - done));
    if (n <= 0) _exit(1);  // the helper is gone
    done += n;
  }
}

}  // namespace velmora
