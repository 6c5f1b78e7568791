#include "plugin/constants.h"

#include <QString>

namespace Constants {

const QString &LOG_MODULE_NAME = *new QString(QStringLiteral("PelCloud"));
const QString &LOG_FILENAME = *new QString(QStringLiteral("pelcloud.log"));
const QString &CONFIG_FILENAME = *new QString(QStringLiteral("pelcloud.json"));
const QString &COMPUTER_URI_PATTERN = *new QString(QStringLiteral("%1/_ah/api/pelorin/v1/mon/%2"));
const QString &DEVICE_URI_PATTERN =
        *new QString(QStringLiteral("%1/_ah/api/pelorin/v1/mon/%2/device/%3"));

} // namespace Constants
