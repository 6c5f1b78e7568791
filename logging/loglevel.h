#ifndef PELCLOUD_LOGGING_LOGLEVEL_H
#define PELCLOUD_LOGGING_LOGLEVEL_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <QString>

namespace QLogger {

/** Severity of a message, or the minimum severity for a log file; ascending. */
enum class LogLevel : std::int32_t {
    Trace,
    Debug,
    Info,
    Warning,
    Error,
    Fatal,
};

/** The levels' names as the log file shows them, in the order of LogLevel. */
inline constexpr std::array<const char *, 6> LOG_LEVEL_NAMES{
    "Trace", "Debug", "Info", "Warning", "Error", "Fatal",
};
static_assert(LOG_LEVEL_NAMES.size() == static_cast<std::size_t>(LogLevel::Fatal) + 1);

/** The names in lower case, as configurations and command lines write them; most severe first. */
[[nodiscard]] std::vector<std::string> logLevelWords();

/** The level with this name, in any case. */
[[nodiscard]] std::optional<LogLevel> logLevelNamed(const QString &name);

/** Like logLevelNamed(), but Fatal for any other text. */
[[nodiscard]] LogLevel logLevelFromText(const QString &text);

} // namespace QLogger

#endif
