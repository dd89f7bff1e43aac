// velmora-receiver: the reference server for the editor control's local-file upload.
//
//   velmora-receiver --root DIR [--host 127.0.0.1] [--port 0]
//                    [--test-status N] [--test-answer crlf|lf|empty] [--test-delay MS]
//                    [--test-fault cut|reset|silent] [--test-switches]
//
// --test-switches lets each request's test-* query parameters choose its answer; without
// it they are ignored.
//
// Prints "velmora-receiver: listening on http://HOST:PORT" once it accepts connections,
// then one line per request. Stops on SIGINT or SIGTERM.
#include <signal.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "receiver/Receiver.h"

namespace {

using velmora::receiver::Settings;

[[noreturn]] void usage(const std::string& problem) {
  std::fprintf(stderr,
               "velmora-receiver: %s\n"
               "usage: velmora-receiver --root DIR [--host ADDRESS] [--port N] [--test-status N]\n"
               "       [--test-answer crlf|lf|empty] [--test-delay MS] [--test-fault cut|reset|silent]\n"
               "       [--test-switches]\n",
               problem.c_str());
  std::exit(2);
}

Settings parse(int argc, char** argv) {
  Settings settings;
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--test-switches") {  // the one switch without a value
      settings.querySwitches = true;
      continue;
    }
    if (i + 1 >= argc) usage(option + " needs a value");
    const std::string value = argv[++i];
    if (option == "--root") {
      settings.root = value;
    } else if (option == "--host") {
      settings.host = value;
    } else if (option == "--port") {
      try {
        settings.port = std::stoi(value);
      } catch (const std::exception&) {
        usage("bad port: " + value);
      }
      if (settings.port < 0 || settings.port > 65535) usage("bad port: " + value);
    } else if (option.rfind("--test-", 0) == 0) {
      if (auto error = settings.behaviour.set(option.substr(2), value)) usage(*error);
    } else {
      usage("unknown option: " + option);
    }
  }
  if (settings.root.empty()) usage("--root is required");
  return settings;
}

}  // namespace

int main(int argc, char** argv) {
  const Settings settings = parse(argc, argv);

  // SIGINT and SIGTERM are taken by one thread that stops the server; a client that goes
  // away mid-answer must not kill the process.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
  signal(SIGPIPE, SIG_IGN);

  try {
    velmora::receiver::Receiver receiver(settings);
    if (receiver.bind() < 0) {
      std::fprintf(stderr, "velmora-receiver: cannot listen on %s port %d: %s\n", settings.host.c_str(), settings.port,
                   std::strerror(errno));
      return 1;
    }
    std::printf("velmora-receiver: listening on %s\n", receiver.baseUrl().c_str());
    std::fflush(stdout);
    std::thread stopper([&] {
      int signal = 0;
      sigwait(&stopSignals, &signal);
      receiver.stop();
    });
    receiver.run();
    kill(getpid(), SIGTERM);  // lets the stopper finish if the server ended on its own
    stopper.join();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "velmora-receiver: %s\n", e.what());
    return 1;
  }
  return 0;
}
