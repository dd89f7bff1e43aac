#include <QApplication>
#include <cstdio>

#include "cli/CallCommand.h"
#include "cli/CleanCommand.h"
#include "cli/Output.h"
#include "cli/PrinterCommand.h"
#include "core/ScriptError.h"
#include "host/HostProcess.h"

namespace {

constexpr const char* kUsage =
    "usage: velmora [--set Property=Value]... [--timeout SECONDS] [--class Velmora5] call Member [Argument]...\n"
    "  Creates a control, sets its properties, calls one member and prints the result and\n"
    "  the control's properties as JSON. An argument \"-\" stands for standard input.\n"
    "usage: velmora clean --engine word|excel|wps-word|wps-excel [--source import|paste] [--opt OPTIONS]\n"
    "                     [--extra-css FILE] [--trace] [--style-out FILE --body-out FILE] FILE\n"
    "  Cleans office HTML into Style and Body, printed as JSON or written to the two files.\n"
    "usage: velmora printer install|remove|status [--server-bin DIR]\n"
    "  Sets up the virtual printer VelmoraPrinter (its CUPS queue and backend; as root),\n"
    "  removes it, or says whether it is installed.\n";

int run(const QStringList& args) {
  if (args.isEmpty() || args[0] == u"--help" || args[0] == u"-h") {
    std::fputs(kUsage, args.isEmpty() ? stderr : stdout);
    return args.isEmpty() ? velmora::cli::ExitUsage : velmora::cli::ExitOk;
  }
  if (args[0] == u"clean") return velmora::cli::runClean(args.mid(1));
  if (args[0] == u"printer") return velmora::cli::runPrinter(args.mid(1));
  return velmora::cli::runCall(args);
}

}  // namespace

int main(int argc, char** argv) {
  const std::unique_ptr<QApplication> app = velmora::startHostProcess(argc, argv, QStringLiteral("velmora"));
  try {
    return run(app->arguments().mid(1));
  } catch (const velmora::cli::UsageError& error) {
    std::fprintf(stderr, "velmora: %s\n%s", error.what(), kUsage);
  } catch (const velmora::ScriptError& error) {
    std::fprintf(stderr, "velmora: error %ld: %s\n", error.number(), qPrintable(error.description()));
  }
  return velmora::cli::ExitUsage;
}
