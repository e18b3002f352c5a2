import QtQuick
import Tavik

// One video ad. The C++ base owns the player, decides when it plays and takes the
// player's own video output into this item while it has the player (the frames centred,
// fitted without distortion): this file only gives the view its place.
//
//   VideoAdView {
//       width: 320; height: 180
//       url: ad.elements.value
//       uclid: ad.uclid
//       cliUbid: ad.cliUbid
//   }
VideoAdViewBase {
}
