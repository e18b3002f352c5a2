#pragma once

// Creatives (images, videos) come through the SDK's own transport: https only, TLS
// verified, the extra trusted CA bundle, warm shared connections, the media size cap.
// There is no second network stack in the views.

#include <cstddef>
#include <memory>
#include <string>

#include "tavik/core/future.h"

namespace tavik::quick::detail {

using Bytes = std::shared_ptr<const std::string>;

/// The bytes of the creative at `url` (a status outside 200-299 or a transport failure
/// completes the future with an error). Answers come from a small in-memory cache when
/// they can; concurrent requests for one address share one download.
Future<Bytes> fetchCreativeBytes(const std::string& url);

/// A local file holding the creative at `url`, for players that read files (video).
/// Files live in a private folder of this process, removed at exit; the folder is
/// bounded and the oldest files go first.
Future<std::string> fetchCreativeFile(const std::string& url);

struct CreativeStoreStats {
  std::size_t downloads = 0;    // requests sent to the network
  std::size_t memoryHits = 0;   // answered from the in-memory cache
  std::size_t cachedBytes = 0;  // bytes held in memory now
};
CreativeStoreStats creativeStoreStats();
/// Empties the in-memory cache (tests, memory pressure).
void clearCreativeCache();

/// Largest total of image bytes kept in memory.
inline constexpr std::size_t kCreativeMemoryBudget = 24 * 1024 * 1024;
/// Largest total of video files kept on disk.
inline constexpr std::size_t kCreativeFileBudget = 256 * 1024 * 1024;

}  // namespace tavik::quick::detail
