// The event log: one entry per tracking request that the built-in /events and /aclick
// routes answered, numbered in arrival order. Many connections append at once, so the
// sequence number is taken under the same lock that appends the entry.

#include "sandbox_internal.h"

namespace tavik::sandbox::detail {

nlohmann::json EventLog::append(const RecordedRequest& request) {
  nlohmann::json entry = {
      {"path", request.path},
      {"event_name",
       request.path == "/aclick" ? std::string("click") : request.value("event_name").value_or("")},
      {"params", queryObject(request.query)},
      {"query", queryPairs(request.query)},
      {"time_ms", request.timeMs},
  };
  {
    std::lock_guard lock(mutex_);
    entry["seq"] = nextSeq_++;
    entries_.push_back(entry);
  }
  changed_.notify_all();
  return entry;
}

nlohmann::json EventLog::snapshot() const {
  std::lock_guard lock(mutex_);
  nlohmann::json all = nlohmann::json::array();
  for (const auto& entry : entries_) all.push_back(entry);
  return all;
}

std::size_t EventLog::size() const {
  std::lock_guard lock(mutex_);
  return entries_.size();
}

void EventLog::clear() {
  std::lock_guard lock(mutex_);
  entries_.clear();
  nextSeq_ = 1;
}

bool EventLog::waitFor(std::size_t count, std::chrono::milliseconds timeout) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] { return entries_.size() >= count; });
}

}  // namespace tavik::sandbox::detail
