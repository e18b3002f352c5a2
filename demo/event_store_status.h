#pragma once

// The shop's view of the SDK's event store, for the inspector: how many events wait and
// how many went, polled from `tavik::events::storeStats()`; and the sandbox's switch that
// takes the event service offline (every event answered 503) and back, so a shopper sees
// events wait in the store and then drain.

#include <QtQml/qqmlregistration.h>
#include <QObject>
#include <QTimer>

#include "tavik/events/event_store.h"

namespace tavik::sandbox {
class Sandbox;
}

namespace tavik::shop {

class EventStoreStatus : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the application")
  Q_PROPERTY(bool active READ active NOTIFY changed)
  Q_PROPERTY(int pending READ pending NOTIFY changed)
  Q_PROPERTY(int delivered READ delivered NOTIFY changed)
  Q_PROPERTY(int retried READ retried NOTIFY changed)
  Q_PROPERTY(int rejected READ rejected NOTIFY changed)
  Q_PROPERTY(
      bool serviceOnline READ serviceOnline WRITE setServiceOnline NOTIFY serviceOnlineChanged)

 public:
  explicit EventStoreStatus(sandbox::Sandbox& server, QObject* parent = nullptr);

  bool active() const { return stats_.active; }
  int pending() const { return static_cast<int>(stats_.pending); }
  int delivered() const { return static_cast<int>(stats_.delivered); }
  int retried() const { return static_cast<int>(stats_.retried); }
  int rejected() const { return static_cast<int>(stats_.rejected); }
  bool serviceOnline() const { return online_; }
  void setServiceOnline(bool online);

 signals:
  void changed();
  void serviceOnlineChanged();

 private:
  void poll();

  sandbox::Sandbox& server_;
  EventStoreStats stats_;
  bool online_ = true;
  QTimer timer_;
};

}  // namespace tavik::shop
