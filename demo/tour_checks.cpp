#include "tour_checks.h"

#include <QHash>
#include <QImage>
#include <QRect>
#include <algorithm>
#include <map>

namespace tavik::shop {

namespace {

// The keys that say what an event is about; timings and counters are left out.
const char* const kEventKeys[] = {"event_name", "uclid",   "sku_id",
                                  "order_id",   "sku_ids", "action_type"};

}  // namespace

QString eventSignature(const QString& path, const QList<QPair<QString, QString>>& params) {
  QString signature = path;
  for (const char* key : kEventKeys) {
    for (const auto& [name, value] : params) {
      if (name == QLatin1String(key)) signature += ' ' + name + '=' + value;
    }
  }
  return signature;
}

QStringList compareEvents(const QStringList& expected, const QStringList& arrived,
                          const QStringList& videoAds) {
  const QString progress = QStringLiteral("event_name=funnel_video_progress");
  std::map<QString, int> balance;  // expected minus arrived, per signature
  for (const QString& event : expected) ++balance[event];
  QStringList faults;
  for (const QString& event : arrived) {
    if (event.contains(progress)) {
      const bool known = std::any_of(videoAds.begin(), videoAds.end(), [&](const QString& ad) {
        return event.endsWith(QStringLiteral(" uclid=") + ad);
      });
      if (!known) faults.append(QStringLiteral("unexpected video progress: ") + event);
      continue;
    }
    --balance[event];
  }
  for (const auto& [event, count] : balance) {
    if (count > 0) faults.append(QStringLiteral("missing (%1x): ").arg(count) + event);
    if (count < 0) faults.append(QStringLiteral("extra (%1x): ").arg(-count) + event);
  }
  return faults;
}

bool regionDrawn(const QImage& image, const QRect& region, double maxShare) {
  const QRect area = region.intersected(image.rect());
  if (area.width() < 2 || area.height() < 2) return false;
  QHash<QRgb, int> counts;
  int top = 0;
  for (int y = area.top(); y <= area.bottom(); ++y) {
    for (int x = area.left(); x <= area.right(); ++x) {
      top = std::max(top, ++counts[image.pixel(x, y) | 0xff000000u]);
    }
  }
  if (counts.size() < 2) return false;
  return top <= maxShare * area.width() * area.height();
}

}  // namespace tavik::shop
