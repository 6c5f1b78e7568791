#ifndef PELCLOUD_PLUGIN_CONFIGFILE_H
#define PELCLOUD_PLUGIN_CONFIGFILE_H

class QJsonObject;
class QString;

enum class ConfigWriting { Done, NotOpened, NotWritten };

/**
 * Replaces the contents of the file `name`, in place and with the mode that it has, by the text of
 * `object`. Done means that the bytes have reached the file.
 */
[[nodiscard]] ConfigWriting WriteConfigFile(const QString &name, const QJsonObject &object);

#endif
