#ifndef PELCLOUD_PLUGIN_EXITGUARD_H
#define PELCLOUD_PLUGIN_EXITGUARD_H

/**
 * Sees to it that a process whose end has begun does end. Stopping the plug-in ends the process by
 * exit(), in which the suite's library runs clean-up code of its own; should that hang, for example
 * because a call is still inside the library, only a hard end is left.
 *
 * For any thread. Nothing here throws; where no thread is to be had, there is no guard.
 */
namespace ExitGuard {

/** To be called before the suite's library is loaded, so that its clean-up comes under the guard. */
void prepare() noexcept;

/**
 * Ends the process with status 0, without exit handlers, unless exit() has come past the clean-up
 * of everything loaded since prepare() within 900 ms. From there the host's own handlers have ten
 * seconds more.
 */
void arm() noexcept;

/** The process goes on after all. */
void disarm() noexcept;

} // namespace ExitGuard

#endif
