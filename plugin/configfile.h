#ifndef PELCLOUD_PLUGIN_CONFIGFILE_H
#define PELCLOUD_PLUGIN_CONFIGFILE_H

class QJsonObject;
class QString;

enum class ConfigWriting { Done, NotOpened, NotWritten };

/**
 * Writes the text of `object` to the file `name` in place, which keeps its owner and mode; a new file
 * gets the mode 0600. Done means that the text is on the disk; otherwise errno holds the reason. The
 * file holds the old or the new object at every moment, so that neither a full disk nor a power cut
 * costs the enrolment.
 */
[[nodiscard]] ConfigWriting writeConfigFile(const QString &name, const QJsonObject &object);

#endif
