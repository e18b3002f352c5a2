#include "cli_options.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace tavik::cli {

namespace {

const OptionSpec* findOption(const OptionList& options, std::string_view name) {
  for (const auto& option : options) {
    if (option.name == name) return &option;
  }
  return nullptr;
}

std::string quoted(std::string_view text) {
  return "'" + std::string(text) + "'";
}

}  // namespace

bool Arguments::has(std::string_view name) const {
  return options_.find(name) != options_.end();
}

std::optional<std::string> Arguments::value(std::string_view name) const {
  const auto found = options_.find(name);
  if (found == options_.end() || found->second.empty()) return std::nullopt;
  return found->second.back();
}

std::string Arguments::valueOr(std::string_view name, std::string fallback) const {
  return value(name).value_or(std::move(fallback));
}

std::vector<std::string> Arguments::values(std::string_view name) const {
  const auto found = options_.find(name);
  return found == options_.end() ? std::vector<std::string>{} : found->second;
}

std::int64_t Arguments::integer(std::string_view name, std::int64_t fallback, std::int64_t min,
                                std::int64_t max) const {
  const auto text = value(name);
  return text ? parseInteger(*text, name, min, max) : fallback;
}

std::optional<float> Arguments::number(std::string_view name) const {
  const auto text = value(name);
  if (!text) return std::nullopt;
  return parseNumber(*text, name);
}

Arguments parseArguments(const std::vector<std::string>& args, const OptionList& options,
                         std::size_t maxPositionals) {
  Arguments parsed;
  bool optionsEnded = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    const bool isOption = !optionsEnded && arg.size() > 1 && arg[0] == '-';
    if (!isOption) {
      if (parsed.positionals_.size() >= maxPositionals) {
        throw UsageError("unexpected argument " + quoted(arg));
      }
      parsed.positionals_.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    const auto equals = arg.find('=');
    const std::string name = arg.substr(0, equals);
    const OptionSpec* option = findOption(options, name);
    if (option == nullptr) throw UsageError("unknown option " + quoted(name));

    std::string value;
    if (option->metavar.empty()) {
      if (equals != std::string::npos) throw UsageError(name + " takes no value");
    } else if (equals != std::string::npos) {
      value = arg.substr(equals + 1);
    } else if (i + 1 < args.size()) {
      value = args[++i];
    } else {
      throw UsageError(name + " needs a value (" + std::string(option->metavar) + ")");
    }

    auto& slot = parsed.options_[name];
    if (!slot.empty() && !option->repeatable) throw UsageError(name + " given more than once");
    slot.push_back(std::move(value));
  }
  return parsed;
}

std::int64_t parseInteger(std::string_view text, std::string_view what, std::int64_t min,
                          std::int64_t max) {
  std::int64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (text.empty() || error != std::errc() || rest != end || number < min || number > max) {
    throw UsageError(std::string(what) + " needs a whole number from " + std::to_string(min) +
                     " to " + std::to_string(max) + ", not " + quoted(text));
  }
  return number;
}

float parseNumber(std::string_view text, std::string_view what) {
  float number = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (text.empty() || error != std::errc() || rest != end || !std::isfinite(number)) {
    throw UsageError(std::string(what) + " needs a number, not " + quoted(text));
  }
  return number;
}

std::string describeOptions(const OptionList& options) {
  std::vector<std::string> heads;
  std::size_t width = 0;
  for (const auto& option : options) {
    std::string head = std::string(option.name);
    if (!option.metavar.empty()) head.append(" ").append(option.metavar);
    if (option.repeatable) head += " ...";
    width = std::max(width, head.size());
    heads.push_back(std::move(head));
  }
  std::string text;
  for (std::size_t i = 0; i < options.size(); ++i) {
    text += "  " + heads[i] + std::string(width - heads[i].size() + 2, ' ');
    text += std::string(options[i].help) + "\n";
  }
  return text;
}

OptionList concat(OptionList a, const OptionList& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

}  // namespace tavik::cli
