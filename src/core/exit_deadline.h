#pragma once

#include <chrono>

namespace tavik::detail {

/// How long the SDK's threads are waited for at process exit when a continuation is
/// still running on one of them (`transport::Settings::exitTimeout`).
void setExitDeadline(std::chrono::milliseconds deadline);
std::chrono::milliseconds exitDeadline();

}  // namespace tavik::detail
