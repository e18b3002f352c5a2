#pragma once

#include <QString>
#include <QtGlobal>
#include <mutex>
#include <vector>

namespace tavik::test {

/// Every message Qt's logging delivers while it lives (from any thread), by category.
class MessageLog {
 public:
  struct Message {
    QtMsgType type;
    QString category;
    QString text;
  };

  MessageLog() {
    current_ = this;
    previous_ = qInstallMessageHandler(
        [](QtMsgType type, const QMessageLogContext& context, const QString& text) {
          std::lock_guard lock(current_->mutex_);
          current_->messages_.push_back({type, QString::fromUtf8(context.category), text});
        });
  }
  ~MessageLog() {
    qInstallMessageHandler(previous_);
    current_ = nullptr;
  }
  MessageLog(const MessageLog&) = delete;
  MessageLog& operator=(const MessageLog&) = delete;

  std::vector<Message> in(const QString& category) const {
    std::lock_guard lock(mutex_);
    std::vector<Message> found;
    for (const auto& message : messages_) {
      if (message.category == category) found.push_back(message);
    }
    return found;
  }

 private:
  static inline MessageLog* current_ = nullptr;
  QtMessageHandler previous_ = nullptr;
  mutable std::mutex mutex_;
  std::vector<Message> messages_;
};

}  // namespace tavik::test
