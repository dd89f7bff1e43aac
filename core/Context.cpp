#include "core/Context.h"

namespace velmora {

Context& Context::process() {
  static Context context;
  return context;
}

}  // namespace velmora
