#include "event_store_status.h"

#include "tavik/sandbox/sandbox.h"

namespace tavik::shop {

EventStoreStatus::EventStoreStatus(sandbox::Sandbox& server, QObject* parent)
    : QObject(parent), server_(server) {
  timer_.setInterval(250);
  connect(&timer_, &QTimer::timeout, this, &EventStoreStatus::poll);
  timer_.start();
  poll();
}

void EventStoreStatus::poll() {
  const EventStoreStats now = events::storeStats();
  if (now.active == stats_.active && now.pending == stats_.pending &&
      now.delivered == stats_.delivered && now.retried == stats_.retried &&
      now.rejected == stats_.rejected) {
    return;
  }
  stats_ = now;
  emit changed();
}

void EventStoreStatus::setServiceOnline(bool online) {
  if (online == online_) return;
  online_ = online;
  if (online) {
    server_.clearScripts();
  } else {
    // Down for maintenance: the store keeps every event and retries it.
    sandbox::ScriptedAnswer down;
    down.status = 503;
    down.body = R"({"error":"the event service is offline"})";
    server_.script("/events", down);
    server_.script("/aclick", down);
  }
  emit serviceOnlineChanged();
}

}  // namespace tavik::shop
