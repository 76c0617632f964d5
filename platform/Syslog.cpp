#include "platform/Syslog.h"

#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <exception>
#include <nlohmann/json.hpp>
#include <optional>
#include <system_error>

namespace platform::syslog {

const char* const noActionRequired = "No action is required.";

std::string_view severityName(Severity severity) {
  switch (severity) {
    case Severity::emergency: return "emergency";
    case Severity::alert: return "alert";
    case Severity::critical: return "critical";
    case Severity::error: return "error";
    case Severity::warning: return "warning";
    case Severity::notice: return "notice";
    case Severity::informational: return "informational";
    case Severity::debug: return "debug";
  }
  return "unknown";
}

std::ostream& operator<<(std::ostream& out, const Record& record) {
  return out << StreamSink::line(record);
}

// ---------------------------------------------------------------------------------------------
// Formatting

namespace {

// Bounds a width or precision, so that a typo such as %99999999d cannot exhaust memory.
constexpr std::size_t maxFieldWidth = 4096;

bool isConversion(char c) {
  return std::string_view("diuxXocsfFeEgGaAp").find(c) != std::string_view::npos;
}

std::optional<long long> asSigned(const std::string& text) {
  long long value = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
  return value;
}

std::optional<unsigned long long> asUnsigned(const std::string& text) {
  unsigned long long value = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
  return value;
}

std::optional<double> asDouble(const std::string& text) {
  if (text.empty()) return std::nullopt;
  char* end = nullptr;
  double value = std::strtod(text.c_str(), &end);
  if (end != text.c_str() + text.size()) return std::nullopt;
  return value;
}

struct Conversion {
  bool left = false;
  bool zero = false;
  bool plus = false;
  bool space = false;
  bool alternate = false;
  std::size_t width = 0;
  std::optional<std::size_t> precision;
  int lengthBits = 32;  // how wide a negative number is when shown in hex or octal
  char conversion = 0;
};

std::size_t readNumber(std::string_view format, std::size_t& i) {
  std::size_t value = 0;
  while (i < format.size() && format[i] >= '0' && format[i] <= '9') {
    value = std::min(maxFieldWidth, value * 10 + static_cast<std::size_t>(format[i] - '0'));
    ++i;
  }
  return value;
}

// Renders an integer conversion in base 8 or 16 when the argument is a number; otherwise the
// argument's text is used as it stands.
std::string radixText(const std::string& arg, const Conversion& conv, std::string& prefix) {
  unsigned long long value = 0;
  if (auto u = asUnsigned(arg)) {
    value = *u;
  } else if (auto s = asSigned(arg)) {
    // Negative numbers show as the two's complement of the argument's presumed width.
    value = static_cast<unsigned long long>(*s);
    if (conv.lengthBits < 64) value &= (1ull << conv.lengthBits) - 1;
  } else {
    return arg;
  }
  char buffer[32];
  int base = conv.conversion == 'o' ? 8 : 16;
  auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value, base);
  std::string digits(buffer, end);
  if (conv.conversion == 'X') {
    std::transform(digits.begin(), digits.end(), digits.begin(),
                   [](char c) { return c >= 'a' && c <= 'f' ? static_cast<char>(c - 32) : c; });
  }
  if (conv.alternate && value != 0) {
    if (conv.conversion == 'o') {
      digits.insert(0, "0");
    } else {
      prefix = conv.conversion == 'X' ? "0X" : "0x";
    }
  }
  return digits;
}

std::string convert(const std::string& arg, const Conversion& conv) {
  std::string prefix;  // sign or radix prefix; zero padding goes after it
  std::string body;
  bool numeric = false;
  switch (conv.conversion) {
    case 'x':
    case 'X':
    case 'o':
      body = radixText(arg, conv, prefix);
      numeric = asSigned(arg) || asUnsigned(arg);
      break;
    case 'd':
    case 'i':
    case 'u':
      body = arg;
      if (asSigned(arg) || asUnsigned(arg)) {
        numeric = true;
        if (!body.empty() && (body[0] == '-' || body[0] == '+')) {
          prefix = body.substr(0, 1);
          body.erase(0, 1);
        } else if (conv.plus) {
          prefix = "+";
        } else if (conv.space) {
          prefix = " ";
        }
      }
      break;
    case 'f':
    case 'F':
    case 'e':
    case 'E':
    case 'g':
    case 'G':
    case 'a':
    case 'A':
      body = arg;
      // Arguments arrive already streamed, so only an explicit precision asks for reformatting.
      if (auto value = asDouble(arg); value && conv.precision) {
        char format[16];
        std::snprintf(format, sizeof format, "%%.%zu%c", *conv.precision, conv.conversion);
        char buffer[maxFieldWidth + 512];
        std::snprintf(buffer, sizeof buffer, format, *value);
        body = buffer;
      }
      numeric = asDouble(body).has_value();
      if (numeric && !body.empty() && (body[0] == '-' || body[0] == '+')) {
        prefix = body.substr(0, 1);
        body.erase(0, 1);
      } else if (numeric && conv.plus) {
        prefix = "+";
      }
      break;
    case 's':
      body = arg;
      if (conv.precision && *conv.precision < body.size()) body.resize(*conv.precision);
      break;
    default:  // c, p
      body = arg;
      break;
  }
  std::size_t length = prefix.size() + body.size();
  if (length >= conv.width) return prefix + body;
  std::size_t pad = conv.width - length;
  if (conv.left) return prefix + body + std::string(pad, ' ');
  if (conv.zero && numeric) return prefix + std::string(pad, '0') + body;
  return std::string(pad, ' ') + prefix + body;
}

}  // namespace

