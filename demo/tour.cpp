#include "tour.h"

#include <QGuiApplication>
#include <QImage>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>
#include <QTimer>
#include <algorithm>
#include <iostream>

#include "request_log.h"
#include "shop.h"
#include "tavik/sandbox/sandbox.h"

namespace tavik::shop {

namespace {

constexpr int kPollMs = 100;

QString join(const QStringList& lines) {
  return lines.join(QStringLiteral(", "));
}

}  // namespace

Tour::Tour(QQuickWindow* window, Shop* shop, RequestLogModel* inspector,
           const sandbox::Sandbox& server, QString outDir, QObject* parent)
    : QObject(parent),
      window_(window),
      shop_(shop),
      inspector_(inspector),
      server_(server),
      outDir_(outDir) {}

void Tour::start() {
  outDir_.mkpath(QStringLiteral("."));
  std::cout << "tour: screenshots go to " << outDir_.absolutePath().toStdString() << std::endl;
  buildSteps();
  runStep(0);
}

QQuickItem* Tour::find(const QString& objectName, QQuickItem* under) const {
  // The visual tree, not QObject children: delegates and overlays are reached too.
  std::vector<QQuickItem*> stack{under ? under : window_->contentItem()};
  while (!stack.empty()) {
    QQuickItem* item = stack.back();
    stack.pop_back();
    if (item->objectName() == objectName && item != under) return item;
    const auto children = item->childItems();
    for (auto it = children.rbegin(); it != children.rend(); ++it) stack.push_back(*it);
  }
  return nullptr;
}

QQuickItem* Tour::pipView() const {
  // The picture-in-picture view is the item holding the full-screen button and its
  // overlay (customWindow).
  for (QQuickItem* at = find(QStringLiteral("fullScreenButton")); at; at = at->parentItem()) {
    if (at->property("customWindow").value<QObject*>()) return at;
  }
  return nullptr;
}

void Tour::tap(QQuickItem* item) {
  if (!item) return;
  const QPoint at = item->mapToScene(QPointF(item->width() / 2, item->height() / 2)).toPoint();
  QTest::mouseClick(window_, Qt::LeftButton, {}, at);
}

void Tour::drag(QQuickItem* item, QPoint by, QPoint from) {
  if (!item) return;
  const QPoint start =
      from.x() >= 0 ? from
                    : item->mapToScene(QPointF(item->width() / 2, item->height() / 2)).toPoint();
  QTest::mousePress(window_, Qt::LeftButton, {}, start);
  constexpr int kMoves = 12;
  for (int i = 1; i <= kMoves; ++i) {
    QTest::mouseMove(window_, start + by * i / kMoves, 16);
  }
  // Held still before the release, like a finger that stops: no fling.
  QTest::mouseMove(window_, start + by, 250);
  QTest::mouseRelease(window_, Qt::LeftButton, {}, start + by, 250);
}

void Tour::typeText(const QString& text) {
  for (const QChar c : text) QTest::keyClick(window_, c.toLatin1());
}

bool Tour::drawn(QQuickItem* item) {
  if (!item || !item->isVisible() || item->width() < 2 || item->height() < 2) return false;
  const QImage image = window_->grabWindow();
  const qreal scale = image.width() / std::max<qreal>(1, window_->width());
  const QRectF scene = item->mapRectToScene(QRectF(0, 0, item->width(), item->height()));
  const QRect region(QPointF(scene.topLeft() * scale).toPoint(),
                     QPointF(scene.bottomRight() * scale).toPoint() - QPoint(1, 1));
  return regionDrawn(image, region);
}

bool Tour::picturesLoaded(QQuickItem* page) const {
  if (!page) return false;
  std::vector<QQuickItem*> stack{page};
  while (!stack.empty()) {
    QQuickItem* item = stack.back();
    stack.pop_back();
    const QString name = item->objectName();
    if ((name == QLatin1String("tileImage") || name == QLatin1String("productImage")) &&
        item->isVisible() && item->property("status").toInt() != 1 /* Image.Ready */) {
      return false;
    }
    for (QQuickItem* child : item->childItems()) stack.push_back(child);
  }
  return true;
}

bool Tour::formatDrawn(const QString& format, QQuickItem* item) {
  if (!drawn(item)) return false;
  if (!formats_.contains(format)) formats_.append(format);
  return true;
}

void Tour::screenshot(const QString& name) {
  const QString file = outDir_.filePath(name + QStringLiteral(".png"));
  if (window_->grabWindow().save(file)) {
    screenshots_.append(file);
    std::cout << "   saved " << file.toStdString() << std::endl;
  } else {
    failures_.append(QStringLiteral("could not save ") + file);
  }
}

QStringList Tour::arrivedEvents() const {
  QStringList events;
  for (const auto& event : server_.eventLog()) {
    QList<QPair<QString, QString>> params;
    for (const auto& [name, value] : event["params"].items()) {
      if (value.is_string()) {
        params.append({QString::fromStdString(name), QString::fromStdString(value)});
      }
    }
    events.append(eventSignature(QString::fromStdString(event["path"].get<std::string>()), params));
  }
  return events;
}

bool Tour::hasEvent(const QString& signature) const {
  return arrivedEvents().contains(signature);
}

void Tour::runStep(std::size_t index) {
  if (index == steps_.size()) return finish();
  const Step& step = steps_[index];
  std::cout << "-- " << step.title.toStdString() << std::endl;
  stepClock_.start();
  if (step.act) step.act();
  QTimer::singleShot(kPollMs, this, [this, index] { poll(index); });
}

void Tour::poll(std::size_t index) {
  const Step& step = steps_[index];
  if (!step.done || step.done()) {
    QTimer::singleShot(0, this, [this, index] { runStep(index + 1); });
    return;
  }
  if (stepClock_.elapsed() > step.timeoutMs) {
    return fail(QStringLiteral("step \"%1\" did not complete within %2 s")
                    .arg(step.title)
                    .arg(step.timeoutMs / 1000));
  }
  QTimer::singleShot(kPollMs, this, [this, index] { poll(index); });
}

void Tour::fail(const QString& why) {
  failures_.append(why);
  std::cout << "tour: FAILED: " << why.toStdString() << std::endl;
  screenshot(QStringLiteral("failure"));
  // What reached the sandbox, to tell a request that never left from an answer that
  // did not draw.
  std::cout << "-- the sandbox's request record\n";
  for (const auto& request : server_.requests()) {
    std::cout << "   " << request.path << (request.rawQuery.empty() ? "" : "?") << request.rawQuery
              << "\n";
  }
  finish();
}

void Tour::finish() {
  std::cout << "-- the inspector's log (every request the SDK sent, in the order they ended)\n";
  for (const QString& line : inspector_->logLines())
    std::cout << "   " << line.toStdString() << "\n";
  const QStringList arrived = arrivedEvents();
  std::cout << "-- the sandbox's event log\n";
  for (const QString& event : arrived) std::cout << "   " << event.toStdString() << "\n";

  const QStringList faults =
      compareEvents(expected_, arrived,
                    {QStringLiteral("uc-video-banner-1"), QStringLiteral("uc-multi-2"),
                     QStringLiteral("uc-pip-1")});
  for (const QString& fault : faults) failures_.append(QStringLiteral("events: ") + fault);

  const int sent = inspector_->count(QStringLiteral("events"));
  std::cout << "tour: " << formats_.size() << " formats shown (" << join(formats_).toStdString()
            << "), " << sent << " events sent, " << arrived.size() << " acknowledged by the sandbox"
            << std::endl;
  for (const QString& failure : failures_) std::cout << "tour: " << failure.toStdString() << "\n";
  std::cout << (failures_.isEmpty() ? "tour: passed" : "tour: FAILED") << std::endl;
  emit finished(failures_.isEmpty() ? 0 : 1);
}

}  // namespace tavik::shop
