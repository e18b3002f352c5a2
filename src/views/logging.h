#pragma once

#include <QLoggingCategory>
#include <string_view>

namespace tavik::quick {

// Qt logging categories of the SDK, so QT_LOGGING_RULES (or
// QLoggingCategory::setFilterRules) selects its messages like any Qt module's:
//   tavik.core   the core's lines (requests, events, set-up notices): while the host has
//                installed no log sink of its own, the core's sink hands every line here,
//                debug lines as debug messages, the others as warnings
//   tavik.views  the views, their managers and the QML types
// The text of each line is the core's, unchanged ("TAVIK: - " debug lines only with debug
// on); Qt's message pattern decides what is printed around it.
const QLoggingCategory& lcCore();
const QLoggingCategory& lcViews();

/// A debug line of the view layer (call it only with debug on): written like every SDK
/// line, so a host's log sink gets it; without one it goes to tavik.views.
void viewDebugLine(std::string_view text);

/// Hands the core's lines to Qt's logging while no host sink takes them, until the
/// application object goes. Runs by itself when a Qt application starts with
/// tavik::quick loaded.
void bridgeCoreLog();

}  // namespace tavik::quick
