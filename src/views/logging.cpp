#include "views/logging.h"

#include <QCoreApplication>
#include <QString>

#include "tavik/core/log.h"

namespace tavik::quick {

namespace {

// Never destroyed: the transport thread may still write a line while the process exits.
const QLoggingCategory& category(const char* name) {
  return *new QLoggingCategory(name);
}

// The category of the line being written on this thread, when it is not the core's.
thread_local const QLoggingCategory* lineCategory = nullptr;

void toQtLogging(std::string_view line) {
  const QLoggingCategory& into = lineCategory ? *lineCategory : lcCore();
  const QString text = QString::fromUtf8(line.data(), static_cast<qsizetype>(line.size()));
  if (line.rfind("\"TAVIK: - ", 0) == 0) {
    qCDebug(into).noquote() << text;
  } else {
    qCWarning(into).noquote() << text;
  }
}

}  // namespace

// While a Qt application runs, lines no host sink takes go to Qt's logging; once it is
// gone, to standard error again.
void bridgeCoreLog() {
  detail::setFallbackLogSink(toQtLogging);
  qAddPostRoutine([] { detail::setFallbackLogSink(nullptr); });
}

const QLoggingCategory& lcCore() {
  static const QLoggingCategory& made = category("tavik.core");
  return made;
}

const QLoggingCategory& lcViews() {
  static const QLoggingCategory& made = category("tavik.views");
  return made;
}

void viewDebugLine(std::string_view text) {
  lineCategory = &lcViews();
  detail::debugLine(text);
  lineCategory = nullptr;
}

}  // namespace tavik::quick

namespace {
void bridgeTavikCoreLog() {
  tavik::quick::bridgeCoreLog();
}
}  // namespace
Q_COREAPP_STARTUP_FUNCTION(bridgeTavikCoreLog)
