#ifndef PELCLOUD_TOOLS_PELCLOUDCTL_CHECKS_H
#define PELCLOUD_TOOLS_PELCLOUDCTL_CHECKS_H

#include "tools/pelcloudctl/findings.h"

#include <string>

class QJsonObject;
struct Installation;

// The checks of the command check. Each adds what it finds and changes nothing.

// On this computer.

/** Gives the object in pelcloud.json; an empty one when that cannot be read. */
[[nodiscard]] QJsonObject checkConfiguration(Findings &findings, const Installation &installation);
void checkSuite(Findings &findings, const Installation &installation);
void checkLog(Findings &findings, const Installation &installation, const QJsonObject &config);
/** `file` is the plug-in's. */
void checkPlugin(Findings &findings, const std::string &file);

// Over the network.

/** The proxies in the environment, the token server with a sign-in, and the cloud. */
void checkNetwork(Findings &findings, const QJsonObject &config);

#endif