std::string formatMessage(std::string_view format, const std::vector<std::string>& args) {
  std::string out;
  out.reserve(format.size() + 16 * args.size());
  std::size_t next = 0;
  std::size_t i = 0;
  while (i < format.size()) {
    char c = format[i];
    if (c != '%') {
      out.push_back(c);
      ++i;
      continue;
    }
    std::size_t start = i++;
    if (i < format.size() && format[i] == '%') {
      out.push_back('%');
      ++i;
      continue;
    }
    Conversion conv;
    for (; i < format.size(); ++i) {
      char f = format[i];
      if (f == '-') {
        conv.left = true;
      } else if (f == '0') {
        conv.zero = true;
      } else if (f == '+') {
        conv.plus = true;
      } else if (f == ' ') {
        conv.space = true;
      } else if (f == '#') {
        conv.alternate = true;
      } else {
        break;
      }
    }
    conv.width = readNumber(format, i);
    if (i < format.size() && format[i] == '.') {
      ++i;
      conv.precision = readNumber(format, i);
    }
    auto startsWith = [&](std::string_view s) { return format.substr(i).starts_with(s); };
    if (startsWith("hh")) {
      conv.lengthBits = 8;
      i += 2;
    } else if (startsWith("ll")) {
      conv.lengthBits = 64;
      i += 2;
    } else if (startsWith("h")) {
      conv.lengthBits = 16;
      i += 1;
    } else if (i < format.size() &&
               std::string_view("lzjtLq").find(format[i]) != std::string_view::npos) {
      conv.lengthBits = 64;
      i += 1;
    }
    if (i >= format.size() || !isConversion(format[i])) {
      // Not a conversion after all: keep the text, consume no argument.
      out.append(format.substr(start, i - start));
      continue;
    }
    conv.conversion = format[i++];
    static const std::string missing;
    const std::string& arg = next < args.size() ? args[next] : missing;
    ++next;
    out += convert(arg, conv);
  }
  return out;
}

// ---------------------------------------------------------------------------------------------
// Definitions and sinks

namespace {

struct Registry {
  // Never destroyed: messages in plug-ins or other statics may unregister during exit.
  static Registry& instance() {
    static Registry* registry = new Registry;
    return *registry;
  }

  std::mutex mutex;
  std::vector<const Message*> definitions;
  std::vector<std::shared_ptr<Sink>> sinks{std::make_shared<StreamSink>(stderr)};
};

}  // namespace

Message::Message(std::string key, Severity severity, std::string format, std::string explanation,
                 std::string recommendedAction, double rateLimitInterval, double rateLimitBurst,
                 int flags)
    : key_(std::move(key)),
      severity_(severity),
      format_(std::move(format)),
      explanation_(std::move(explanation)),
      recommendedAction_(std::move(recommendedAction)),
      rateLimitInterval_(rateLimitInterval),
      rateLimitBurst_(rateLimitBurst),
      flags_(flags) {
  auto& registry = Registry::instance();
  std::lock_guard lock(registry.mutex);
  registry.definitions.push_back(this);
}

