#pragma once

// The commands of the `tavik` tool. Each returns the process exit status: 0 on success,
// 1 for a failure of the service, of decoding or of the environment; it throws
// UsageError for bad usage (status 2).

#include <string_view>
#include <vector>

#include "cli_options.h"

namespace tavik::cli {

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

struct Command {
  std::string_view name;
  std::string_view synopsis;  ///< the arguments after the name, for the usage text
  std::string_view summary;   ///< one line
  OptionList options;         ///< the command's own options
  bool network = false;       ///< also takes the connection options
  std::size_t maxPositionals = 0;
  int (*run)(const Arguments& args) = nullptr;

  /// Own options, then the connection options for network commands.
  OptionList allOptions() const;
};

/// Every command, in the order the usage text lists them.
const std::vector<Command>& commands();

// Option tables and entry points, one per source file.
const OptionList& plaOptions();
const OptionList& displayOptions();
const OptionList& rendererOptions();
const OptionList& multiOptions();
const OptionList& eventOptions();
const OptionList& validateOptions();
const OptionList& sandboxOptions();
const OptionList& sandboxLogOptions();
const OptionList& storeOptions();

int runPla(const Arguments& args);
int runDisplay(const Arguments& args);
int runBanner(const Arguments& args);
int runCarousel(const Arguments& args);
int runMulti(const Arguments& args);
int runEvent(const Arguments& args);
int runValidate(const Arguments& args);
int runSandbox(const Arguments& args);
int runSandboxLog(const Arguments& args);
int runStore(const Arguments& args);

}  // namespace tavik::cli
