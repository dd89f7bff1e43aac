// velmora-agent: serves the controls to web pages over a WebSocket on 127.0.0.1.
#include <sys/socket.h>
#include <unistd.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSocketNotifier>
#include <QStandardPaths>
#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "agent/AgentServer.h"
#include "agent/DemoReceiver.h"
#include "agent/DemoServer.h"
#include "agent/Log.h"
#include "agent/OriginPrompt.h"
#include "host/HostProcess.h"

namespace {

using namespace velmora::agent;
using velmora::Outcome;

constexpr int kExitUsage = 2;
constexpr quint16 kDefaultPort = 8765;
constexpr quint16 kDefaultDemoPort = 8766;
// QtWebSockets keeps a message in one QByteArray or QString, which stays under 2 GB.
constexpr uint kLargestMaxMessageMb = 2047;

struct Options {
  quint16 port = kDefaultPort;
  quint16 demoPort = kDefaultDemoPort;
  quint64 maxMessageMb = kDefaultMaxMessageMb;
  bool demo = false;
  bool prompt = true;
  QStringList allowedOrigins;
  QString settingsFile;
  QString webRoot;
  QString receiver;  // the demo's upload receiver program
};

quint16 portOption(const QCommandLineParser& parser, const QString& name, quint16 fallback) {
  if (!parser.isSet(name)) return fallback;
  bool ok = false;
  const uint port = parser.value(name).toUInt(&ok);
  if (!ok || port > 65535) throw std::runtime_error(QStringLiteral("--%1 wants a port number").arg(name).toStdString());
  return quint16(port);
}

quint64 maxMessageOption(const QCommandLineParser& parser) {
  bool ok = false;
  const uint megabytes = parser.value(QStringLiteral("max-message-mb")).toUInt(&ok);
  if (!ok || megabytes == 0 || megabytes > kLargestMaxMessageMb)
    throw std::runtime_error("--max-message-mb wants a whole number from 1 to " + std::to_string(kLargestMaxMessageMb));
  return megabytes;
}

// The web folder next to the program: <build>/../web in a source tree, or an installed
// share/velmora/web.
QString findWebRoot() {
  const QDir programDir(QCoreApplication::applicationDirPath());
  for (const QString& candidate :
       {programDir.filePath(QStringLiteral("../web")), programDir.filePath(QStringLiteral("../share/velmora/web"))})
    if (QFileInfo::exists(candidate + QStringLiteral("/velmora.js"))) return QDir(candidate).canonicalPath();
  return {};
}

Options parseOptions(const QApplication& app) {
  QCommandLineParser parser;
  parser.setApplicationDescription(
      QStringLiteral("Serves the Velmora controls to web pages: QWebChannel over a WebSocket on 127.0.0.1.\n"
                     "Only pages from an allowed origin get in, only through a loopback Host name and only from\n"
                     "programs of the agent's own user."));
  parser.addHelpOption();
  parser.addOptions({
      {QStringLiteral("port"), QStringLiteral("WebSocket port on 127.0.0.1 (0: any free one)."), QStringLiteral("PORT"),
       QString::number(kDefaultPort)},
      {QStringLiteral("allow-origin"), QStringLiteral("Let pages from ORIGIN in (repeatable)."),
       QStringLiteral("ORIGIN")},
      {QStringLiteral("settings"),
       QStringLiteral(
           "JSON file {\"allowedOrigins\": [...]} (default: velmora/agent.json in the user's config folder)."),
       QStringLiteral("FILE")},
      {QStringLiteral("no-prompt"),
       QStringLiteral("Refuse an origin not on the list without asking the user on the desktop.")},
      {QStringLiteral("demo"), QStringLiteral("Also serve the demo page; its origin is then allowed.")},
      {QStringLiteral("http-port"), QStringLiteral("Demo page port on 127.0.0.1 (0: any free one)."),
       QStringLiteral("PORT"), QString::number(kDefaultDemoPort)},
      {QStringLiteral("max-message-mb"),
       QStringLiteral("Close a page that sends a message larger than N megabytes (1009: message too big)."),
       QStringLiteral("N"), QString::number(kDefaultMaxMessageMb)},
      {QStringLiteral("web-root"), QStringLiteral("The web folder (velmora.js, demo/, node_modules/)."),
       QStringLiteral("DIR")},
      {QStringLiteral("receiver"),
       QStringLiteral("The upload receiver the demo starts (default: velmora-receiver beside this program)."),
       QStringLiteral("PROGRAM")},
  });
  parser.process(app);
  if (!parser.positionalArguments().isEmpty())
    throw std::runtime_error("unexpected argument: " + parser.positionalArguments().first().toStdString());

  Options options;
  options.port = portOption(parser, QStringLiteral("port"), kDefaultPort);
  options.demoPort = portOption(parser, QStringLiteral("http-port"), kDefaultDemoPort);
  options.maxMessageMb = maxMessageOption(parser);
  options.demo = parser.isSet(QStringLiteral("demo"));
  for (const QString& origin : parser.values(QStringLiteral("allow-origin"))) {
    if (velmora::agent::normalizeOrigin(origin).isEmpty())
      throw std::runtime_error("--allow-origin wants an origin like http://127.0.0.1:8080, got: " +
                               origin.toStdString());
    options.allowedOrigins.append(origin);
  }
  options.prompt = !parser.isSet(QStringLiteral("no-prompt"));
  options.settingsFile = parser.isSet(QStringLiteral("settings"))
                             ? parser.value(QStringLiteral("settings"))
                             : QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                                   QStringLiteral("/velmora/agent.json");
  if (parser.isSet(QStringLiteral("settings")) || QFileInfo::exists(options.settingsFile))
    options.allowedOrigins += readAllowedOrigins(options.settingsFile);
  options.webRoot = parser.isSet(QStringLiteral("web-root")) ? parser.value(QStringLiteral("web-root")) : findWebRoot();
  options.receiver = parser.isSet(QStringLiteral("receiver")) ? parser.value(QStringLiteral("receiver"))
                                                              : DemoReceiver::defaultProgram();
  return options;
}

std::unique_ptr<DemoServer> makeDemoServer(const QString& webRoot) {
  if (webRoot.isEmpty() || !QFileInfo::exists(webRoot + QStringLiteral("/velmora.js")))
    throw std::runtime_error("the demo needs the web folder (velmora.js, demo/): give --web-root DIR");
  const QString editor = webRoot + QStringLiteral("/node_modules/quill/dist");
  if (!QFileInfo(editor).isDir())
    log(QStringLiteral("the demo's editor is missing (%1): run npm ci in web/").arg(editor));
  QFile channelScript(QStringLiteral(":/qtwebchannel/qwebchannel.js"));
  if (!channelScript.open(QIODevice::ReadOnly)) throw std::runtime_error("Qt's qwebchannel.js resource is missing");
  StaticFiles files({{QStringLiteral("/velmora.js"), webRoot + QStringLiteral("/velmora.js")},
                     {QStringLiteral("/demo/"), webRoot + QStringLiteral("/demo")},
                     {QStringLiteral("/quill/"), editor}});
  return std::make_unique<DemoServer>(std::move(files), channelScript.readAll());
}

// The demo's pictures go to a receiver of its own; without one the demo still runs, only
// its upload action is missing.
std::unique_ptr<DemoReceiver> startDemoReceiver(const QString& program) {
  auto receiver = std::make_unique<DemoReceiver>();
  if (const Outcome started = receiver->start(program); !started) {
    log(QStringLiteral("the demo runs without its upload receiver: ") + started.failure().description);
    return nullptr;
  }
  log(QStringLiteral("upload receiver on %1 (storing in %2)").arg(receiver->baseUrl(), receiver->storageFolder()));
  return receiver;
}

// SIGINT and SIGTERM end the event loop, so pages are closed and their folders deleted.
int signalPipe[2];

void quitOnSignals() {
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, signalPipe) != 0) return;
  auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, qApp);
  QObject::connect(notifier, &QSocketNotifier::activated, qApp, &QCoreApplication::quit);
  struct sigaction action {};
  action.sa_handler = [](int) {
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
  };
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

