#include "tavik/core/log.h"

#include <pthread.h>

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include "tavik/core/value.h"

namespace tavik {

namespace {

// The sink is swapped under the lock and called without it, so a sink may log or
// replace the sink; a sink replaced while it runs finishes with its own copy.
thread_local bool insideSink = false;

// Never destroyed: threads may still write lines while the process exits.
std::mutex& sinkMutex() {
  static auto* mutex = [] {
    auto* made = new std::mutex;
    // A child made by fork() must not inherit the lock held by another thread.
    ::pthread_atfork([] { sinkMutex().lock(); }, [] { sinkMutex().unlock(); },
                     [] { sinkMutex().unlock(); });
    return made;
  }();
  return *mutex;
}
std::shared_ptr<const LogSink>& sinkSlot() {
  static auto* slot = new std::shared_ptr<const LogSink>;
  return *slot;
}
// The sink used while the host has none of its own.
std::shared_ptr<const LogSink>& fallbackSlot() {
  static auto* slot = new std::shared_ptr<const LogSink>;
  return *slot;
}

void swapInto(std::shared_ptr<const LogSink>& slot, LogSink sink) {
  auto next = sink ? std::make_shared<const LogSink>(std::move(sink)) : nullptr;
  std::lock_guard lock(sinkMutex());
  slot.swap(next);
  // The previous sink is released here, or by the last line still being written to it.
}

void writeToStderr(std::string_view line) {
  std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
}

}  // namespace

void setLogSink(LogSink sink) {
  swapInto(sinkSlot(), std::move(sink));
}

namespace detail {

void setFallbackLogSink(LogSink sink) {
  swapInto(fallbackSlot(), std::move(sink));
}

void writeLogLine(std::string_view line) {
  std::shared_ptr<const LogSink> sink;
  {
    std::lock_guard lock(sinkMutex());
    sink = sinkSlot() ? sinkSlot() : fallbackSlot();
  }
  // A line the sink itself writes goes to standard error instead of back into the sink.
  if (!sink || insideSink) {
    writeToStderr(line);
    return;
  }
  insideSink = true;
  try {
    (*sink)(line);
  } catch (...) {
    // A sink that throws loses its line, never the SDK's thread.
  }
  insideSink = false;
}

std::string debugLineText(std::string_view text) {
  std::string line = "TAVIK: - ";
  line += text;
  return quoteText(line);
}

void debugLine(std::string_view text) {
  writeLogLine(debugLineText(text));
}

}  // namespace detail
}  // namespace tavik
