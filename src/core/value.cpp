#include "tavik/core/value.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace tavik {

namespace {

// Shortest round-trip text with a fractional part; exponent form at or beyond `large`
// and below 1e-4.
template <class F>
std::string shortestText(F value, F large) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  char buffer[64];
  const F magnitude = std::fabs(value);
  const bool exponent = magnitude != F(0) && (magnitude >= large || magnitude < F(1e-4));
  auto [end, ec] =
      std::to_chars(buffer, buffer + sizeof buffer, value,
                    exponent ? std::chars_format::scientific : std::chars_format::fixed);
  std::string text(buffer, ec == std::errc() ? end : buffer);
  if (!exponent && text.find('.') == std::string::npos) text += ".0";
  return text;
}

}  // namespace

std::string floatText(float value) {
  return shortestText(value, 16777216.0f);
}

std::string doubleText(double value) {
  return shortestText(value, 9007199254740992.0);
}

std::string quoteText(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 2);
  out += '"';
  for (unsigned char c : text) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\'':
        out += "\\'";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\0':
        out += "\\0";
        break;
      default:
        if (c < 0x20 || c == 0x7f) {
          // Any other ASCII control character: two upper-case hex digits in braces.
          static constexpr char kHex[] = "0123456789ABCDEF";
          out += "\\u{";
          out += kHex[c >> 4];
          out += kHex[c & 0xF];
          out += '}';
        } else {
          // Printable ASCII and every byte of a non-ASCII character stay as they are.
          out += static_cast<char>(c);
        }
    }
  }
  out += '"';
  return out;
}

std::string ParamValue::text() const {
  struct Visitor {
    std::string operator()(const std::string& s) const { return s; }
    std::string operator()(std::int64_t i) const { return std::to_string(i); }
    std::string operator()(float f) const { return floatText(f); }
    std::string operator()(double d) const { return doubleText(d); }
    std::string operator()(bool b) const { return b ? "true" : "false"; }
    std::string operator()(const StringList& list) const {
      std::string out;
      for (std::size_t i = 0; i < list.size(); ++i) {
        if (i) out += ", ";
        out += list[i];
      }
      return out;
    }
  };
  return std::visit(Visitor{}, value_);
}

std::string ParamValue::description() const {
  if (const auto* s = asString()) return quoteText(*s);
  if (const auto* list = asList()) {
    std::string out = "[";
    for (std::size_t i = 0; i < list->size(); ++i) {
      if (i) out += ", ";
      out += quoteText((*list)[i]);
    }
    return out + "]";
  }
  return text();
}

Parameters::Parameters(std::initializer_list<Entry> entries) {
  for (const auto& [key, value] : entries) set(key, value);
}

Parameters& Parameters::set(std::string key, ParamValue value) {
  for (auto& entry : entries_) {
    if (entry.first == key) {
      entry.second = std::move(value);
      return *this;
    }
  }
  // An event's or a fetch's dictionary holds about eight entries: room for them at once
  // instead of growing through one, two and four (each step moving every entry).
  if (entries_.capacity() == 0) entries_.reserve(8);
  entries_.emplace_back(std::move(key), std::move(value));
  return *this;
}

Parameters& Parameters::merge(const Parameters& other) {
  for (const auto& [key, value] : other) set(key, value);
  return *this;
}

bool Parameters::erase(std::string_view key) {
  for (auto it = entries_.begin(); it != entries_.end(); ++it) {
    if (it->first == key) {
      entries_.erase(it);
      return true;
    }
  }
  return false;
}

const ParamValue* Parameters::find(std::string_view key) const {
  for (const auto& entry : entries_) {
    if (entry.first == key) return &entry.second;
  }
  return nullptr;
}

std::string Parameters::description() const {
  if (entries_.empty()) return "[:]";
  std::string out = "[";
  bool first = true;
  for (const auto& [key, value] : entries_) {
    if (!first) out += ", ";
    first = false;
    out += quoteText(key);
    out += ": ";
    out += value.description();
  }
  return out + "]";
}

std::string describeOptional(const Parameters* parameters) {
  return parameters ? "Optional(" + parameters->description() + ")" : "nil";
}

}  // namespace tavik
