#pragma once
#include <QJsonObject>
#include <QString>
#include <stdexcept>

namespace velmora::cli {

// Exit codes of the velmora command.
constexpr int ExitOk = 0;          // the call finished and Error is empty
constexpr int ExitWorkFailed = 1;  // the call finished with a word in Error, or started no work
constexpr int ExitUsage = 2;       // bad command line, or the call itself failed
constexpr int ExitTimedOut = 4;    // the work did not finish within the time limit

class UsageError : public std::runtime_error {
 public:
  explicit UsageError(const QString& message) : std::runtime_error(message.toStdString()) {}
};

void printJson(const QJsonObject& object);

}  // namespace velmora::cli
