#ifndef PELCLOUD_PLUGIN_WATCHDOG_H
#define PELCLOUD_PLUGIN_WATCHDOG_H

/**
 * Ends the process if the suite's library does not let it end: exit() would destroy what a hanging
 * call still uses, and the library's own destructors may hang as well.
 *
 * One for the process, with a thread that sleeps until it is armed. Any thread may call anything.
 */
namespace Watchdog {

/** Creates the thread, unless it exists, and disarms. Throws std::system_error without a thread. */
void start();

/**
 * After Timeouts::LIBRARY_END the process ends with status 0 and without exit handlers; the log
 * gets a line at Error before.
 */
void arm() noexcept;

void disarm() noexcept;

} // namespace Watchdog

#endif
