#ifndef PELCLOUD_TOOLS_PELCLOUDCTL_INSTALLATION_H
#define PELCLOUD_TOOLS_PELCLOUDCTL_INSTALLATION_H

#include <string>

class QJsonObject;
class QString;

/** The suite's installation directory, and its files that concern the plug-in. */
struct Installation
{
    std::string directory; // ends in "/"
    std::string origin;    // "--directory", "/etc/pelorin.conf" or "the program's directory"

    [[nodiscard]] std::string config() const;  // pelcloud.json
    [[nodiscard]] std::string log() const;     // pelcloud.log
    [[nodiscard]] std::string library() const; // upscli.so
};

/**
 * The installation in the directory `option` or, when that is empty, the one that the plug-in would
 * find; a Problem when there is none. GetPelorinPath() gives that directory from then on.
 */
[[nodiscard]] Installation findInstallation(const std::string &option);

/** The object in the file; a Problem when it cannot be read. */
[[nodiscard]] QJsonObject readConfiguration(const std::string &name);

/**
 * Writes pelcloud.json in one step, with mode 0600 and the owner of the file that it replaces. A
 * Problem, with the old file unchanged, when that fails.
 */
void replaceConfiguration(const std::string &name, const QJsonObject &object);

/** A Problem when replaceConfiguration() would lack a permission; changes nothing. */
void checkReplaceable(const std::string &name);

/**
 * Sets one key of the file in one step; other keys, mode and owner stay. A Problem, with the old
 * file unchanged, when that fails.
 */
void changeConfiguration(const std::string &name, const char *key, const QString &value);

#endif
