#pragma once

#include <functional>

class QObject;

namespace velmora {

// Lets the events that are waiting run. The controls' long work does this at every step
// (each collected reference, each upload step, each stage of a clean-up, every wait), so
// the page stays responsive and request callbacks land while a call is still on the stack.
// Anything a page can do may happen inside: call the same control again, start another
// upload batch, release the control. The guards against that re-entry:
// - work owned by an object passes that object, and stops at once, touching nothing, when
//   the answer is false (the object was destroyed meanwhile: an upload batch replaced by
//   the page's next one, or dropped with its control);
// - the agent keeps a control alive while one of its calls is on the stack (PageSession);
// - producers hand their results back as values, so a nested call cannot leave half of
//   its output in the outer call's.
void letPendingEventsRun();
// Answers whether `self` still exists afterwards.
[[nodiscard]] bool letPendingEventsRun(const QObject* self);
// Lets events run until `done` answers true or `timeoutMs` has passed (a negative time
// waits for ever); answers done(). Waiting for another process (the office helper) goes
// through here, so the page keeps its answers flowing meanwhile.
bool letEventsRunUntil(const std::function<bool()>& done, int timeoutMs);

}  // namespace velmora
