#include "http/httpclient.h"

#include "devkit/loopbackserver.h"
#include "http/httprequest.h"
#include "tests/golden.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <thread>

struct HttpClientProbe
{
    static auto &timeout(HttpClient &client) { return client.m_timeout; }
    static auto &reallocate() { return HttpClient::s_reallocate; }
};

namespace {

const QByteArrayList METHODS{ "GET", "POST", "PUT" };

std::string send(HttpClient &client, const QByteArray &method, const HttpRequest &request,
                 const QByteArray &data = "data")
{
    const std::unique_ptr<QByteArray> answer(method == "GET"    ? client.get(request)
                                             : method == "POST" ? client.post(request, data)
                                                                : client.put(request, data));
    return answer ? answer->toStdString() : "null";
}

bool echo(int socket, const LoopbackServer::Request &request)
{
    return LoopbackServer::reply(socket, request.body);
}

TEST(HttpClient, KeepsTheConnectionAndNothingElse)
{
    const LoopbackServer server(echo);
    HttpClient client;
    std::mt19937 random(4);
    for (int i = 0; i < 1000; ++i) {
        const QByteArray number = QByteArray::number(i), method = METHODS[random() % 3];
        const QByteArray body = QByteArray("a\0b", 3).repeated(random() % 3 * 9000);
        HttpRequest request(server.url("/" + number));
        QByteArray head = method + " /" + number + " HTTP/1.1\r\nHost: " + server.host()
                          + "\r\nUser-Agent: pelcloud/6.3\r\nAccept: ";
        if (method != "POST" && random() % 2 == 0) {
            head += "*/*\r\n";
        } else {
            for (const QByteArray &name :
                 { QByteArray("Content-Type"), number, QByteArray("Accept"), number })
                request.setRawHeader(name, request.rawHeader(name) + "v ");
            head.insert(head.indexOf("Accept"), number + ": v v \r\n");
            head += "v \r\nContent-Type: v \r\n";
        }
        if (method != "GET")
            head += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
        EXPECT_EQ(send(client, method, request, body), method == "GET" ? "" : body.toStdString());
        // Whether libcurl asks first is up to its version.
        ASSERT_EQ(server.last().head.replace("Expect: 100-continue\r\n", "").toStdString(),
                  head.toStdString() + "\r\n");
    }
    EXPECT_EQ(client.del(HttpRequest(server.url("/del"))), nullptr);
    EXPECT_EQ(server.last().path, "/999");
    EXPECT_EQ(server.connections(), 1);
}

/** Every answer to every method, all at once; then each client gets an ordinary one. */
TEST(HttpClient, Answers)
{
    const QJsonArray rows = goldenRows("http_answers.json");
    const LoopbackServer refusing, server([&](int socket, const LoopbackServer::Request &request) {
        for (const QJsonValue row : rows) {
            if (row["path"].toString() != request.path)
                continue;
            const QString then = row["then"].toString();
            const bool isSlow = then == "drip";
            LoopbackServer::send(socket, row["answer"].toString().toLatin1());
            for (int left = row["fill"].toInt(), step = isSlow ? 1 : left; left > 0; left -= step) {
                std::this_thread::sleep_for(std::chrono::milliseconds(isSlow ? 100 : 0));
                LoopbackServer::send(socket, QByteArray(step, 'x'));
            }
            const linger dropped{ then == "reset", 0 };
            ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &dropped, sizeof dropped);
            return then != "reset" && then != "close";
        }
        return echo(socket, request);
    });
    const auto check = [&](const QByteArray &method, const QJsonValue &row) {
        HttpClient client;
        HttpClientProbe::timeout(client) = 1000;
        const QUrl url = server.url(row["path"].toString(), row["scheme"].toString("http"));
        const QString address = row["url"].toString(url.toString());
        const QByteArray body = row["body"].toString("null").toLatin1();
        EXPECT_TRUE(send(client, method, QUrl(address), "")
                    == (body + QByteArray(row["fill"].toInt(), 'x')).toStdString())
                << method.data() << qPrintable(address);
        EXPECT_EQ(send(client, "PUT", server.url("/after")), "data") << qPrintable(address);
    };
    std::vector<std::future<void>> checks;
    for (const QJsonValue row : rows) {
        for (const QByteArray &method : METHODS)
            checks.push_back(std::async(std::launch::async, check, method, row));
    }
    check("GET", QJsonObject{ { "url", refusing.url("/").toString() } });
}

TEST(HttpClient, TakesProxiesFromTheEnvironment)
{
    const LoopbackServer server(echo);
    HttpClient client;
    ::setenv("http_proxy", server.host(), 1); // NOLINT(concurrency-mt-unsafe)
    EXPECT_EQ(send(client, "PUT", QUrl("http://elsewhere.invalid/a")), "data");
    EXPECT_EQ(server.last().path, "http://elsewhere.invalid/a");
}

TEST(HttpClient, ReaderAndWriter)
{
    HttpClient::ResponseBuffer buffer;
    char chunk[] = "abcdef";
    EXPECT_EQ(HttpClient::writer(chunk, 1, 3, &buffer), 3U);
    EXPECT_EQ(HttpClient::writer(chunk, 2, 3, &buffer), 6U);
    EXPECT_EQ(HttpClient::writer(chunk, SIZE_MAX / 2, 2, &buffer), 0U);
    EXPECT_EQ(HttpClient::writer(chunk, SIZE_MAX / 2, 3, &buffer), 0U);

    const LoopbackServer server(echo);
    HttpClient client;
    HttpClientProbe::reallocate() = [](void *, std::size_t) -> void * { return nullptr; };
    EXPECT_EQ(HttpClient::writer(chunk, 1, 3, &buffer), 0U);
    EXPECT_EQ(send(client, "PUT", server.url("/")), "null");
    HttpClientProbe::reallocate() = std::realloc;
    EXPECT_EQ(send(client, "PUT", server.url("/")), "data");
    EXPECT_EQ(std::string(buffer.bytes.get(), buffer.size + 1), std::string("abcabcdef", 10));

    HttpClient::UploadSource source{ "abcdef", 5 };
    const std::pair<std::size_t, std::string> reads[] = { { 4, "abcd" },
                                                          { 1, "ebcd" },
                                                          { 0, "ebcd" } };
    for (const auto &[count, held] : reads) {
        EXPECT_EQ(HttpClient::reader(chunk, 2, 2, &source), count);
        EXPECT_EQ(std::string(chunk, 4), held);
    }
}

} // namespace
