#pragma once

// The event inspector's list: every request the SDK sent, newest first, optionally only
// those of one kind ("ads", "products", "events", "media", "other").
//
// The SDK reports requests on its own threads. `post()` may be called from any thread:
// it only appends to a pending batch under a lock, and the first request of a batch
// queues one hand-over to the model's thread, which inserts the whole batch as one block
// of rows. A burst of a hundred requests therefore costs the UI thread one insertion,
// not a hundred. The log keeps the last `capacity` requests.

#include <QtQml/qqmlregistration.h>
#include <QAbstractListModel>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <deque>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace tavik::shop {

/// One request as the inspector shows it.
struct RequestEntry {
  QDateTime sentAt;
  qint64 elapsedMs = 0;
  QString service;  // "ads", "products", "events", "media", "other"
  QString method;
  QString url;
  QString path;
  std::vector<std::pair<QString, QString>> query;
  long status = 0;  // 0 when no answer arrived
  QString error;    // empty on an answer

  bool ok() const { return error.isEmpty() && status >= 200 && status < 300; }
  /// "200", "404" or the error ("timeout: ...").
  QString outcome() const;
  /// What the request is about, in a word or two: the event's name ("click" for the
  /// click path), the ad units asked for, or the page type; empty otherwise.
  QString subject() const;
  /// The query items as "name=value" joined by two spaces.
  QString queryText() const;
  /// One line of the printed log: time, kind, method, path, query, outcome.
  QString logLine() const;
};

class RequestLogModel : public QAbstractListModel {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the application")
  /// Only requests of this kind are listed; empty for all.
  Q_PROPERTY(QString kind READ kind WRITE setKind NOTIFY kindChanged)
  /// Requests logged so far (of every kind, including those past the capacity).
  Q_PROPERTY(int total READ total NOTIFY totalChanged)

 public:
  enum Role {
    TimeRole = Qt::UserRole + 1,
    ServiceRole,
    MethodRole,
    PathRole,
    QueryRole,
    OutcomeRole,
    OkRole,
    ElapsedRole,
    SubjectRole,
  };

  explicit RequestLogModel(std::size_t capacity = 1000, QObject* parent = nullptr);

  /// Adds a request; callable from any thread.
  void post(RequestEntry entry);

  QString kind() const { return kind_; }
  void setKind(const QString& kind);
  int total() const { return total_; }
  /// Hand-overs to the model's thread so far (one per batch).
  int batches() const { return batches_; }

  /// Every kept request, in the order they ended.
  std::vector<RequestEntry> entries() const;
  /// How many kept requests are of `service`.
  Q_INVOKABLE int count(const QString& service) const;
  /// The printed log, in the order the requests ended.
  QStringList logLines() const;

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QHash<int, QByteArray> roleNames() const override;

 signals:
  void kindChanged();
  void totalChanged();

 private:
  using Shared = std::shared_ptr<const RequestEntry>;
  void flush();
  bool shown(const RequestEntry& entry) const;

  const std::size_t capacity_;
  std::mutex pendingMutex_;
  std::vector<RequestEntry> pending_;  // guarded by pendingMutex_

  std::deque<Shared> kept_;     // newest first
  std::deque<Shared> visible_;  // newest first; the rows
  QString kind_;
  int total_ = 0;
  int batches_ = 0;
};

}  // namespace tavik::shop
