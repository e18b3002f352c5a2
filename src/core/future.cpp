#include "tavik/core/future.h"

#include <cstdio>
#include <cstdlib>

namespace tavik::detail {

namespace {
thread_local bool tlsTransportThread = false;
}

void markTransportThread() {
  tlsTransportThread = true;
}
bool onTransportThread() {
  return tlsTransportThread;
}

void fatalError(const char* message) {
  std::fprintf(stderr, "tavik/TAVIK: Fatal error: %s\n", message);
  std::fflush(stderr);
  std::abort();
}

}  // namespace tavik::detail