Message::~Message() {
  auto& registry = Registry::instance();
  std::lock_guard lock(registry.mutex);
  std::erase(registry.definitions, this);
}

void Message::raise(const std::vector<std::string>& args) const {
  dispatch(Record{key_, severity_, formatMessage(format_, args)});
}

std::vector<const Message*> definitions() {
  auto& registry = Registry::instance();
  std::lock_guard lock(registry.mutex);
  return registry.definitions;
}

const Message* findDefinition(std::string_view key) {
  auto& registry = Registry::instance();
  std::lock_guard lock(registry.mutex);
  for (const auto* message : registry.definitions) {
    if (message->key() == key) return message;
  }
  return nullptr;
}

void addSink(std::shared_ptr<Sink> sink) {
  if (!sink) return;
  auto& registry = Registry::instance();
  std::lock_guard lock(registry.mutex);
  registry.sinks.push_back(std::move(sink));
}

void removeSink(const std::shared_ptr<Sink>& sink) {
  auto& registry = Registry::instance();
  std::lock_guard lock(registry.mutex);
  std::erase(registry.sinks, sink);
}

void clearSinks() {
  auto& registry = Registry::instance();
  std::lock_guard lock(registry.mutex);
  registry.sinks.clear();
}

std::vector<std::shared_ptr<Sink>> sinks() {
  auto& registry = Registry::instance();
  std::lock_guard lock(registry.mutex);
  return registry.sinks;
}

void dispatch(const Record& record) {
  // Sinks run outside the lock, so a sink may raise messages or change the sink list.
  for (const auto& sink : sinks()) {
    try {
      sink->write(record);
    } catch (const std::exception& e) {
      // A broken sink must neither hide the record from the others nor fail the raiser.
      std::fprintf(stderr, "log sink failed on %s: %s\n", record.key.c_str(), e.what());
    }
  }
}

StreamSink::StreamSink(std::FILE* file) : file_(file) {}

StreamSink::StreamSink(std::ostream& stream) : stream_(&stream) {}

std::string StreamSink::line(const Record& record) {
  std::string line;
  line.append(record.key).append(" (").append(severityName(record.severity)).append("): ");
  line.append(record.text);
  return line;
}

void StreamSink::write(const Record& record) {
  auto text = line(record);
  text.push_back('\n');
  std::lock_guard lock(mutex_);
  if (stream_ != nullptr) {
    *stream_ << text << std::flush;
  } else if (file_ != nullptr) {
    std::fwrite(text.data(), 1, text.size(), file_);
    std::fflush(file_);
  }
}

JsonLinesSink::JsonLinesSink(const std::string& path) : file_(std::fopen(path.c_str(), "a")) {
  if (file_ == nullptr) {
    throw std::system_error(errno, std::generic_category(), "cannot open log file " + path);
  }
}

JsonLinesSink::~JsonLinesSink() { std::fclose(file_); }

void JsonLinesSink::write(const Record& record) {
  nlohmann::json object = {
      {"key", record.key},
      {"severity", severityName(record.severity)},
      {"text", record.text},
  };
  auto text = object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  text.push_back('\n');
  std::lock_guard lock(mutex_);
  std::fwrite(text.data(), 1, text.size(), file_);
  std::fflush(file_);
}

SystemLogSink::SystemLogSink(std::string ident) : SystemLogSink(std::move(ident), LOG_DAEMON) {}

SystemLogSink::SystemLogSink(std::string ident, int facility) : ident_(std::move(ident)) {
  ::openlog(ident_.c_str(), LOG_PID, facility);
}

SystemLogSink::~SystemLogSink() { ::closelog(); }

int SystemLogSink::priority(Severity severity) {
  switch (severity) {
    case Severity::emergency: return LOG_EMERG;
    case Severity::alert: return LOG_ALERT;
    case Severity::critical: return LOG_CRIT;
    case Severity::error: return LOG_ERR;
    case Severity::warning: return LOG_WARNING;
    case Severity::notice: return LOG_NOTICE;
    case Severity::informational: return LOG_INFO;
    case Severity::debug: return LOG_DEBUG;
  }
  return LOG_NOTICE;
}

void SystemLogSink::write(const Record& record) {
  ::syslog(priority(record.severity), "%s: %s", record.key.c_str(), record.text.c_str());
}

}  // namespace platform::syslog
