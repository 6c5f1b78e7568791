#ifndef PELCLOUD_PLUGIN_TIMEOUTS_H
#define PELCLOUD_PLUGIN_TIMEOUTS_H

#include <chrono>

/** How long the end of the plug-in waits, and for what. */
namespace Timeouts {

using std::chrono::milliseconds;

// SrvStop: the time of each step counts from the end of the one before.
inline constexpr milliseconds CALL_GRACE{ 200 };   // for a library call in progress, before CliStop
inline constexpr milliseconds LIBRARY_END{ 5000 }; // from the stop's begin until the watchdog acts
inline constexpr milliseconds LAST_LINE{ 500 };    // for the watchdog's line in the log

static_assert(CALL_GRACE < milliseconds(1000),
              "a stop takes a second if the library does not hang");
static_assert(LIBRARY_END + LAST_LINE < milliseconds(6000), "a stop takes 6 s if it does");

// Destruction of a client that was not stopped.
inline constexpr milliseconds RUN_END{ 10000 };  // then the run is cancelled
inline constexpr milliseconds CANCELLED{ 1000 }; // for the cancelled run to unwind

} // namespace Timeouts

#endif
