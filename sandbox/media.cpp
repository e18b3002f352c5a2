// Media files under /media/: the built-in images and video are compiled into the library
// (see embed_assets.cmake) so the sandbox works from any directory; a media directory
// given in the options is looked at first, which lets a test or a demo serve its own.

#include <fstream>
#include <sstream>

#include "sandbox_internal.h"

namespace tavik::sandbox::detail {

std::optional<std::string_view> embeddedAsset(std::string_view name) {
  for (const auto& asset : embeddedAssets()) {
    if (name == asset.name) {
      return std::string_view(reinterpret_cast<const char*>(asset.data), asset.size);
    }
  }
  return std::nullopt;
}

std::string mediaContentType(std::string_view fileName) {
  const auto dot = fileName.rfind('.');
  const std::string_view ext = dot == std::string_view::npos ? "" : fileName.substr(dot + 1);
  if (ext == "png") return "image/png";
  if (ext == "jpg" || ext == "jpeg") return "image/jpeg";
  if (ext == "gif") return "image/gif";
  if (ext == "webp") return "image/webp";
  if (ext == "mp4" || ext == "m4v") return "video/mp4";
  if (ext == "json") return "application/json";
  return "application/octet-stream";
}

std::optional<std::string> loadMedia(std::string_view fileName, const std::string& mediaDir) {
  if (fileName.empty() || fileName.find_first_of("/\\") != std::string_view::npos ||
      fileName.find("..") != std::string_view::npos) {
    return std::nullopt;
  }
  if (!mediaDir.empty()) {
    std::ifstream in(mediaDir + "/" + std::string(fileName), std::ios::binary);
    if (in) {
      std::ostringstream bytes;
      bytes << in.rdbuf();
      return bytes.str();
    }
  }
  if (auto embedded = embeddedAsset("media/" + std::string(fileName))) {
    return std::string(*embedded);
  }
  return std::nullopt;
}

}  // namespace tavik::sandbox::detail
