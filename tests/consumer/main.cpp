#include "model/devicestatus.h"
#include "support/jsontext.h"

#include <QJsonObject>

int main()
{
    return ToJsonText(DeviceStatus().toJson()).isEmpty() ? 1 : 0;
}
