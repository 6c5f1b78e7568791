#ifndef PELCLOUD_LOGGING_LOGLEVEL_H
#define PELCLOUD_LOGGING_LOGLEVEL_H

#include <cstdint>

namespace QLogger {

/** How much a message matters, or the least that a log file takes; in ascending order. */
enum class LogLevel : std::int32_t {
    Trace,
    Debug,
    Info,
    Warning,
    Error,
    Fatal,
};

} // namespace QLogger

#endif
