#include "tavik/network/request_observer.h"

#include <curl/curl.h>

#include <pthread.h>

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "network/request_observers.h"
#include "tavik/events/event_vocabulary.h"

namespace tavik::detail {

std::atomic<std::size_t> installedRequestObservers{0};

namespace {

std::atomic<std::uint64_t> recordsBuilt{0};

// One installed observer. `removed` and `calls` are guarded by the registry's mutex.
struct Slot {
  std::uint64_t id = 0;
  transport::RequestObserverFn observer;
  bool removed = false;
  int calls = 0;  // calls in progress
};
using SlotList = std::vector<std::shared_ptr<Slot>>;

// The observer calls running on this thread, innermost first, so that a removal from
// inside an observer does not wait for its own call.
struct CallFrame {
  const Slot* slot;
  CallFrame* outer;
};
thread_local CallFrame* callsOnThisThread = nullptr;

int callsOnThisThreadOf(const Slot* slot) {
  int count = 0;
  for (const CallFrame* frame = callsOnThisThread; frame; frame = frame->outer) {
    if (frame->slot == slot) ++count;
  }
  return count;
}

// The installed observers. The list is replaced, never changed in place, so a report
// walks a snapshot without holding the lock while observers run.
class Registry {
 public:
  std::uint64_t add(transport::RequestObserverFn observer) {
    auto slot = std::make_shared<Slot>();
    slot->observer = std::move(observer);
    std::lock_guard lock(mutex_);
    slot->id = ++lastId_;
    auto list = std::make_shared<SlotList>(*slots_);
    list->push_back(slot);
    publish(std::move(list));
    return slot->id;
  }

  void remove(std::uint64_t id) {
    std::unique_lock lock(mutex_);
    const auto found = std::find_if(slots_->begin(), slots_->end(),
                                    [id](const auto& slot) { return slot->id == id; });
    if (found == slots_->end()) return;
    std::shared_ptr<Slot> slot = *found;
    auto list = std::make_shared<SlotList>(*slots_);
    list->erase(list->begin() + (found - slots_->begin()));
    publish(std::move(list));
    slot->removed = true;
    // A call on another thread ends first; this thread's own calls (removal from inside
    // the observer) cannot, and need not: nothing starts a new call of a removed slot.
    const int own = callsOnThisThreadOf(slot.get());
    idle_.wait(lock, [&] { return slot->calls <= own; });
    if (own > 0) return;  // the function is still running: it goes with the last snapshot
    transport::RequestObserverFn observer = std::move(slot->observer);
    lock.unlock();
    // Destroyed here, so whatever it captured is released before removal returns.
  }

  void notify(const transport::ObservedRequest& record) {
    std::shared_ptr<const SlotList> list;
    {
      std::lock_guard lock(mutex_);
      list = slots_;
    }
    for (const auto& slot : *list) {
      {
        std::lock_guard lock(mutex_);
        if (slot->removed) continue;
        ++slot->calls;
      }
      CallFrame frame{slot.get(), callsOnThisThread};
      callsOnThisThread = &frame;
      try {
        slot->observer(record);
      } catch (...) {
        // An observer must not take the transport thread down with it.
      }
      callsOnThisThread = frame.outer;
      std::lock_guard lock(mutex_);
      if (--slot->calls == 0 && slot->removed) idle_.notify_all();
    }
  }

  // fork(): the lock is taken around it, and in the child no call is in progress (the
  // threads that made them do not exist there).
  void prepareFork() { mutex_.lock(); }
  void parentAfterFork() { mutex_.unlock(); }
  void childAfterFork() {
    for (const auto& slot : *slots_) slot->calls = 0;
    mutex_.unlock();
  }

 private:
  void publish(std::shared_ptr<const SlotList> list) {
    slots_ = std::move(list);
    installedRequestObservers.store(slots_->size(), std::memory_order_relaxed);
  }

