#include "plugin/configfile.h"

#include "support/jsontext.h"

#include <QByteArray>
#include <QFile>
#include <QJsonObject>
#include <QString>

ConfigWriting WriteConfigFile(const QString &name, const QJsonObject &object)
{
    const QByteArray bytes = ToJsonText(object);
    QFile file(name);
    if (!file.open(QIODevice::WriteOnly))
        return ConfigWriting::NotOpened;
    // Flushed before it is judged: a full disk shows only when the bytes reach the file.
    const bool written = file.write(bytes) == bytes.size() && file.flush();
    file.close();
    return written ? ConfigWriting::Done : ConfigWriting::NotWritten;
}
