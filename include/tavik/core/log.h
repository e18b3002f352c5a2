#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace tavik {

/// Receives every diagnostic line the SDK writes (only when `Config.debug` is on, and
/// the one set-up notice of `setUserId`). A line arrives without its newline. Lines may
/// come from any thread, and from several at once: the SDK holds no lock while it calls
/// the sink, so a sink that needs one brings its own. A sink may call `setLogSink` (the
/// new sink takes the next line) and may use the SDK; lines the SDK writes from inside
/// the sink go to standard error instead of back into it.
using LogSink = std::function<void(std::string_view line)>;

/// Installs a process-wide sink; an empty function restores the default, which writes
/// each line to standard error (or, in a Qt application using tavik::quick, hands it to
/// Qt's logging in the category "tavik.core").
void setLogSink(LogSink sink);

namespace detail {
/// Installs the sink that takes the lines while the host has installed none, in place of
/// standard error (tavik::quick bridges them into Qt's logging with it). A host's sink,
/// installed before or after, always comes first. An empty function restores standard
/// error.
void setFallbackLogSink(LogSink sink);
/// The text of a debug line as the SDK writes it: "TAVIK: - " + text, enclosed in double
/// quotes with inner quotes, backslashes and control characters escaped.
std::string debugLineText(std::string_view text);
/// Writes one raw line to the sink.
void writeLogLine(std::string_view line);
/// Writes a debug line the way the SDK prints them (`debugLineText`).
void debugLine(std::string_view text);
}  // namespace detail

}  // namespace tavik
