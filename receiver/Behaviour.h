#pragma once
#include <httplib.h>

#include <optional>
#include <string>

namespace velmora::receiver {

// How the receiver answers an upload. Normally: status 200 and the stored file's address.
// Tests ask for the ways a real server goes wrong, for every request through the command
// line's switches, or per request through query parameters of the same names when the
// receiver runs with --test-switches:
//   test-status=N     answer status N (the upload is not stored)
//   test-answer=crlf  the address followed by CR LF; "lf": by a lone LF; "empty": no body
//   test-delay=MS     wait MS milliseconds before answering
//   test-fault=cut    headers and half the body, then the connection is closed
//   test-fault=reset  the connection is reset before any answer
//   test-fault=silent never answer (until the client gives up or the receiver stops)
struct Behaviour {
  enum class Ending { None, CrLf, Lf };
  enum class Fault { None, Cut, Reset, Silent };

  int status = 200;
  Ending ending = Ending::None;
  bool emptyBody = false;
  int delayMs = 0;
  Fault fault = Fault::None;

  // Whether the upload is kept: only when the client is told where it is.
  bool stores() const { return status == 200 && !emptyBody && fault == Fault::None; }

  // "200", "503", "200 crlf", "cut", ... for the log.
  std::string describe() const;
  // Reads one setting ("test-status", "16"); an error text when the name or value is bad.
  std::optional<std::string> set(const std::string& name, const std::string& value);
  // These defaults overridden by the request's test-* query parameters.
  std::optional<std::string> applyQuery(const httplib::Request& request);
};

}  // namespace velmora::receiver
