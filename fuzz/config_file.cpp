// Any bytes as pelcloud.json: read by a client, rewritten by it, and read again by another.

#include "fuzz/check.h"
#include "plugin/pelcloud.h"
#include "support/config.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
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

/** The installation directory, for as long as the fuzzer runs. */
class Directory
{
public:
    Directory()
        : m_path((std::filesystem::temp_directory_path() / "pelcloud-fuzz-XXXXXX").string())
    {
        FUZZ_CHECK(mkdtemp(m_path.data()) != nullptr);
    }
    ~Directory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    Directory(const Directory &) = delete;
    Directory &operator=(const Directory &) = delete;
    [[nodiscard]] const std::string &path() const { return m_path; }

private:
    std::string m_path;
};

const std::string &directory()
{
    static const Directory made;
    return made.path();
}

std::string file()
{
    return directory() + "/pelcloud.json";
}

std::string contents()
{
    std::ifstream in(file(), std::ios::binary);
    return { std::istreambuf_iterator<char>(in), {} };
}

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

/** A number as JSON text has it, which is with six digits. */
int rounded(int number)
{
    char text[32] = {};
    std::snprintf(text, sizeof text, "%.6g", static_cast<double>(number));
    return saturated(std::strtod(text, nullptr));
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

void checkSame(Client &again, Client &client)
{
    const GoogleToken &token = again.auth().getToken();
    const GoogleToken &written = client.auth().getToken();
    for (const auto &row : TEXTS)
        FUZZ_CHECK((token.*row.get)() == (written.*row.get)());
    FUZZ_CHECK(token.getInterval() == rounded(written.getInterval()));
    FUZZ_CHECK(again.logLevelText() == client.logLevelText());
}

} // namespace

// The linker takes this one for the library's, which would name the directory of the program.
std::string GetPelorinPath()
{
    return directory() + '/';
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    std::ofstream(file(), std::ios::binary).write(bytes.data(), bytes.size());

    // Both live on, as a client does from run to run; what they hold is to be replaced or to stay.
    static Client client;
    static Client again;
    const QString heldLevel = client.logLevelText();
    GoogleToken held;
    held.setAccessToken("a");
    held.setHomeURI("h");
    held.setExpiresIn(60);
    client.auth().setToken(held);
    const QJsonObject object = QJsonDocument::fromJson(bytes).object();
    FUZZ_CHECK(client.readConfig() == object);
    FUZZ_CHECK(client.readConfigFromFile() == (object.isEmpty() ? 2 : 0));
    if (object.isEmpty()) {
        const GoogleToken &token = client.auth().getToken();
        FUZZ_CHECK(token.toJson() == held.toJson() && token.getAccessToken() == "a");
        FUZZ_CHECK(token.getExpiresAt() == held.getExpiresAt());
        FUZZ_CHECK(client.logLevelText() == heldLevel);
        return 0;
    }
    checkTaken(client, object);

    FUZZ_CHECK(client.writeConfigToFile() == 0);
    const std::string first = contents();
    FUZZ_CHECK(again.readConfig().size() == static_cast<qsizetype>(std::size(TEXTS)) + 2);
    FUZZ_CHECK(again.readConfigFromFile() == 0);
    checkSame(again, client);
    FUZZ_CHECK(again.writeConfigToFile() == 0);
    FUZZ_CHECK(contents() == first);
    return 0;
}