  std::mutex mutex_;
  std::condition_variable idle_;
  std::uint64_t lastId_ = 0;
  std::shared_ptr<const SlotList> slots_ = std::make_shared<SlotList>();
};

// Made on first use and never destroyed, like the HTTP client that reports to it.
Registry& registry() {
  static Registry* instance = [] {
    auto* made = new Registry();
    ::pthread_atfork([] { registry().prepareFork(); }, [] { registry().parentAfterFork(); },
                     [] { registry().childAfterFork(); });
    return made;
  }();
  return *instance;
}

bool endsWith(std::string_view text, std::string_view tail) {
  return text.size() >= tail.size() && text.substr(text.size() - tail.size()) == tail;
}

std::string decoded(std::string_view text) {
  if (text.empty()) return {};  // libcurl would read a length of 0 as "up to the NUL"
  int length = 0;
  char* raw = curl_easy_unescape(nullptr, text.data(), static_cast<int>(text.size()), &length);
  if (!raw) return std::string(text);
  std::string out(raw, static_cast<std::size_t>(length));
  curl_free(raw);
  return out;
}

// Path and query items of an absolute address.
void splitUrl(const std::string& url, transport::ObservedRequest& record) {
  const std::string_view text(url);
  const auto scheme = text.find("://");
  const auto pathAt = scheme == std::string_view::npos ? 0 : text.find_first_of("/?#", scheme + 3);
  // (A one-character string rather than the literal: GCC 12 warns falsely about the
  // literal's assignment once this is inlined at -O3.)
  if (pathAt == std::string_view::npos) {
    record.path = std::string(1, '/');
    return;
  }
  const auto fragmentAt = text.find('#', pathAt);
  const std::string_view rest = text.substr(pathAt, fragmentAt - pathAt);
  const auto queryAt = rest.find('?');
  record.path = decoded(rest.substr(0, queryAt));
  if (record.path.empty()) record.path = std::string(1, '/');
  if (queryAt == std::string_view::npos) return;
  std::string_view query = rest.substr(queryAt + 1);
  while (!query.empty()) {
    const auto end = query.find('&');
    const std::string_view item = query.substr(0, end);
    if (!item.empty()) {
      const auto equals = item.find('=');
      record.query.emplace_back(
          decoded(item.substr(0, equals)),
          equals == std::string_view::npos ? std::string() : decoded(item.substr(equals + 1)));
    }
    if (end == std::string_view::npos) break;
    query.remove_prefix(end + 1);
  }
}

}  // namespace

std::string_view serviceOf(const HttpRequest& request, std::string_view path) {
  if (request.source == RequestSource::media) return "media";
  if (request.source == RequestSource::direct) return "other";
  // The ad fetcher and the event registrar append these paths to the configured base
  // address, which may carry a path of its own.
  if (endsWith(path, "/v2/bsda") || endsWith(path, "/v2/bsda/pt")) return "ads";
  if (endsWith(path, "/sda") || endsWith(path, "/sda/v1")) return "products";
  for (const auto eventPath : {TavikEventPath::events, TavikEventPath::adClick}) {
    const std::string_view name = pathName(eventPath);
    if (endsWith(path, name) && endsWith(path.substr(0, path.size() - name.size()), "/")) {
      return "events";
    }
  }
  return "other";
}

void reportRequest(const HttpRequest& request, std::chrono::steady_clock::time_point called,
                   std::chrono::steady_clock::time_point ended, const RequestOutcome& outcome) {
  recordsBuilt.fetch_add(1, std::memory_order_relaxed);
  transport::ObservedRequest record;
  const auto took = ended - called;
  // The wall-clock time of the call, from the monotonic time the transport keeps.
  record.sentAt = std::chrono::system_clock::now() -
                  std::chrono::duration_cast<std::chrono::system_clock::duration>(
                      std::chrono::steady_clock::now() - called);
  record.elapsed = std::chrono::duration_cast<std::chrono::microseconds>(took);
  record.method = request.method;
  record.url = request.url;
  splitUrl(request.url, record);
  record.service = std::string(serviceOf(request, record.path));
  record.status = outcome.status;
  record.bodyBytes = outcome.bodyBytes;
  if (outcome.failed) {
    record.errorKind = TransportError::kindName(outcome.kind);
    record.error = record.errorKind + ": " + std::string(outcome.reason);
  }
  registry().notify(record);
}

std::uint64_t requestRecordsBuilt() {
  return recordsBuilt.load(std::memory_order_relaxed);
}

}  // namespace tavik::detail

namespace tavik::transport {

RequestObservation observeRequests(RequestObserverFn observer) {
  if (!observer) return RequestObservation();
  return RequestObservation(detail::registry().add(std::move(observer)));
}

RequestObservation::~RequestObservation() {
  reset();
}

RequestObservation::RequestObservation(RequestObservation&& other) noexcept
    : id_(std::exchange(other.id_, 0)) {}

RequestObservation& RequestObservation::operator=(RequestObservation&& other) noexcept {
  if (this != &other) {
    reset();
    id_ = std::exchange(other.id_, 0);
  }
  return *this;
}

void RequestObservation::reset() {
  const std::uint64_t id = std::exchange(id_, 0);
  if (id != 0) detail::registry().remove(id);
}

}  // namespace tavik::transport
