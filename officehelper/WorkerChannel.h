#pragma once
#include <functional>

#include "office/OfficeProtocol.h"

namespace velmora {

// A worker's side of the helper's frames. Jobs arrive on standard input; answers and stage
// notices leave on a copy of standard output, since the office writes its own chatter to
// standard output too: that is sent to standard error from here on.
class WorkerChannel {
 public:
  WorkerChannel();
  // The office has started (or failed to: it then answers every job with why). Jobs are
  // sent only after this, so their time limits do not count the office's start.
  void announceReady();
  // The stage the running job has reached, so that the helper can say where an office that
  // hung or crashed stopped.
  void noticeStage(const QString& stage);
  // Answers each job with `run` until the input closes or breaks.
  void serve(const std::function<OfficeAnswer(const OfficeJob&)>& run);

 private:
  void send(const QJsonObject& message);
  int answerFd_;
};

}  // namespace velmora
