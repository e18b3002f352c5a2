// tavik: an integrator's inspector for ad answers and tracking events, built on the
// SDK's public interface. See `tavik --help`.

#include <iostream>
#include <string>
#include <vector>

#include "commands.h"
#include "session.h"
#include "tavik/network/web_service.h"

namespace tavik::cli {

OptionList Command::allOptions() const {
  OptionList all = concat(options, {{"--help", "", "show this help"}});
  return network ? concat(std::move(all), connectionOptions()) : all;
}

const std::vector<Command>& commands() {
  static const std::vector<Command> table = {
      {"pla", "--page TYPE [--count N] [--sku S]... [--keywords K] [--category C]... [filters]",
       "product-listing ads for a page, as JSON", plaOptions(), true, 0, runPla},
      {"display", "(--au AD_UNIT... | --pt PAGE_TYPE) [--page P] [--count N] [targeting]",
       "display ads by ad unit or page type, as JSON", displayOptions(), true, 0, runDisplay},
      {"banner", "--au AD_UNIT [--page P] [--json] [targeting]",
       "the first ad of an ad unit, decoded by the renderer", rendererOptions(), true, 0,
       runBanner},
      {"carousel", "--au AD_UNIT [--page P] [--json] [targeting]",
       "the first carousel ad of an ad unit, one row per card", rendererOptions(), true, 0,
       runCarousel},
      {"multi", "--au AD_UNIT [--page P] [--count N] [--json] [targeting]",
       "every ad of an ad unit, for a multi-ad carousel", multiOptions(), true, 0, runMulti},
      {"event",
       "impression|click|view-product|add-to-cart|purchase|video-progress|video-action [options]",
       "send one tracking event; show what was sent and the answer", eventOptions(), true, 1,
       runEvent},
      {"events", "--store FILE [--json]", "list the events an event store holds, oldest first",
       storeOptions(), false, 0, runStore},
      {"validate", "FILE|- [--kind banner|carousel|multi]",
       "decode an ads document with the SDK's decoders and list its ads", validateOptions(), false,
       1, runValidate},
      {"sandbox", "[--port N] [--cert-out FILE] [--catalogue FILE] [--quiet]",
       "run the local HTTPS sandbox until Ctrl-C; prints its address first", sandboxOptions(),
       false, 0, runSandbox},
      {"sandbox-log", "[--json] --sandbox URL --ca-bundle FILE",
       "print the event log of a running sandbox", sandboxLogOptions(), true, 0, runSandboxLog},
  };
  return table;
}

namespace {

const Command* findCommand(std::string_view name) {
  for (const auto& command : commands()) {
    if (command.name == name) return &command;
  }
  return nullptr;
}

std::string usage() {
  std::string text =
      "usage: tavik COMMAND [OPTIONS]\n"
      "\n"
      "Inspects the answers of the Tavik ad services and sends tracking events, through\n"
      "the SDK itself.\n"
      "\n"
      "commands:\n";
  for (const auto& command : commands()) {
    text += "  " + std::string(command.name) + std::string(13 - command.name.size(), ' ') +
            std::string(command.summary) + "\n";
    text += "      tavik " + std::string(command.name) + " " + std::string(command.synopsis) + "\n";
  }
  text +=
      "  help COMMAND  the options of one command\n"
      "\n"
      "connection options (every command that talks to a service):\n";
  text += describeOptions(connectionOptions());
  text += "\n";
  text += connectionNotes();
  text +=
      "\n"
      "exit status: 0 success, 1 service, decoding or I/O failure, 2 bad usage.\n"
      "Try: tavik sandbox --cert-out /tmp/sandbox.pem, then in another terminal\n"
      "     tavik banner --au au_home_banner --sandbox URL --ca-bundle /tmp/sandbox.pem\n";
  return text;
}

std::string commandUsage(const Command& command) {
  std::string text = "usage: tavik " + std::string(command.name) + " " +
                     std::string(command.synopsis) + "\n\n" + std::string(command.summary) +
                     "\n\noptions:\n" +
                     describeOptions(concat(command.options, {{"--help", "", "show this help"}}));
  if (command.network) {
    text +=
        "\nconnection options:\n" + describeOptions(connectionOptions()) + "\n" + connectionNotes();
  }
  return text;
}

int usageError(const std::string& problem, const Command* command) {
  std::cerr << "tavik: " << problem << "\n";
  if (command == nullptr) {
    std::cerr << "\n" << usage();
  } else {
    std::cerr << "usage: tavik " << command->name << " " << command->synopsis << "\ncommands:";
    for (const auto& other : commands()) std::cerr << " " << other.name;
    std::cerr << "\nrun 'tavik help " << command->name
              << "' for its options, 'tavik --help' for everything.\n";
  }
  return kExitUsage;
}

int run(const std::vector<std::string>& args) {
  if (args.empty()) return usageError("no command given", nullptr);
  const std::string& first = args.front();
  if (first == "--help" || first == "-h" || first == "help") {
    if (first == "help" && args.size() > 1) {
      const Command* command = findCommand(args[1]);
      if (command == nullptr) return usageError("unknown command '" + args[1] + "'", nullptr);
      std::cout << commandUsage(*command);
      return kExitOk;
    }
    std::cout << usage();
    return kExitOk;
  }
  if (first == "--version") {
    std::cout << "tavik " << sdkVersion() << "\n";
    return kExitOk;
  }
  const Command* command = findCommand(first);
  if (command == nullptr) {
    return usageError(
        (first.starts_with("-") ? "unknown option '" : "unknown command '") + first + "'", nullptr);
  }
  try {
    const std::vector<std::string> rest(args.begin() + 1, args.end());
    const Arguments parsed = parseArguments(rest, command->allOptions(), command->maxPositionals);
    if (parsed.has("--help")) {
      std::cout << commandUsage(*command);
      return kExitOk;
    }
    return command->run(parsed);
  } catch (const UsageError& error) {
    return usageError(error.what(), command);
  } catch (const std::exception& error) {
    std::cerr << "error: " << error.what() << "\n";
    return kExitFailure;
  }
}

}  // namespace

}  // namespace tavik::cli

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  const int status = tavik::cli::run(args);
  std::cout.flush();
  return status;
}
