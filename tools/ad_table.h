#pragma once

// Decoded display ads as an aligned text table, one row per banner ad or carousel card.

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "tavik/ads/ad_models.h"

namespace tavik::cli {

class AdTable {
 public:
  AdTable();

  void add(const BannerAd& ad);
  /// One row per card; a carousel without cards still gets one row.
  void add(const CarouselAd& ad);

  using Rows = std::vector<std::vector<std::string>>;

  std::size_t rows() const { return rows_.size() - 1; }
  void print(std::ostream& out) const { printRows(out, rows_); }

  /// Every column padded to its widest cell; the last one is not padded. Cells must be
  /// printable already (see `printable`).
  static void printRows(std::ostream& out, const Rows& rows);

 private:
  Rows rows_;  // the first row is the heading
};

/// "image", "video", "carousel" or "other", by the creative template prefix of `crt`.
std::string_view creativeKind(std::string_view crt);

/// `text` made safe for one table cell: control characters as \xNN, so that a hostile
/// answer can neither break the alignment nor send terminal escapes.
std::string printable(std::string_view text);

}  // namespace tavik::cli
