#pragma once
#include <QStringList>

namespace velmora::cli {

// velmora [--set Property=Value]... [--timeout SECONDS] call Member [Argument]...
// Creates a control, sets the properties, calls one member and, for a member that starts
// work going on after the call (an upload, a capture), runs the event loop until Status
// reads "ok" or the time limit passes. Prints the result and every readable property as
// JSON on standard output. An argument "-" stands for the text on standard input.
int runCall(const QStringList& arguments);

}  // namespace velmora::cli
