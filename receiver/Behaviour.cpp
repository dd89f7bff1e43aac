#include "receiver/Behaviour.h"

#include <charconv>

namespace velmora::receiver {

namespace {

std::optional<int> number(const std::string& text, int low, int high) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < low || value > high) return std::nullopt;
  return value;
}

}  // namespace

std::optional<std::string> Behaviour::set(const std::string& name, const std::string& value) {
  const std::string bad = "bad " + name + " value: " + value;
  if (name == "test-status") {
    const auto code = number(value, 100, 599);
    if (!code) return bad;
    status = *code;
  } else if (name == "test-delay") {
    const auto ms = number(value, 0, 3600 * 1000);
    if (!ms) return bad;
    delayMs = *ms;
  } else if (name == "test-answer") {
    if (value == "crlf")
      ending = Ending::CrLf;
    else if (value == "lf")
      ending = Ending::Lf;
    else if (value == "empty")
      emptyBody = true;
    else if (value != "plain")
      return bad;
  } else if (name == "test-fault") {
    if (value == "cut")
      fault = Fault::Cut;
    else if (value == "reset")
      fault = Fault::Reset;
    else if (value == "silent")
      fault = Fault::Silent;
    else if (value != "none")
      return bad;
  } else {
    return "unknown setting: " + name;
  }
  return std::nullopt;
}

std::string Behaviour::describe() const {
  switch (fault) {
    case Fault::Cut: return "cut";
    case Fault::Reset: return "reset";
    case Fault::Silent: return "silent";
    case Fault::None: break;
  }
  std::string text = std::to_string(status);
  if (emptyBody) text += " empty";
  if (ending == Ending::CrLf) text += " crlf";
  if (ending == Ending::Lf) text += " lf";
  if (delayMs > 0) text += " after " + std::to_string(delayMs) + " ms";
  return text;
}

std::optional<std::string> Behaviour::applyQuery(const httplib::Request& request) {
  for (const auto& [name, value] : request.params)
    if (name.rfind("test-", 0) == 0)
      if (auto error = set(name, value)) return error;
  return std::nullopt;
}

}  // namespace velmora::receiver
