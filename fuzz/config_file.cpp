// Any bytes as pelcloud.json: read by a client, rewritten and read again.

#include "fuzz/fuzz.h"
#include "plugin/pelcloud.h"
#include "support/config.h"

#include <algorithm>
#include <climits>
#include <string>

#include <QJsonDocument>
#include <QJsonObject>

namespace {

class Client : public PelCloudClient
{
public:
    using PelCloudClient::auth;
    using PelCloudClient::logLevelText;
};

/** Checks that `client` holds the values of `object`, and defaults for what is not there. */
void checkTaken(Client &client, const QJsonObject &object)
{
    const GoogleToken &token = client.auth().getToken();
    QJsonObject expected = token.toJson();
    for (const QString &key : expected.keys())
        expected[key] = object[key].toString();
    const double interval = object["interval"].toDouble();
    expected["interval"] = static_cast<int>(std::clamp<double>(interval, INT_MIN, INT_MAX));
    FUZZ_CHECK(token.toJson() == expected);
    FUZZ_CHECK(token.getAccessToken().isEmpty() && token.isAuthTokenExpired());
    const QString level = object["log"].toString();
    FUZZ_CHECK(client.logLevelText() == (level.isEmpty() ? "FATAL" : level));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string bytes(data, data + size);
    writeFile(scratchFile("pelcloud.json"), bytes);
    SetPelorinPath(scratchFile(""));

    // It lives as long as the fuzzer: a file replaces what an earlier one set, or changes nothing.
    static Client client;
    const QString heldLevel = client.logLevelText();
    const GoogleToken held(QJsonObject{ { "home", "h" } });
    client.auth().setToken(held);
    const QJsonObject object = QJsonDocument::fromJson(QByteArray::fromStdString(bytes)).object();
    FUZZ_CHECK(client.readConfig() == object);
    const int result = client.readConfigFromFile();
    if (object.isEmpty()) {
        FUZZ_CHECK(result == Client::ConfigFailed && client.logLevelText() == heldLevel);
        FUZZ_CHECK(client.auth().getToken().toJson() == held.toJson());
        return 0;
    }
    FUZZ_CHECK(result == Client::Ok);
    checkTaken(client, object);

    // Numbers are written with six digits; Qt's reader drops a byte order mark that begins a text.
    const bool isRounded = client.auth().getToken().getInterval() / 1'000'000 != 0;
    if (isRounded || QJsonDocument(object).toJson().contains("\"\xEF\xBB\xBF"))
        return 0;
    FUZZ_CHECK(client.writeConfigToFile() == Client::Ok);
    QJsonObject written = client.auth().getToken().toJson();
    written["log"] = client.logLevelText();
    client.auth().setToken(held);
    FUZZ_CHECK(client.readConfig() == written && client.readConfigFromFile() == Client::Ok);
    checkTaken(client, written);
    return 0;
}
