#pragma once

// The tour's verdicts, apart from the window: which events count as the same, whether
// the events that arrived are the expected ones, whether a region of a screenshot drew.

#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

class QImage;
class QRect;

namespace tavik::shop {

/// A tracking event reduced to what the tour compares: the path, then the event name and
/// the keys that say which ad, product or order it is about ("/aclick uclid=uc-1").
QString eventSignature(const QString& path, const QList<QPair<QString, QString>>& params);

/// Compares the events that arrived with the expected ones, as multisets (requests run
/// in parallel, so their order is not fixed). Video progress events are counted apart:
/// how many a video sends depends on how long it played, so only their ads are checked
/// (each must be one of `videoAds`). Returns one line per fault; empty when they match.
QStringList compareEvents(const QStringList& expected, const QStringList& arrived,
                          const QStringList& videoAds);

/// Whether the region of `image` is drawn: not one flat colour, and no single colour
/// covers more than `maxShare` of it (an empty frame with only its "Ad" label is not).
bool regionDrawn(const QImage& image, const QRect& region, double maxShare = 0.9);

}  // namespace tavik::shop
