#include "tavik/core/log.h"

#include <cstdio>
#include <mutex>
#include <string>

#include "tavik/core/value.h"

namespace tavik {

namespace {
std::mutex& sinkMutex() {
  static std::mutex m;
  return m;
}
LogSink& sinkSlot() {
  static LogSink sink;
  return sink;
}
}  // namespace

void setLogSink(LogSink sink) {
  std::lock_guard lock(sinkMutex());
  sinkSlot() = std::move(sink);
}

namespace detail {

void writeLogLine(std::string_view line) {
  std::lock_guard lock(sinkMutex());
  if (auto& sink = sinkSlot()) {
    sink(line);
  } else {
    std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
  }
}

void debugLine(std::string_view text) {
  std::string line = "TAVIK: - ";
  line += text;
  writeLogLine(quoteText(line));
}

}  // namespace detail
}  // namespace tavik
