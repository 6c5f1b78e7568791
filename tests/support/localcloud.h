#ifndef PELCLOUD_TESTS_SUPPORT_LOCALCLOUD_H
#define PELCLOUD_TESTS_SUPPORT_LOCALCLOUD_H

#include "tests/support/process.h"
#include "tests/support/tempdir.h"

#include <curl/curl.h>

#include <cstdint>
#include <map>

#include <QJsonDocument>
#include <QJsonObject>

/** What a server answered. */
struct Reply
{
    CURLcode code;
    long status = 0;
    std::string body{};
    [[nodiscard]] QJsonObject json() const
    {
        return QJsonDocument::fromJson(QByteArray::fromStdString(body)).object();
    }
};

/** A request over a connection of its own; a null body makes it a GET. */
inline Reply ask(const std::string &url, const char *method = "GET", const char *body = nullptr,
                 const char *header = nullptr, const std::string &proxy = "",
                 long milliseconds = 20000)
{
    const std::unique_ptr<CURL, void (*)(CURL *)> curl(curl_easy_init(), curl_easy_cleanup);
    const std::unique_ptr<curl_slist, void (*)(curl_slist *)> headers(
            header ? curl_slist_append(nullptr, header) : nullptr, curl_slist_free_all);
    Reply reply{ CURLE_OK };
    const auto append = +[](char *bytes, std::size_t, std::size_t size, void *text) {
        static_cast<std::string *>(text)->append(bytes, size);
        return size;
    };
    curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_PROXY, proxy.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(curl.get(), CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT_MS, milliseconds);
    curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
    if (body)
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, body);
    curl_easy_setopt(curl.get(), CURLOPT_CUSTOMREQUEST, method);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, append);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &reply.body);
    reply.code = curl_easy_perform(curl.get());
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &reply.status);
    return reply;
}

/** A seed with one client, which may sign in with a device code, once approved, or a refresh token. */
inline constexpr const char *SEED_OF_ONE_CLIENT = R"({
    "clients": [{ "client_id": "c1", "client_secret": "s3cr3t" }],
    "device_codes": [{ "device_code": "s3cr3t-d", "client_id": "c1" }],
    "refresh_tokens": [{ "refresh_token": "s3cr3t-r", "client_id": "c1" }]})";

/** What pelcloud.json holds for a computer that reports to this address with the seed above. */
inline QJsonObject configOfOneClient(const std::string &address)
{
    return { { "home", QString::fromStdString(address) },
             { "cpid", "pc1" },
             { "cid", "c1" },
             { "csec", "s3cr3t" },
             { "rtk", "s3cr3t-r" },
             { "log", "info" } };
}

/** The local cloud as a child, on ports that the kernel chose. */
class LocalCloud
{
public:
    explicit LocalCloud(const std::string &seed = SEED_OF_ONE_CLIENT,
                        std::vector<std::string> options = {})
        : m_process(command(written(m_directory.path + "seed.json", seed), std::move(options)))
    {
        for (std::string line = m_process.readLine(); !line.empty(); line = m_process.readLine()) {
            const std::size_t blank = line.find(' ');
            m_addresses[line.substr(0, blank)] = line.substr(blank + 1);
            if (line.starts_with("page "))
                break;
        }
    }

    /** Ends the program as Ctrl-C does; its exit status. */
    int end(int signal = SIGINT)
    {
        m_process.signal(signal);
        return m_process.wait();
    }
    /** The next of the lines that tell of reports. */
    std::string readLine() { return m_process.readLine(); }

    /** One of "api", "oauth", "proxy" and "page"; empty when the program did not start. */
    const std::string &address(const char *name) { return m_addresses[name]; }
    std::uint16_t port(const char *name)
    {
        const std::string &url = address(name);
        return static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1)));
    }

private:
    static std::vector<std::string> command(const std::string &seed,
                                            std::vector<std::string> options)
    {
        options.insert(options.begin(), { LOCALCLOUD_PROGRAM, "--seed", seed });
        return options;
    }

    TempDir m_directory;
    Process m_process;
    std::map<std::string, std::string> m_addresses;
};

#endif
