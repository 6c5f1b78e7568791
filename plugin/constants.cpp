#include "plugin/constants.h"

#include <QString>

using namespace Qt::StringLiterals;

namespace Constants {

const QString &LOG_MODULE_NAME = *new QString(u"PelCloud"_s);
const QString &LOG_FILENAME = *new QString(u"pelcloud.log"_s);
const QString &CONFIG_FILENAME = *new QString(u"pelcloud.json"_s);
const QString &COMPUTER_URI_PATTERN = *new QString(u"%1/_ah/api/pelorin/v1/mon/%2"_s);
const QString &DEVICE_URI_PATTERN = *new QString(u"%1/_ah/api/pelorin/v1/mon/%2/device/%3"_s);

} // namespace Constants
