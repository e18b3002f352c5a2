#include "ad_table.h"

#include <algorithm>
#include <cstdio>

namespace tavik::cli {

namespace {

std::string sizeText(std::int64_t width, std::int64_t height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

std::string orDash(const std::optional<std::string>& text) {
  return text ? printable(*text) : "-";
}

// Display width of UTF-8 text: one column per code point (continuation bytes skipped).
std::size_t columns(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

}  // namespace

std::string_view creativeKind(std::string_view crt) {
  if (isImageCreative(crt)) return "image";
  if (isVideoCreative(crt)) return "video";
  if (isCarouselCreative(crt)) return "carousel";
  return "other";
}

std::string printable(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) {
      char escaped[5];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
      out += escaped;
    } else {
      out += c;
    }
  }
  return out;
}

AdTable::AdTable() {
  rows_.push_back({"UCLID", "AD UNIT", "CREATIVE", "ELEMENT", "SIZE", "DESTINATION"});
}

void AdTable::add(const BannerAd& ad) {
  const auto& e = ad.elements;
  rows_.push_back({printable(ad.uclid), printable(ad.au), std::string(creativeKind(ad.crt)),
                   printable(e.type), sizeText(e.width, e.height), orDash(e.destinationUrl)});
}

void AdTable::add(const CarouselAd& ad) {
  const auto& cards = ad.elements.carouselCards;
  const std::string kind(creativeKind(ad.crt));
  if (cards.empty()) {
    rows_.push_back({printable(ad.uclid), printable(ad.au), kind, "(no cards)", "-", "-"});
    return;
  }
  for (std::size_t i = 0; i < cards.size(); ++i) {
    const auto& media = cards[i].media;
    rows_.push_back({printable(ad.uclid), printable(ad.au), kind,
                     "card " + std::to_string(i + 1) + "/" + std::to_string(cards.size()) + " " +
                         printable(media.type),
                     sizeText(media.width, media.height), orDash(cards[i].destinationUrl)});
  }
}

void AdTable::printRows(std::ostream& out, const Rows& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()), 0);
    for (std::size_t c = 0; c < row.size(); ++c) widths[c] = std::max(widths[c], columns(row[c]));
  }
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t c = 0; c < row.size(); ++c) {
      line += row[c];
      if (c + 1 < row.size()) line += std::string(widths[c] - columns(row[c]) + 2, ' ');
    }
    out << line << "\n";
  }
}

}  // namespace tavik::cli
