// Operator-facing log messages. Each message is defined once, as a namespace-scope static, with
// a stable key, a severity, a printf-like format, an explanation and a recommended action; the
// definitions are listable so that documentation can be produced from the running code. Raising
// a message turns each argument into text with operator<<, fills the format positionally and
// hands the resulting record to every installed sink.
//
// Formatting never fails: the format only decides where each argument's text goes (and, for the
// integer conversions, its base and padding when the argument is a number). Missing arguments
// become empty text and extra arguments are ignored.
#pragma once

#include <cstdio>
#include <memory>
#include <mutex>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace platform::syslog {

enum class Severity {
  emergency = 0,
  alert,
  critical,
  error,
  warning,
  notice,
  informational,
  debug,
};

// "emergency", "alert", ... "debug"; "unknown" for values outside the enumeration.
std::string_view severityName(Severity severity);

// The recommended action of messages that need none.
extern const char* const noActionRequired;

struct Record {
  std::string key;
  Severity severity;
  std::string text;
  bool operator==(const Record&) const = default;
};

// Prints the record as StreamSink does, without the newline (also makes test failures legible).
std::ostream& operator<<(std::ostream& out, const Record& record);

// Fills a printf-like format with already stringified arguments (see the header comment).
// Understands flags, width, precision and length modifiers; %% is a percent sign and anything
// that is not a conversion is copied as it stands.
std::string formatMessage(std::string_view format, const std::vector<std::string>& args);

class Message {
 public:
  Message(std::string key, Severity severity, std::string format, std::string explanation,
          std::string recommendedAction, double rateLimitInterval = 0.0,
          double rateLimitBurst = 1.0, int flags = 0);
  ~Message();
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;

  const std::string& key() const { return key_; }
  Severity severity() const { return severity_; }
  const std::string& format() const { return format_; }
  const std::string& explanation() const { return explanation_; }
  const std::string& recommendedAction() const { return recommendedAction_; }
  // Kept with the definition for documentation; every raise is delivered.
  double rateLimitInterval() const { return rateLimitInterval_; }
  double rateLimitBurst() const { return rateLimitBurst_; }
  int flags() const { return flags_; }

  template <class... A>
  void operator()(const A&... args) const {
    raise(std::vector<std::string>{stringify(args)...});
  }

  void raise(const std::vector<std::string>& args) const;

 private:
  template <class T>
  static std::string stringify(const T& value) {
    std::ostringstream out;
    out << std::boolalpha << value;
    return out.str();
  }

  std::string key_;
  Severity severity_;
  std::string format_;
  std::string explanation_;
  std::string recommendedAction_;
  double rateLimitInterval_;
  double rateLimitBurst_;
  int flags_;
};

// Every live definition, in the order they were constructed.
std::vector<const Message*> definitions();

// The first live definition with this key, or null.
const Message* findDefinition(std::string_view key);

class Sink {
 public:
  virtual ~Sink() = default;
  // May be called from several threads at once.
  virtual void write(const Record& record) = 0;
};

// Sinks are shared by the whole process. At start one StreamSink on standard error is
// installed, so that nothing raised before the host sets up logging is lost.
void addSink(std::shared_ptr<Sink> sink);
void removeSink(const std::shared_ptr<Sink>& sink);
void clearSinks();
std::vector<std::shared_ptr<Sink>> sinks();

// Hands a record to every sink, as raising a message does.
void dispatch(const Record& record);

// "<KEY> (<severity name>): <text>", one line per record, flushed each time.
class StreamSink : public Sink {
 public:
  explicit StreamSink(std::FILE* file = stderr);
  explicit StreamSink(std::ostream& stream);
  void write(const Record& record) override;

  static std::string line(const Record& record);

 private:
  std::mutex mutex_;
  std::FILE* file_ = nullptr;
  std::ostream* stream_ = nullptr;
};

// One JSON object per line: {"key": ..., "severity": "<name>", "text": ...}, appended to a file
// and flushed each time. Invalid UTF-8 in the text is replaced rather than dropping the record.
class JsonLinesSink : public Sink {
 public:
  // Throws std::system_error when the file cannot be opened for appending.
  explicit JsonLinesSink(const std::string& path);
  ~JsonLinesSink() override;
  void write(const Record& record) override;

 private:
  std::mutex mutex_;
  std::FILE* file_;
};

// The system log through openlog/syslog(3). openlog's identity is process-wide, so a process
// should hold at most one of these.
class SystemLogSink : public Sink {
 public:
  explicit SystemLogSink(std::string ident = "mirroring");  // facility LOG_DAEMON
  SystemLogSink(std::string ident, int facility);
  ~SystemLogSink() override;
  void write(const Record& record) override;

  // The LOG_* priority a severity maps to.
  static int priority(Severity severity);

 private:
  std::string ident_;  // openlog keeps the pointer, so the string must live as long as we do
};

// Keeps every record, for tests.
class CaptureSink : public Sink {
 public:
  void write(const Record& record) override {
    std::lock_guard lock(mutex_);
    records_.push_back(record);
  }
  std::vector<Record> records() const {
    std::lock_guard lock(mutex_);
    return records_;
  }
  void clear() {
    std::lock_guard lock(mutex_);
    records_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Record> records_;
};

}  // namespace platform::syslog
