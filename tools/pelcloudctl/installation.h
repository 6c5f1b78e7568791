#ifndef PELCLOUD_TOOLS_PELCLOUDCTL_INSTALLATION_H
#define PELCLOUD_TOOLS_PELCLOUDCTL_INSTALLATION_H

#include <string>

class QJsonObject;

/** Where the suite is installed, and its files that concern the plug-in. */
struct Installation
{
    std::string directory; // with a "/" at its end
    std::string origin; // who says so: "--directory", "/etc/pelorin.conf" or "this program's place"

    [[nodiscard]] std::string config() const;  // pelcloud.json
    [[nodiscard]] std::string log() const;     // pelcloud.log
    [[nodiscard]] std::string library() const; // upscli.so
};

/**
 * The installation that the option names or, when it is empty, the one that the plug-in would find;
 * a Problem when there is none. Everything of the library looks there from then on.
 */
[[nodiscard]] Installation findInstallation(const std::string &option);

/** The object in the file; a Problem that says why there is none. */
[[nodiscard]] QJsonObject readConfiguration(const std::string &name);

/**
 * Puts a new pelcloud.json with mode 0600 in the place of the file, if there is one, in a single
 * step; it keeps that one's owner. A Problem, with the old file untouched, when that fails.
 */
void replaceConfiguration(const std::string &name, const QJsonObject &object);

/** A Problem when replaceConfiguration() would fail here for want of a right; changes nothing. */
void checkReplaceable(const std::string &name);

/**
 * Sets one text of the file and keeps everything else of it, its mode and its owner, in a single
 * step. A Problem, with the old file untouched, when that fails.
 */
void changeConfiguration(const std::string &name, const char *key, const std::string &value);

#endif
