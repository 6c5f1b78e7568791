#ifndef PELCLOUD_PLUGIN_WATCHDOG_H
#define PELCLOUD_PLUGIN_WATCHDOG_H

/**
 * Ends the process if the suite's library does not let it end: exit() would destroy what a hanging
 * call still uses, and the library's own destructors may hang as well.
 *
 * One for the process, with two threads that sleep until then, so that a stop creates and
 * allocates nothing. Any thread may call anything.
 */
namespace Watchdog {

/** Creates the threads, unless they exist, and disarms. False when there is no thread. */
[[nodiscard]] bool start() noexcept;

/**
 * After Timeouts::LIBRARY_END the process ends with status 0 and without exit handlers; the log
 * gets a line at Error before.
 */
void arm() noexcept;

void disarm() noexcept;

} // namespace Watchdog

#endif
