#pragma once
#include <chrono>

namespace velmora {

class Velmora5;

enum class Waited { Finished, TimedOut, NothingUnderWay };

// Runs the event loop until the control's Status reads "ok" (its work is over: read Error,
// Style, Body, OriginalFiles and SavedFiles), until `timeout` passes, or until the control
// has no work left that could change Status (a paste that found nothing of its kind).
Waited waitForResult(const Velmora5& control, std::chrono::milliseconds timeout);

}  // namespace velmora
