#include "views/creative_disk_cache.h"

#include <unistd.h>

#include <QCryptographicHash>
#include <QFile>
#include <QStandardPaths>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace tavik::quick::detail {

namespace fs = std::filesystem;

namespace {

std::int64_t timeOf(fs::file_time_type time) {
  return static_cast<std::int64_t>(time.time_since_epoch().count());
}

std::string sha256Hex(const std::string& bytes) {
  return QCryptographicHash::hash(
             QByteArrayView(bytes.data(), static_cast<qsizetype>(bytes.size())),
             QCryptographicHash::Sha256)
      .toHex()
      .toStdString();
}

std::optional<std::string> fileSha256Hex(const std::string& path) {
  QFile file(QString::fromStdString(path));
  if (!file.open(QIODevice::ReadOnly)) return std::nullopt;
  QCryptographicHash hash(QCryptographicHash::Sha256);
  if (!hash.addData(&file)) return std::nullopt;
  return hash.result().toHex().toStdString();
}

std::string keyOf(const std::string& url) {
  return sha256Hex(url).substr(0, 40);
}

// The address's file extension (".mp4"), which players use to pick a demuxer.
std::string extensionOf(const std::string& url) {
  const std::string path = url.substr(0, url.find_first_of("?#"));
  std::string extension = fs::path(path).extension().string();
  if (extension.size() > 8) extension.clear();
  for (char c : extension) {
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.') return {};
  }
  return extension;
}

std::string defaultFolder() {
  QString base = QStandardPaths::writableLocation(QStandardPaths::CacheLocation);
  if (base.isEmpty()) {
    base = QStandardPaths::writableLocation(QStandardPaths::TempLocation);
  }
  return (base + QStringLiteral("/tavik-creatives")).toStdString();
}

// Writes `bytes` to `path` through a temporary file renamed into place.
void writeAtomically(const std::string& path, const std::string& bytes) {
  const std::string part = path + ".part-" + std::to_string(::getpid());
  {
    std::ofstream out(part, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.flush();
    if (!out) {
      std::error_code ignored;
      fs::remove(part, ignored);
      throw std::runtime_error("tavik: cannot write the media file " + part);
    }
  }
  std::error_code error;
  fs::rename(part, path, error);
  if (error) {
    fs::remove(part, error);
    throw std::runtime_error("tavik: cannot store the media file " + path);
  }
}

}  // namespace

CreativeDiskCache& CreativeDiskCache::instance() {
  static auto* cache = new CreativeDiskCache();  // never destroyed: used until exit
  return *cache;
}

std::string CreativeDiskCache::fileNameFor(const std::string& url) {
  return keyOf(url) + extensionOf(url);
}

void CreativeDiskCache::configure(const std::string& folder, std::size_t maxBytes) {
  std::lock_guard lock(mutex_);
  if (folder != wantedFolder_) {
    // Another folder: read lazily, at its first use, off the caller's thread.
    wantedFolder_ = folder;
    scanned_ = false;
    entries_.clear();
    bytes_ = 0;
  }
  maxBytes_ = maxBytes;
  if (scanned_) trimLocked({});
}

std::string CreativeDiskCache::folder() {
  std::lock_guard lock(mutex_);
  return wantedFolder_.empty() ? defaultFolder() : wantedFolder_;
}

std::size_t CreativeDiskCache::maxBytes() {
  std::lock_guard lock(mutex_);
  return maxBytes_;
}

// Reads the folder: records with their data files become entries; a record without its
// data, data without its record and temporary files left by an interrupted write go.
void CreativeDiskCache::scanLocked() {
  if (scanned_) return;
  scanned_ = true;
  entries_.clear();
  bytes_ = 0;
  folder_ = wantedFolder_.empty() ? defaultFolder() : wantedFolder_;
  std::error_code error;
  fs::create_directories(folder_, error);
  std::map<std::string, std::string> dataFiles;  // key -> path
  std::vector<std::string> records;
  for (const auto& item : fs::directory_iterator(folder_, error)) {
    if (!item.is_regular_file(error)) continue;
    const std::string name = item.path().filename().string();
    if (name.find(".part-") != std::string::npos) {
      fs::remove(item.path(), error);
    } else if (name.ends_with(".meta")) {
      records.push_back(item.path().string());
    } else {
      dataFiles.emplace(name.substr(0, name.find('.')), item.path().string());
    }
  }
  for (const auto& metaPath : records) {
    const std::string key = fs::path(metaPath).stem().string();
    std::ifstream in(metaPath);
    Entry entry;
    entry.metaPath = metaPath;
    in >> entry.size >> entry.checksum;
    auto data = dataFiles.find(key);
    if (!in || data == dataFiles.end()) {
      fs::remove(metaPath, error);
      continue;
    }
    entry.dataPath = data->second;
    dataFiles.erase(data);
    entry.lastUsed = timeOf(fs::last_write_time(entry.dataPath, error));
    bytes_ += entry.size;
    entries_.emplace(key, std::move(entry));
  }
  for (const auto& [key, path] : dataFiles) fs::remove(path, error);
  trimLocked({});
}

void CreativeDiskCache::removeLocked(std::map<std::string, Entry>::iterator it) {
  std::error_code ignored;
  fs::remove(it->second.metaPath, ignored);  // the record first: data alone is swept
  fs::remove(it->second.dataPath, ignored);
  bytes_ -= it->second.size;
  entries_.erase(it);
}

void CreativeDiskCache::trimLocked(const std::string& keep) {
  // A player still reading a removed file keeps its open descriptor.
  while (bytes_ > maxBytes_) {
    auto oldest = entries_.end();
    for (auto it = entries_.begin(); it != entries_.end(); ++it) {
      if (it->first == keep) continue;
      if (oldest == entries_.end() || it->second.lastUsed < oldest->second.lastUsed) oldest = it;
    }
    if (oldest == entries_.end()) return;
    removeLocked(oldest);
  }
}

std::optional<std::string> CreativeDiskCache::find(const std::string& url) {
  const std::string key = keyOf(url);
  std::unique_lock lock(mutex_);
  scanLocked();
  auto it = entries_.find(key);
  if (it == entries_.end()) return std::nullopt;
  std::error_code error;
  bool sound = fs::file_size(it->second.dataPath, error) == it->second.size && !error;
  if (sound && !it->second.verified) {
    // Checked once per process, without the lock: other creatives go on meanwhile.
    const Entry copy = it->second;
    lock.unlock();
    const auto checksum = fileSha256Hex(copy.dataPath);
    lock.lock();
    it = entries_.find(key);
    if (it == entries_.end() || it->second.dataPath != copy.dataPath) return std::nullopt;
    sound = checksum && *checksum == it->second.checksum;
    it->second.verified = sound;
  }
  if (!sound) {
    ++damagedRemoved_;
    removeLocked(it);
    return std::nullopt;
  }
  const auto now = fs::file_time_type::clock::now();
  fs::last_write_time(it->second.dataPath, now, error);
  it->second.lastUsed = timeOf(now);
  return it->second.dataPath;
}

std::string CreativeDiskCache::store(const std::string& url, const std::string& body) {
  const std::string key = keyOf(url);
  const std::string checksum = sha256Hex(body);
  std::lock_guard lock(mutex_);
  scanLocked();
  if (auto old = entries_.find(key); old != entries_.end()) removeLocked(old);
  Entry entry;
  entry.dataPath = folder_ + "/" + key + extensionOf(url);
  entry.metaPath = folder_ + "/" + key + ".meta";
  entry.size = body.size();
  entry.checksum = checksum;
  entry.verified = true;
  std::error_code error;
  fs::create_directories(folder_, error);
  writeAtomically(entry.dataPath, body);
  std::ostringstream record;
  record << entry.size << ' ' << entry.checksum << '\n' << url << '\n';
  writeAtomically(entry.metaPath, record.str());
  // Stamped from the same clock as a use (see find): the kernel's own stamp of the write
  // comes from a coarser clock and can fall before a use made just earlier.
  const auto now = fs::file_time_type::clock::now();
  fs::last_write_time(entry.dataPath, now, error);
  entry.lastUsed = timeOf(now);
  const std::string path = entry.dataPath;
  bytes_ += entry.size;
  entries_.emplace(key, std::move(entry));
  trimLocked(key);
  return path;
}

CreativeDiskCache::Stats CreativeDiskCache::stats() {
  std::lock_guard lock(mutex_);
  return {entries_.size(), bytes_, damagedRemoved_};
}

}  // namespace tavik::quick::detail
