#ifndef PELCLOUD_PLUGIN_CONSTANTS_H
#define PELCLOUD_PLUGIN_CONSTANTS_H

class QString;

/**
 * The plug-in's fixed texts. References to strings that are never destroyed: the watchdog may
 * read them while the process runs its exit handlers.
 */
namespace Constants {

extern const QString &LOG_MODULE_NAME;
extern const QString &LOG_FILENAME;
extern const QString &CONFIG_FILENAME;

// %1 is the cloud's home address, %2 the computer's identifier, %3 the unit's number.
extern const QString &COMPUTER_URI_PATTERN;
extern const QString &DEVICE_URI_PATTERN;

} // namespace Constants

#endif
