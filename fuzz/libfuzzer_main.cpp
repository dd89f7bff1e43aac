// The libFuzzer program: VELMORA_FUZZ_TARGET names the entry point it drives.
#include <QCoreApplication>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/ScriptError.h"
#include "fuzz/FuzzTargets.h"

namespace {

const velmora::fuzz::Target& chosenTarget() {
  const char* wanted = std::getenv("VELMORA_FUZZ_TARGET");
  for (const auto& target : velmora::fuzz::targets())
    if (wanted && std::strcmp(target.name, wanted) == 0) return target;
  std::fprintf(stderr, "velmora-fuzz: set VELMORA_FUZZ_TARGET to one of:");
  for (const auto& target : velmora::fuzz::targets()) std::fprintf(stderr, " %s", target.name);
  std::fprintf(stderr, "\n");
  std::exit(2);
}

const velmora::fuzz::Target* target = nullptr;

}  // namespace

// The target is checked before the first input, so a wrong name leaves no crash file.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  static int argc = 1;
  static char name[] = "velmora-fuzz";
  static char* argv[] = {name, nullptr};
  static QCoreApplication app(argc, argv);
  target = &chosenTarget();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    target->run(data, size);
  } catch (const velmora::ScriptError&) {
    // An engine limit surfaces as a script error: a clear result, not a crash.
  }
  return 0;
}
