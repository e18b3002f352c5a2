#include "views/creative_store.h"

#include <cstdint>
#include <list>
#include <mutex>
#include <unordered_map>

#include "network/http_client.h"
#include "tavik/core/error.h"
#include "tavik/network/transport.h"
#include "tavik/network/web_service.h"
#include "views/creative_disk_cache.h"
#include "views/preload.h"

namespace tavik::quick::detail {

// One download of one creative, shared by every hold on its address. The last hold to
// go takes it down: a download still under way is cancelled.
template <class T>
struct CreativeDownload {
  explicit CreativeDownload(Future<T> f) : future(std::move(f)) {}
  ~CreativeDownload() {
    if (future.valid() && future.cancel()) onCancelled();
  }
  CreativeDownload(const CreativeDownload&) = delete;
  CreativeDownload& operator=(const CreativeDownload&) = delete;

  static void onCancelled();
  Future<T> future;
};

template <class T>
Future<T> CreativeHold<T>::future() const {
  if (!download_) throw InvalidFutureError("CreativeHold::future() on an empty hold");
  return download_->future.detached();
}

template class CreativeHold<Bytes>;
template class CreativeHold<std::string>;

namespace {

// One download of a creative; a status outside 200-299 is an error like any other.
Future<Bytes> download(const std::string& url) {
  if (!WebService::isValidApiUrl(url)) {
    return Future<Bytes>::failed(std::make_exception_ptr(TavikError::badUrl()));
  }
  tavik::detail::HttpRequest request;
  request.url = url;
  request.maxBodyBytes = transport::settings().maxMediaBytes;
  request.source = tavik::detail::RequestSource::media;
  return tavik::detail::sendHttpRequest(std::move(request))
      .then([](const tavik::detail::HttpResponse& response) -> Bytes {
        if (response.status < 200 || response.status > 299) {
          throw TavikError::badStatus(static_cast<int>(response.status), {});
        }
        return std::make_shared<const std::string>(response.body);
      });
}

// The video file of `url`: a sound copy from the disk cache, else downloaded into it.
// Looking at the cache may read the file, so it runs on the SDK's background thread;
// writing the file does too, never on the transport thread.
Future<std::string> cachedFile(const std::string& url) {
  auto promise = std::make_shared<Promise<std::string>>();
  Future<std::string> result = promise->get_future();
  backgroundExecutor()([promise, result, url] {
    try {
      if (auto path = CreativeDiskCache::instance().find(url)) {
        promise->set_value(*path);
        return;
      }
    } catch (...) {
      // An unreadable cache is no cache: download.
    }
    if (result.cancelRequested()) {
      promise->set_exception(std::make_exception_ptr(TransportError(
          TransportError::Kind::cancelled, 0, "the download of " + url + " was cancelled")));
      return;
    }
    Future<std::string> written = download(url).then(
        backgroundExecutor(),
        [url](const Bytes& body) { return CreativeDiskCache::instance().store(url, *body); });
    result.onCancel([written] { written.cancel(); });
    written.whenReady([promise](const Future<std::string>& ready) {
      try {
        promise->set_value(ready.get());
      } catch (...) {
        promise->set_exception(std::current_exception());
      }
    });
  });
  return result;
}

// Process-wide store: the downloads under way (by address, one per kind) and a
// byte-bounded LRU of image bytes. Never destroyed, like the HTTP client it sits on.
class Store {
 public:
  static Store& instance() {
    static Store* store = new Store();
    return *store;
  }

  CreativeHold<Bytes> bytes(const std::string& url) {
    {
      std::lock_guard lock(mutex_);
      if (auto hit = index_.find(url); hit != index_.end()) {
        lru_.splice(lru_.begin(), lru_, hit->second);
        ++stats_.memoryHits;
        return CreativeHold<Bytes>(
            std::make_shared<CreativeDownload<Bytes>>(Future<Bytes>::ready(hit->second->second)));
      }
    }
    return join(
        bytesUnderWay_, url, [&] { return download(url); },
        [this, url](const Bytes& body) { remember(url, body); });
  }

