// Where the library's log lines go.
//
// A line is handed over as its format and arguments, so that a host's own logging may filter it
// before it is rendered and render quoted texts its own way; `log_text` renders it for a host that
// has none.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace retrieval {

enum class LogLevel { kDebug, kWarning };

// An exception stands for its message.
using LogArgument = std::variant<std::int64_t, double, std::string, std::exception_ptr>;

struct LogRecord {
  LogLevel level;
  // Its conversions, in order, are filled by the arguments: %d, %s, %r (a text as a quoted literal)
  // and %.0f (a number without decimals).
  std::string_view format;
  std::vector<LogArgument> arguments;
  // The error whose trace belongs to the line, or null.
  std::exception_ptr error;
};

// Called from the threads that ask questions, at the same time, with no text-table lock held. The
// lines of a snapshot build come while the retriever's own lock is held, so `write` must not ask
// the same retriever. What it throws leaves the question. The record lives for the call.
class Log {
 public:
  virtual ~Log() = default;
  virtual void write(const LogRecord& record) = 0;
};

// The line's text, without its error.
std::string log_text(const LogRecord& record);

// The message of an error: `what()`, or a stand-in for one that is no std::exception.
std::string message_of(const std::exception_ptr& error);

}  // namespace retrieval
