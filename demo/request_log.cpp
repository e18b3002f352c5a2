#include "request_log.h"

#include <QMetaObject>
#include <algorithm>

namespace tavik::shop {

QString RequestEntry::outcome() const {
  if (!error.isEmpty()) return error;
  return status == 0 ? QStringLiteral("no answer") : QString::number(status);
}

QString RequestEntry::subject() const {
  if (path == QLatin1String("/aclick")) return QStringLiteral("click");
  QStringList units;
  QString pageType;
  for (const auto& [name, value] : query) {
    if (name == QLatin1String("event_name")) return value;
    if (name == QLatin1String("au[]")) units.append(value);
    if (name == QLatin1String("page_type") || name == QLatin1String("pt")) pageType = value;
  }
  return units.isEmpty() ? pageType : units.join(QStringLiteral(", "));
}

QString RequestEntry::queryText() const {
  QStringList items;
  for (const auto& [name, value] : query) items.append(name + '=' + value);
  return items.join(QStringLiteral("  "));
}

QString RequestEntry::logLine() const {
  QString line = sentAt.toLocalTime().toString(QStringLiteral("HH:mm:ss.zzz"));
  line += ' ' + service.leftJustified(8) + ' ' + method + ' ' + path;
  if (!query.empty()) line += "  " + queryText();
  line += "  -> " + outcome() + QStringLiteral(" (%1 ms)").arg(elapsedMs);
  return line;
}

RequestLogModel::RequestLogModel(std::size_t capacity, QObject* parent)
    : QAbstractListModel(parent), capacity_(std::max<std::size_t>(capacity, 1)) {}

void RequestLogModel::post(RequestEntry entry) {
  bool first = false;
  {
    std::lock_guard lock(pendingMutex_);
    first = pending_.empty();
    pending_.push_back(std::move(entry));
  }
  // Later requests of the same batch ride along with the hand-over already queued.
  if (first) QMetaObject::invokeMethod(this, &RequestLogModel::flush, Qt::QueuedConnection);
}

void RequestLogModel::flush() {
  std::vector<RequestEntry> batch;
  {
    std::lock_guard lock(pendingMutex_);
    batch.swap(pending_);
  }
  if (batch.empty()) return;
  ++batches_;

  // The batch is in the order the requests ended; the rows are newest first.
  std::vector<Shared> added;
  for (auto it = batch.rbegin(); it != batch.rend(); ++it) {
    added.push_back(std::make_shared<const RequestEntry>(std::move(*it)));
  }
  std::vector<Shared> addedVisible;
  for (const auto& entry : added) {
    if (shown(*entry)) addedVisible.push_back(entry);
  }
  if (!addedVisible.empty()) {
    beginInsertRows({}, 0, static_cast<int>(addedVisible.size()) - 1);
    visible_.insert(visible_.begin(), addedVisible.begin(), addedVisible.end());
    endInsertRows();
  }
  kept_.insert(kept_.begin(), added.begin(), added.end());

  // Past the capacity the oldest go, from the log and from the rows.
  while (kept_.size() > capacity_) {
    const Shared oldest = kept_.back();
    kept_.pop_back();
    if (!visible_.empty() && visible_.back() == oldest) {
      const int row = static_cast<int>(visible_.size()) - 1;
      beginRemoveRows({}, row, row);
      visible_.pop_back();
      endRemoveRows();
    }
  }
  total_ += static_cast<int>(batch.size());
  emit totalChanged();
}

bool RequestLogModel::shown(const RequestEntry& entry) const {
  return kind_.isEmpty() || entry.service == kind_;
}

void RequestLogModel::setKind(const QString& kind) {
  if (kind == kind_) return;
  beginResetModel();
  kind_ = kind;
  visible_.clear();
  for (const auto& entry : kept_) {
    if (shown(*entry)) visible_.push_back(entry);
  }
  endResetModel();
  emit kindChanged();
}

std::vector<RequestEntry> RequestLogModel::entries() const {
  std::vector<RequestEntry> out;
  for (auto it = kept_.rbegin(); it != kept_.rend(); ++it) out.push_back(**it);
  return out;
}

int RequestLogModel::count(const QString& service) const {
  return static_cast<int>(std::count_if(kept_.begin(), kept_.end(),
                                        [&](const Shared& e) { return e->service == service; }));
}

QStringList RequestLogModel::logLines() const {
  QStringList lines;
  for (const auto& entry : entries()) lines.append(entry.logLine());
  return lines;
}

int RequestLogModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(visible_.size());
}

QVariant RequestLogModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() < 0 || index.row() >= rowCount()) return {};
  const RequestEntry& entry = *visible_[static_cast<std::size_t>(index.row())];
  switch (role) {
    case TimeRole:
      return entry.sentAt.toLocalTime().toString(QStringLiteral("HH:mm:ss.zzz"));
    case ServiceRole:
      return entry.service;
    case MethodRole:
      return entry.method;
    case PathRole:
      return entry.path;
    case QueryRole:
      return entry.queryText();
    case OutcomeRole:
      return entry.outcome();
    case OkRole:
      return entry.ok();
    case ElapsedRole:
      return entry.elapsedMs;
    case SubjectRole:
      return entry.subject();
    default:
      return {};
  }
}

QHash<int, QByteArray> RequestLogModel::roleNames() const {
  return {{TimeRole, "time"}, {ServiceRole, "service"}, {MethodRole, "method"},
          {PathRole, "path"}, {QueryRole, "query"},     {OutcomeRole, "outcome"},
          {OkRole, "ok"},     {ElapsedRole, "elapsed"}, {SubjectRole, "subject"}};
}

}  // namespace tavik::shop
