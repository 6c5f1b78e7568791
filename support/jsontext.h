#ifndef PELCLOUD_SUPPORT_JSONTEXT_H
#define PELCLOUD_SUPPORT_JSONTEXT_H

#include <QByteArray>

class QJsonObject;

/**
 * The indented UTF-8 text of `object`, as request bodies and pelcloud.json hold it: four blanks per
 * level, keys in order, a final newline, the same layout as QJsonDocument::toJson() except for
 * numbers. Every number, whole or not, is written as printf's %.6g writes it in the C locale
 * (1000000 gives 1e+06), which is what the cloud expects; Qt writes up to 17 digits.
 * Not-a-number and infinities become null: JSON cannot express them, and one bad reading must not
 * make a whole report unreadable. May be called from any thread.
 */
[[nodiscard]] QByteArray ToJsonText(const QJsonObject &object);

#endif
