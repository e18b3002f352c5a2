#include "views/creative_store.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <list>
#include <mutex>
#include <unordered_map>

#include "network/http_client.h"
#include "tavik/core/error.h"
#include "tavik/network/transport.h"
#include "tavik/network/web_service.h"

namespace tavik::quick::detail {

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

// Process-wide store: a byte-bounded LRU of image bytes, the downloads in flight, and
// the video files on disk. Never destroyed, like the HTTP client it sits on.
class Store {
 public:
  Future<Bytes> bytes(const std::string& url) {
    std::unique_lock lock(mutex_);
    if (auto hit = index_.find(url); hit != index_.end()) {
      lru_.splice(lru_.begin(), lru_, hit->second);
      ++stats_.memoryHits;
      return Future<Bytes>::ready(hit->second->second);
    }
    if (auto running = inFlight_.find(url); running != inFlight_.end()) return running->second;
    ++stats_.downloads;
    Future<Bytes> future = download(url);
    inFlight_.emplace(url, future);
    lock.unlock();
    // Settles the entry whenever the download ends (at once for a refused address).
    future.whenReady([this, url](const Future<Bytes>& ready) {
      std::lock_guard guard(mutex_);
      inFlight_.erase(url);
      try {
        remember(url, ready.get());
      } catch (...) {
        // A failed creative is not cached: the next view asks again.
      }
    });
    return future;
  }

  Future<std::string> file(const std::string& url) {
    {
      std::lock_guard lock(mutex_);
      if (auto known = files_.find(url);
          known != files_.end() && std::filesystem::exists(known->second.path)) {
        return Future<std::string>::ready(known->second.path);
      }
    }
    return download(url).then([this, url](const Bytes& body) { return writeFile(url, *body); });
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

 private:
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

  std::string writeFile(const std::string& url, const std::string& body) {
    std::lock_guard lock(mutex_);
    if (folder_.empty()) {
      std::string pattern = (std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp");
      pattern += "/tavik-media-XXXXXX";
      if (!::mkdtemp(pattern.data()))
        throw std::runtime_error("tavik: cannot create the media folder");
      folder_ = pattern;
      std::atexit([] {
        std::error_code ignored;
        std::filesystem::remove_all(instance().folder_, ignored);
      });
    }
    const std::string extension =
        std::filesystem::path(url.substr(0, url.find_first_of("?#"))).extension().string();
    const std::string path = folder_ + "/" + std::to_string(std::hash<std::string>{}(url)) + "-" +
                             std::to_string(++fileSerial_) + extension.substr(0, 8);
    std::ofstream out(path, std::ios::binary);
    out.write(body.data(), static_cast<std::streamsize>(body.size()));
    if (!out) throw std::runtime_error("tavik: cannot write the media file " + path);
    out.close();
    if (auto old = files_.find(url); old != files_.end()) forgetFile(old);
    files_[url] = File{path, body.size(), ++fileClock_};
    fileBytes_ += body.size();
    // Oldest first; a player still reading a removed file keeps its open descriptor.
    while (fileBytes_ > kCreativeFileBudget && files_.size() > 1) {
      auto oldest = files_.begin();
      for (auto it = files_.begin(); it != files_.end(); ++it) {
        if (it->second.serial < oldest->second.serial) oldest = it;
      }
      forgetFile(oldest);
    }
    return path;
  }

  struct File {
    std::string path;
    std::size_t size = 0;
    std::size_t serial = 0;
  };

  void forgetFile(std::unordered_map<std::string, File>::iterator it) {
    std::error_code ignored;
    std::filesystem::remove(it->second.path, ignored);
    fileBytes_ -= it->second.size;
    files_.erase(it);
  }

 public:
  static Store& instance() {
    static Store* store = new Store();
    return *store;
  }

 private:
  std::mutex mutex_;
  std::list<Entry> lru_;
  std::unordered_map<std::string, std::list<Entry>::iterator> index_;
  std::unordered_map<std::string, Future<Bytes>> inFlight_;
  CreativeStoreStats stats_;
  std::string folder_;
  std::unordered_map<std::string, File> files_;
  std::size_t fileBytes_ = 0;
  std::size_t fileSerial_ = 0;
  std::size_t fileClock_ = 0;
};

}  // namespace

Future<Bytes> fetchCreativeBytes(const std::string& url) {
  return Store::instance().bytes(url);
}

Future<std::string> fetchCreativeFile(const std::string& url) {
  return Store::instance().file(url);
}

CreativeStoreStats creativeStoreStats() {
  return Store::instance().stats();
}

void clearCreativeCache() {
  Store::instance().clear();
}

}  // namespace tavik::quick::detail
