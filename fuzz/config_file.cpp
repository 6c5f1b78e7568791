// Any bytes as pelcloud.json: read by a client, rewritten by it, and read again by another.

#include "fuzz/check.h"
#include "fuzz/texts.h"
#include "plugin/pelcloud.h"
#include "support/config.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

namespace {

/** The installation directory while the fuzzer runs. */
class InstallationDirectory
{
public:
    InstallationDirectory()
    {
        FUZZ_CHECK(mkdtemp(m_path.data()) != nullptr);
        SetPelorinPath(m_path);
    }
    ~InstallationDirectory() { std::filesystem::remove_all(m_path); }

private:
    std::string m_path = std::filesystem::temp_directory_path() / "pelcloud-fuzz-XXXXXX";
};

class Client : public PelCloudClient
{
public:
    using PelCloudClient::auth;
    using PelCloudClient::logLevelText;
};

int saturated(double value)
{
    using Limits = std::numeric_limits<int>;
    return static_cast<int>(std::clamp<double>(value, Limits::min(), Limits::max()));
}

constexpr struct
{
    const char *key;
    const QString &(GoogleToken::*get)() const;
} TEXTS[] = {
    { "home", &GoogleToken::getHomeURI },    { "cpid", &GoogleToken::getComputerId },
    { "cid", &GoogleToken::getClientId },    { "csec", &GoogleToken::getClientSecret },
    { "code", &GoogleToken::getDeviceCode }, { "rtk", &GoogleToken::getRefreshToken },
};

/** Whether `client` has taken what `object` holds. */
void checkTaken(Client &client, const QJsonObject &object)
{
    const GoogleToken &token = client.auth().getToken();
    for (const auto &row : TEXTS)
        FUZZ_CHECK((token.*row.get)() == object[row.key].toString());
    FUZZ_CHECK(token.getInterval() == saturated(object["interval"].toDouble()));
    FUZZ_CHECK(token.getAccessToken().isEmpty() && token.getTokenType().isEmpty());
    FUZZ_CHECK(token.getExpiresIn() == 0 && token.isAuthTokenExpired());
    const QString level = object["log"].toString();
    FUZZ_CHECK(client.logLevelText() == (level.isEmpty() ? "FATAL" : level));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const InstallationDirectory directory;
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    std::ofstream(GetPelorinPath() + "pelcloud.json", std::ios::binary)
            .write(bytes.data(), bytes.size());

    // Both live on, as a client does from run to run; what they hold is to be replaced or to stay.
    static Client client;
    static Client again;
    const QString heldLevel = client.logLevelText();
    GoogleToken held(QJsonObject{ { "home", "h" } });
    held.setAccessToken("a");
    client.auth().setToken(held);
    const QJsonObject object = QJsonDocument::fromJson(bytes).object();
    FUZZ_CHECK(client.readConfig() == object);
    FUZZ_CHECK(client.readConfigFromFile() == (object.isEmpty() ? 2 : 0));
    if (object.isEmpty()) {
        const GoogleToken &token = client.auth().getToken();
        FUZZ_CHECK(token.toJson() == held.toJson() && token.getAccessToken() == "a");
        FUZZ_CHECK(client.logLevelText() == heldLevel);
        return 0;
    }
    checkTaken(client, object);

    // Qt's reader drops a byte order mark with which a text begins, unless the text has an escape.
    if (std::ranges::any_of(object, [](const QJsonValue value) {
            return value.toString().startsWith(QChar(QChar::ByteOrderMark));
        }))
        return 0;

    // Rewritten it holds the same and nothing else, and stays like that.
    FUZZ_CHECK(client.writeConfigToFile() == 0);
    QJsonObject written = client.auth().getToken().toJson();
    written["interval"] = saturated(sixDigits(client.auth().getToken().getInterval()));
    written["log"] = client.logLevelText();
    FUZZ_CHECK(written.size() == std::ssize(TEXTS) + 2 && again.readConfig() == written);
    FUZZ_CHECK(again.readConfigFromFile() == 0);
    checkTaken(again, written);
    FUZZ_CHECK(again.writeConfigToFile() == 0 && client.readConfig() == written);
    return 0;
}
