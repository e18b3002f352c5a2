#pragma once

#include <cmath>
#include <optional>

namespace tavik::quick {

/// Decides when the periodic progress observer of a video fires, from the positions its
/// player reports (seconds, a fraction of a second apart while it plays). It fires
///
/// - when playback starts, at the position it starts from;
/// - at the first reported position at or past the next multiple of the interval, so at
///   least once per interval of playback time;
/// - when the position jumps backwards (a seek, the loop back to the start).
///
/// Each call answers the time of the tick (the reported position) or nullopt. A pause
/// does not fire. Plain logic, no Qt: the manager feeds it, tests drive it directly.
class ProgressClock {
 public:
  /// `interval` in seconds, > 0.
  explicit ProgressClock(double interval) : interval_(interval) {}

  /// Playback started (or resumed) at `position`.
  std::optional<double> started(double position) {
    // The loop's jump back to zero has just fired for this very position.
    if (lastTick_ && lastPosition_ && *lastTick_ == position && *lastPosition_ == position) {
      return std::nullopt;
    }
    return tick(position);
  }

  /// The player reported `position`.
  std::optional<double> moved(double position) {
    const bool jumpedBack = lastPosition_ && position < *lastPosition_ - kJitter;
    lastPosition_ = position;
    if (jumpedBack || position >= nextDue_) return tick(position);
    return std::nullopt;
  }

  /// Forgets everything: the next position fires again.
  void reset() {
    lastPosition_.reset();
    lastTick_.reset();
    nextDue_ = 0;
  }

  double interval() const { return interval_; }

 private:
  // Backward steps smaller than this are reporting noise, not a seek.
  static constexpr double kJitter = 0.05;

  std::optional<double> tick(double position) {
    lastTick_ = position;
    lastPosition_ = position;
    nextDue_ = (std::floor(position / interval_) + 1) * interval_;
    return position;
  }

  double interval_;
  std::optional<double> lastPosition_;
  std::optional<double> lastTick_;
  double nextDue_ = 0;
};

}  // namespace tavik::quick
