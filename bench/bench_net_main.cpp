// The network benchmarks, in a fixed order: the event bursts run first, so that both the
// SDK and the raw baseline start them without a warm connection to the server.

#include "bench_support.h"

int main(int argc, char** argv) {
  tavik::bench::registerEventBenchmarks();
  tavik::bench::registerFetchBenchmarks();
  return tavik::bench::benchMain(argc, argv);
}