  Bytes cached(const std::string& url) {
    std::lock_guard lock(mutex_);
    auto hit = index_.find(url);
    return hit == index_.end() ? nullptr : hit->second->second;
  }

  CreativeHold<std::string> file(const std::string& url) {
    return join(
        filesUnderWay_, url, [&] { return cachedFile(url); }, [](const std::string&) {});
  }

  CreativeStoreStats stats() {
    std::lock_guard lock(mutex_);
    return stats_;
  }

  void clear() {
    std::lock_guard lock(mutex_);
    lru_.clear();
    index_.clear();
    stats_.cachedBytes = 0;
  }

  void countCancelled() {
    std::lock_guard lock(mutex_);
    ++stats_.cancelled;
  }

 private:
  template <class T>
  struct UnderWay {
    std::weak_ptr<CreativeDownload<T>> download;
    std::uint64_t serial = 0;
  };
  template <class T>
  using UnderWayMap = std::unordered_map<std::string, UnderWay<T>>;

  // A hold on the download of `url` under way, or on a new one made by `start`. A
  // download leaves the map when it ends (`settle` sees its result first, under the
  // lock) or, cancelled, when a later hold finds it gone.
  template <class T, class Start, class Settle>
  CreativeHold<T> join(UnderWayMap<T>& underWay, const std::string& url, Start&& start,
                       Settle settle) {
    std::shared_ptr<CreativeDownload<T>> made;
    std::uint64_t serial = 0;
    {
      std::lock_guard lock(mutex_);
      if (auto running = underWay.find(url); running != underWay.end()) {
        if (auto shared = running->second.download.lock()) {
          ++stats_.sharedDownloads;
          return CreativeHold<T>(std::move(shared));
        }
      }
      ++stats_.downloads;
      made = std::make_shared<CreativeDownload<T>>(start());
      serial = ++serial_;
      underWay[url] = UnderWay<T>{made, serial};
    }
    // Outside the lock: a download refused at once completes inside this call.
    made->future.whenReady([this, &underWay, url, serial, settle](const Future<T>& ready) {
      std::lock_guard lock(mutex_);
      if (auto it = underWay.find(url); it != underWay.end() && it->second.serial == serial) {
        underWay.erase(it);
      }
      try {
        settle(ready.get());
      } catch (...) {
        // A failed creative is not kept: the next view asks again.
      }
    });
    return CreativeHold<T>(std::move(made));
  }

  using Entry = std::pair<std::string, Bytes>;

  void remember(const std::string& url, const Bytes& body) {
    if (index_.count(url) || body->size() > kCreativeMemoryBudget / 4) return;
    lru_.emplace_front(url, body);
    index_.emplace(url, lru_.begin());
    stats_.cachedBytes += body->size();
    while (stats_.cachedBytes > kCreativeMemoryBudget && !lru_.empty()) {
      stats_.cachedBytes -= lru_.back().second->size();
      index_.erase(lru_.back().first);
      lru_.pop_back();
    }
  }

  std::mutex mutex_;
  std::list<Entry> lru_;
  std::unordered_map<std::string, std::list<Entry>::iterator> index_;
  UnderWayMap<Bytes> bytesUnderWay_;
  UnderWayMap<std::string> filesUnderWay_;
  std::uint64_t serial_ = 0;
  CreativeStoreStats stats_;
};

}  // namespace

template <class T>
void CreativeDownload<T>::onCancelled() {
  Store::instance().countCancelled();
}

CreativeHold<Bytes> holdCreativeBytes(const std::string& url, HoldFor holder) {
  auto hold = Store::instance().bytes(url);
  if (holder == HoldFor::view) takeOverPreload(url);
  return hold;
}

CreativeHold<std::string> holdCreativeFile(const std::string& url, HoldFor holder) {
  auto hold = Store::instance().file(url);
  if (holder == HoldFor::view) takeOverPreload(url);
  return hold;
}

Bytes cachedCreativeBytes(const std::string& url) {
  return Store::instance().cached(url);
}

CreativeStoreStats creativeStoreStats() {
  return Store::instance().stats();
}

void clearCreativeCache() {
  Store::instance().clear();
}

}  // namespace tavik::quick::detail
