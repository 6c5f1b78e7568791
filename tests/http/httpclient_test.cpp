#include "http/httpclient.h"

#include "http/httprequest.h"
#include "tests/golden.h"
#include "tests/support/loopbackserver.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <thread>
#include <utility>

struct HttpClientProbe
{
    static auto &timeout(HttpClient &client) { return client.m_timeout; }
    static auto &reallocate() { return HttpClient::s_reallocate; }
};

namespace {

const std::string METHODS[] = { "GET", "POST", "PUT" };

std::string send(HttpClient &client, const std::string &method, const HttpRequest &request,
                 const std::string &data = "data")
{
    const auto bytes = QByteArray::fromStdString(data);
    const std::unique_ptr<QByteArray> answer(method == "GET"    ? client.get(request)
                                             : method == "POST" ? client.post(request, bytes)
                                                                : client.put(request, bytes));
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
    const auto headOf = [&](const std::string &method, const std::string &number,
                            const std::string &headers) {
        return method + " /" + number + " HTTP/1.1\r\nHost: " + server.host()
               + "\r\nUser-Agent: pelcloud/6.3\r\n" + headers + "\r\n";
    };
    for (int i = 0; i < 1000; ++i) {
        const std::string &method = METHODS[random() % 3], number = std::to_string(i);
        const std::string body(random() % 3 * 9000, char(random() % 3));
        HttpRequest request(server.url(QString("/%1").arg(i)));
        std::string headers = "Accept: */*\r\n";
        if (method == "POST" || random() % 2 == 0) {
            headers = number + ": 2\r\nAccept: a \r\nContent-Type: c\r\n";
            request.setRawHeader("Content-Type", "c");
            request.setRawHeader(number.c_str(), "1");
            request.setRawHeader("Accept", "a ");
            request.setRawHeader(number.c_str(), "2");
        }
        if (method != "GET")
            headers += "Content-Length: " + std::to_string(body.size()) + "\r\n";
        EXPECT_EQ(send(client, method, request, body), method == "GET" ? "" : body);
        std::string head = server.last().head;
        const std::string asking = "Expect: 100-continue\r\n"; // or not, depending on libcurl
        if (const auto at = head.find(asking); at != std::string::npos)
            head.erase(at, asking.size());
        ASSERT_EQ(head, headOf(method, number, headers));
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
            if (row["path"].toString().toStdString() != request.path)
                continue;
            const QString then = row["then"].toString();
            const bool isSlow = then == "drip";
            LoopbackServer::send(socket, row["answer"].toString().toLatin1().toStdString());
            const int step = isSlow ? 1 : row["fill"].toInt();
            for (int left = row["fill"].toInt(); left > 0; left -= step) {
                std::this_thread::sleep_for(std::chrono::milliseconds(isSlow ? 100 : 0));
                if (!LoopbackServer::send(socket, std::string(std::size_t(step), 'x')))
                    return false;
            }
            const std::string repeated = row["repeat"].toString().repeated(500).toStdString();
            while (!repeated.empty() && LoopbackServer::send(socket, repeated)) {
            }
            const linger dropped{ then == "reset", 0 };
            ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &dropped, sizeof dropped);
            return then != "reset" && then != "close";
        }
        return echo(socket, request);
    });
    const auto check = [&](const std::string &method, const QJsonValue &row) {
        HttpClient client;
        const int patience = row["patience"].toInt(30000);
        EXPECT_EQ(std::exchange(HttpClientProbe::timeout(client), patience), 30000);
        const QUrl url = server.url(row["path"].toString(), row["scheme"].toString("http"));
        const QString address = row["url"].toString(url.toString());
        const std::string body =
                row["body"].toString("null").toLatin1().toStdString()
                + std::string(row["body"].isNull() ? 0 : std::size_t(row["fill"].toInt()), 'x');
        EXPECT_TRUE(send(client, method, QUrl(address), "") == body)
                << method << ' ' << qPrintable(address);
        HttpClientProbe::timeout(client) = 30000;
        EXPECT_EQ(send(client, "PUT", server.url("/after")), "data") << qPrintable(address);
    };
    std::vector<std::future<void>> checks;
    for (const QJsonValue row : rows) {
        for (const std::string &method : METHODS) {
            if (row["only"].toString(method.c_str()).toStdString() == method)
                checks.push_back(std::async(std::launch::async, check, method, row));
        }
    }
    check("GET", QJsonObject{ { "url", refusing.url("/").toString() } });
}

TEST(HttpClient, ARequestThatCannotBeSetUpIsNotSent)
{
    const LoopbackServer server(echo);
    HttpClient client;
    EXPECT_EQ(send(client, "POST", server.url("/sent")), "data");
    const QString tooLong(9'000'000, 'x'); // libcurl takes no more than 8 MB
    EXPECT_EQ(send(client, "PUT", server.url("/" + tooLong)), "null");
    EXPECT_EQ(server.last().path, "/sent");
    EXPECT_EQ(send(client, "GET", server.url("/again")), "");
}

TEST(HttpClient, CancelEndsASilentRequestAndAllLaterOnes)
{
    std::promise<void> arrived;
    const LoopbackServer server([&](int socket, const LoopbackServer::Request &) {
        arrived.set_value();
        char c = 0;
        return ::recv(socket, &c, 1, 0) == 1; // until the client is gone
    });
    HttpClient client;
    auto answer =
            std::async(std::launch::async, [&] { return send(client, "PUT", server.url("/")); });
    arrived.get_future().wait();
    client.cancel();
    ASSERT_EQ(answer.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(answer.get() + send(client, "GET", server.url("/")), "nullnull");
    EXPECT_EQ(server.connections(), 1);
}

TEST(HttpClient, TakesProxiesFromTheEnvironment)
{
    const LoopbackServer server(echo);
    HttpClient client;
    ::setenv("http_proxy", server.host().c_str(), 1); // NOLINT(concurrency-mt-unsafe)
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
    EXPECT_EQ(buffer.size, 9U);
    EXPECT_STREQ(buffer.bytes.get(), "abcabcdef");

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
