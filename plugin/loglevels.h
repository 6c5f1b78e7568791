#ifndef PELCLOUD_PLUGIN_LOGLEVELS_H
#define PELCLOUD_PLUGIN_LOGLEVELS_H

#include "logging/qlogger.h"

#include <QString>

/** The level that the configuration's "log" text names, in any case; Fatal for any other text. */
[[nodiscard]] QLogger::LogLevel LogLevelFromText(const QString &text);

#endif
