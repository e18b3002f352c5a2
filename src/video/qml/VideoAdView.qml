import Tavik

// One video ad. The C++ base owns the player and decides when it plays; it also makes the
// frames' VideoOutput (the picture centred, fitted without distortion) together with the
// player, the first time the view is on screen: a view never seen builds neither.
VideoAdViewBase {
}
