#pragma once

#include <functional>
#include <optional>
#include <type_traits>

namespace velmora {

// Runs `work` on a worker thread while this thread's events keep running, and returns once
// it is done (rethrowing what it threw). The agent serves every page from one thread: a
// clean-up over megabytes, or a rule that takes seconds on hostile input, would otherwise
// hold every other page's answers until it ends. Windows, the clipboard and the network
// stay on the main thread, so `work` is pure: it reads only values it owns (capture by
// value, since the page may call the same control while it runs; see Yield.h) and touches
// no QObject. Off the main thread, or without an application, `work` runs right here.
void runAside(const std::function<void()>& work);

template <class Work>
auto runAside(Work&& work) -> std::invoke_result_t<Work&>
requires(!std::is_void_v<std::invoke_result_t<Work&>>) {
  std::optional<std::invoke_result_t<Work&>> result;
  runAside(std::function<void()>([&] { result.emplace(work()); }));
  return std::move(*result);
}

}  // namespace velmora
