#pragma once

// The disk cache of video creatives: one file per creative address in a folder that
// outlives the process, bounded, least recently used out first.
//
// Each creative is a data file and a small record beside it ("<key>.meta": size,
// SHA-256, address). Both are written under a temporary name and renamed into place,
// data first, so a crash leaves at worst a data file without a record, which the next
// scan removes. A copy is trusted only when its size matches the record, and its
// checksum is verified once per process before its first use: a truncated or corrupt
// file is removed and the creative downloaded again.

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace tavik::quick::detail {

class CreativeDiskCache {
 public:
  static CreativeDiskCache& instance();

  /// `folder` empty = the default folder. Rescans when the folder changes; trims to the
  /// new cap at once.
  void configure(const std::string& folder, std::size_t maxBytes);
  std::string folder();
  std::size_t maxBytes();

  /// The path of a sound copy of `url`, marked as just used; nullopt when there is none
  /// (a damaged one is removed). May read the whole file: call it off the UI thread.
  std::optional<std::string> find(const std::string& url);
  /// Writes `body` as the copy of `url`, trims the folder to its cap (the new file stays)
  /// and returns the file's path. Throws std::runtime_error when it cannot write.
  std::string store(const std::string& url, const std::string& body);

  struct Stats {
    std::size_t files = 0;
    std::size_t bytes = 0;
    std::size_t damagedRemoved = 0;  // copies found truncated or corrupt, removed
  };
  Stats stats();

  /// The data file's name for `url` in the folder (tests).
  static std::string fileNameFor(const std::string& url);

 private:
  struct Entry {
    std::string dataPath;
    std::string metaPath;
    std::size_t size = 0;
    std::string checksum;
    std::int64_t lastUsed = 0;  // the data file's time, moved to now on every use
    bool verified = false;      // checked against its record in this process
  };

  void scanLocked();
  void trimLocked(const std::string& keep);
  void removeLocked(std::map<std::string, Entry>::iterator it);

  std::mutex mutex_;
  bool scanned_ = false;
  std::string wantedFolder_;
  std::string folder_;
  std::size_t maxBytes_ = 256 * 1024 * 1024;
  std::map<std::string, Entry> entries_;  // by key (the hash of the address)
  std::size_t bytes_ = 0;
  std::size_t damagedRemoved_ = 0;
};

}  // namespace tavik::quick::detail
