// One libFuzzer program per target: the target's name comes from VELMORA_FUZZ_TARGET.
#include <QCoreApplication>
#include <cstring>

#include "fuzz/FuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static int argc = 1;
  static char name[] = "velmora-fuzz";
  static char* argv[] = {name, nullptr};
  static QCoreApplication app(argc, argv);
  static const velmora::fuzz::Target* target = [] {
    for (const auto& t : velmora::fuzz::targets())
      if (std::strcmp(t.name, VELMORA_FUZZ_TARGET) == 0) return &t;
    std::abort();
  }();
  target->run(data, size);
  return 0;
}