int run(QApplication& app) {
  const Options options = parseOptions(app);
  QStringList origins = options.allowedOrigins;
  std::unique_ptr<DemoServer> demo;
  std::unique_ptr<DemoReceiver> receiver;
  if (options.demo) {
    demo = makeDemoServer(options.webRoot);
    QString error;
    if (const Outcome bound = demo->bind(options.demoPort); !bound)
      throw std::runtime_error(bound.failure().description.toStdString());
    origins.prepend(demo->origin());
  }

  AgentServer agent(origins);
  agent.setHasDisplay(velmora::hostHasDisplay());
  agent.setMaxMessageSize(options.maxMessageMb << 20);
  // Without a desktop nobody could answer: the allowlist alone decides.
  const bool prompt = options.prompt && velmora::hostHasDisplay();
  if (prompt)
    agent.setOriginPrompt([](const QString& origin) { return askTheUserAbout(origin); }, options.settingsFile);
  QString error;
  if (const Outcome listening = agent.listen(options.port); !listening)
    throw std::runtime_error(QStringLiteral("cannot listen on 127.0.0.1:%1: %2")
                                 .arg(options.port)
                                 .arg(listening.failure().description)
                                 .toStdString());
  const QString agentUrl = QStringLiteral("ws://127.0.0.1:%1").arg(agent.port());
  log(QStringLiteral("listening on %1").arg(agentUrl));
  const QStringList& allowed = agent.policy().allowedOrigins();
  log(allowed.isEmpty() ? QStringLiteral("no origin is allowed: give --allow-origin or --settings")
                        : QStringLiteral("allowed origins: ") + allowed.join(QStringLiteral(", ")));
  log(prompt ? QStringLiteral("a page from another origin is asked about on the desktop (remembered in %1)")
                   .arg(options.settingsFile)
             : QStringLiteral("a page from another origin is refused"));
  log(QStringLiteral("pages' messages may be up to %1 MB").arg(options.maxMessageMb));
  log(velmora::hostHasDisplay()
          ? QStringLiteral("desktop display %1: paste, dialogs and capture work").arg(qEnvironmentVariable("DISPLAY"))
          : QStringLiteral("no desktop display: paste, the clipboard, dialogs and capture tell pages they cannot run; "
                           "start the agent in a desktop session, or on a virtual X server (Xvfb)"));
  if (demo) {
    receiver = startDemoReceiver(options.receiver);
    demo->start(agentUrl, receiver ? receiver->uploadUrl() : QString());
    log(QStringLiteral("demo page on %1/").arg(demo->origin()));
  }
  quitOnSignals();
  const int code = app.exec();
  log(QStringLiteral("stopping"));
  return code;
}

}  // namespace

int main(int argc, char** argv) {
  const std::unique_ptr<QApplication> app = velmora::startHostProcess(argc, argv, QStringLiteral("velmora-agent"));
  QApplication::setQuitOnLastWindowClosed(false);
  try {
    return run(*app);
  } catch (const std::exception& error) {
    log(QString::fromUtf8(error.what()));
    return kExitUsage;
  }
}
