#pragma once

// The scripted tour of the shop (`tavik_shop --tour`): real input through the window's
// item tree (taps, drags, key presses), a screenshot of each page, a pixel check of every
// ad format it shows, and at the end the inspector's log, the sandbox's event log
// compared with the events the tour must have caused, and one summary line.
//
// Each step acts, then waits for a condition (an ad drawn, an event on the sandbox's
// log, a page shown) with a generous time-out, so a slow machine only makes it slower.

#include <QDir>
#include <QElapsedTimer>
#include <QObject>
#include <QPoint>
#include <QString>
#include <QStringList>
#include <functional>
#include <vector>

#include "tour_checks.h"

class QQuickItem;
class QQuickWindow;

namespace tavik::sandbox {
class Sandbox;
}

namespace tavik::shop {

class Shop;
class RequestLogModel;

class Tour : public QObject {
  Q_OBJECT
 public:
  Tour(QQuickWindow* window, Shop* shop, RequestLogModel* inspector, const sandbox::Sandbox& server,
       QString outDir, QObject* parent = nullptr);

  void start();

 signals:
  /// The exit code: 0 when every format drew and the events matched.
  void finished(int code);

 private:
  struct Step {
    QString title;
    std::function<void()> act;
    std::function<bool()> done;
    int timeoutMs = 20000;
  };

  void buildSteps();
  void runStep(std::size_t index);
  void poll(std::size_t index);
  void fail(const QString& why);
  void finish();

  // Input and lookups on the real window.
  QQuickItem* find(const QString& objectName, QQuickItem* under = nullptr) const;
  QQuickItem* pipView() const;
  void tap(QQuickItem* item);
  void drag(QQuickItem* item, QPoint by, QPoint from = {-1, -1});
  void typeText(const QString& text);
  bool drawn(QQuickItem* item);
  /// Whether every product picture ("tileImage", "productImage") under `page` is loaded.
  bool picturesLoaded(QQuickItem* page) const;
  /// Checks that `item` drew and counts the format once.
  bool formatDrawn(const QString& format, QQuickItem* item);
  void screenshot(const QString& name);

  bool hasEvent(const QString& signature) const;
  QStringList arrivedEvents() const;

  QQuickWindow* window_;
  Shop* shop_;
  RequestLogModel* inspector_;
  const sandbox::Sandbox& server_;
  QDir outDir_;
  std::vector<Step> steps_;
  QElapsedTimer stepClock_;
  QStringList expected_;
  QStringList formats_;
  QStringList failures_;
  QStringList screenshots_;
};

}  // namespace tavik::shop
