#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace velmora::fuzz {

// Entry points that feed arbitrary bytes to one parser each. libFuzzer drives them in the
// fuzzing build (-DVELMORA_FUZZ=ON with clang); the test suite replays seeded random and
// mutated inputs through the same functions on every run.
struct Target {
  const char* name;
  std::function<void(const uint8_t*, size_t)> run;
};

const std::vector<Target>& targets();

}  // namespace velmora::fuzz
