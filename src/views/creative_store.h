#pragma once

// Creatives (images, videos) come through the SDK's own transport: https only, TLS
// verified, the extra trusted CA bundle, warm shared connections, the media size cap.
// There is no second network stack in the views.
//
// Views hold the creatives they want. However many views want one address, it is
// downloaded once; when the last hold goes before the creative arrived, the download is
// cancelled (a waiting request is removed, a transfer in progress is stopped), and a
// later hold starts it again. Image bytes are kept in a small in-memory cache; video
// files in a bounded disk cache (see creative_disk_cache.h) that outlives the process.

#include <cstddef>
#include <memory>
#include <string>

#include "tavik/core/future.h"

namespace tavik::quick::detail {

using Bytes = std::shared_ptr<const std::string>;

template <class T>
struct CreativeDownload;

/// One holder's want of one creative: the bytes of an image (`T` = Bytes) or the local
/// file of a video (`T` = std::string, the path). Move-only; dropping it (or `reset()`)
/// gives the want up. Thread-safe to drop on any thread.
template <class T>
class CreativeHold {
 public:
  CreativeHold() = default;
  explicit CreativeHold(std::shared_ptr<CreativeDownload<T>> download)
      : download_(std::move(download)) {}

  bool valid() const { return download_ != nullptr; }
  /// The creative, or the error its download ended with (a status outside 200-299, a
  /// transport failure, kind `cancelled` never reaches a holder still holding). Cancelling
  /// this future leaves the download alone: only dropping holds stops it.
  Future<T> future() const;
  void reset() { download_.reset(); }

 private:
  std::shared_ptr<CreativeDownload<T>> download_;
};

/// Who holds a creative. A view's hold takes over one preload of the address, if any
/// (the preload's own hold is given up once the view's exists, so nothing restarts).
enum class HoldFor { view, preload };

/// Holds the bytes of the image at `url`.
CreativeHold<Bytes> holdCreativeBytes(const std::string& url, HoldFor holder = HoldFor::view);
/// Holds a local file with the video at `url`, for players that read files. The file
/// comes from the disk cache when it holds a sound copy, else it is downloaded into it.
CreativeHold<std::string> holdCreativeFile(const std::string& url, HoldFor holder = HoldFor::view);

/// The bytes of the image at `url` if the in-memory cache holds them, else null; never
/// starts a download.
Bytes cachedCreativeBytes(const std::string& url);

struct CreativeStoreStats {
  std::size_t downloads = 0;        // downloads started (a video looks in the disk cache first)
  std::size_t memoryHits = 0;       // answered from the in-memory cache
  std::size_t sharedDownloads = 0;  // holds that joined a download already under way
  std::size_t cancelled = 0;        // downloads cancelled because nobody wanted them any more
  std::size_t cachedBytes = 0;      // bytes held in memory now
};
CreativeStoreStats creativeStoreStats();
/// Empties the in-memory cache (tests, memory pressure).
void clearCreativeCache();

/// Largest total of image bytes kept in memory.
inline constexpr std::size_t kCreativeMemoryBudget = 24 * 1024 * 1024;

}  // namespace tavik::quick::detail
