#pragma once

// Creatives ahead of showing, and where video creatives are kept between runs.
//
//   InterstitialAdViewProtocol* manager = interstitials.get();  // kept alive by the host
//   tavik::quick::continueOn(window, manager->preload(ad),
//                            [manager, ad](const tavik::Future<bool>&) {
//                              manager->showAd(ad, {});  // failed: showAd tries again itself
//                            });
//
// The managers' `preload` and `dropPreload` are these calls.

#include <cstddef>
#include <string>

#include "tavik/ads/ad_models.h"
#include "tavik/core/future.h"

namespace tavik::quick {

/// Loads the creative of `ad` (image or video) ahead of showing it. The future completes
/// with true once the creative is ready (an image downloaded and decoded, a video file on
/// disk), with false for an ad without an image or video creative (nothing to load), or
/// with the download's error (`TavikError`). Returns at once; call it on any thread.
///
/// A preloaded creative stays wanted, and its download goes on, until a view shows it
/// (an image view or video player of the same address takes it over; one preload serves
/// one view) or until `dropPreloadedCreative`. An image view made after the preload
/// completed draws the creative in its first frame.
Future<bool> preloadCreative(const BannerAd& ad);
/// Gives up one preload of `ad`'s creative that no view took over; a download nobody
/// else wants is cancelled. No-op when there is none.
void dropPreloadedCreative(const BannerAd& ad);

/// The disk cache of video creatives. Images are kept in memory only.
struct CreativeCacheSettings {
  /// Largest total of video files on disk; the least recently used go first. The file
  /// just stored always stays (a player is about to read it), even when it alone is
  /// larger.
  std::size_t maxDiskBytes = 256 * 1024 * 1024;
  /// The folder; empty = "tavik-creatives" in the application's cache folder
  /// (QStandardPaths::CacheLocation).
  std::string folder;
};
/// Applies to downloads started from now on. Shrinking the cap removes files at once.
void configureCreativeCache(const CreativeCacheSettings& settings);
/// The video cache's settings in force (the defaults until configureCreativeCache()).
CreativeCacheSettings creativeCacheSettings();

}  // namespace tavik::quick
