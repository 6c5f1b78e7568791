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
    for (int i = 0; i < 1000; ++i) {
        const std::string &method = METHODS[random() % 3], number = std::to_string(i);
        const std::string body(random() % 3 * (i % 100 == 0 ? 1'100'000U : 9000U), '\0');
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
        EXPECT_TRUE(send(client, method, request, body) == (method == "GET" ? "" : body));
        ASSERT_EQ(server.last().head, method + " /" + number + " HTTP/1.1\r\nHost: " + server.host()
                                              + "\r\nUser-Agent: pelcloud/6.3\r\n" + headers
                                              + "\r\n");
    }
    EXPECT_EQ(client.del(HttpRequest(server.url("/del"))), nullptr);
    EXPECT_EQ(server.last().path, "/999");
    EXPECT_EQ(server.connections(), 1);
}

/** Every answer to every method, in parallel; then each client gets an ordinary one. */
TEST(HttpClient, Answers)
{
    const QJsonArray rows = goldenRows("http_answers.json");
    const LoopbackServer refusing, server([&](int socket, const LoopbackServer::Request &request) {
        for (const QJsonValue row : rows) {
            if (row["path"].toString().toStdString() != request.path
                || (row["kept"].toBool() && request.number == 1))
                continue;
            const QString then = row["then"].toString();
            LoopbackServer::send(socket, row["answer"].toString().toLatin1().toStdString());
            const int most = then == "drip" ? 1 : 1 << 20;
            for (int left = row["fill"].toInt(); left > 0; left -= most) {
                std::this_thread::sleep_for(std::chrono::milliseconds(then == "drip" ? 100 : 0));
                if (!LoopbackServer::send(socket,
                                          std::string(std::size_t(std::min(left, most)), 'x')))
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
        const QUrl url = server.url(row["path"].toString(), row["scheme"].toString("http"));
        const QString address = row["url"].toString(url.toString());
        const bool isKept = row["kept"].toBool(); // the answer comes on a connection in use
        const std::string data(isKept ? 200'000 : 0, 'd');
        EXPECT_TRUE(!isKept || send(client, "PUT", url) == "data");
        const int timeout = row["timeout"].toInt(30000);
        EXPECT_EQ(std::exchange(HttpClientProbe::timeout(client), timeout), 30000);
        const std::string body = row["echo"].toBool()
                                         ? (method == "GET" ? "" : data)
                                         : row["body"].toString("null").toLatin1().toStdString();
        const std::string fill(row["body"].isNull() ? 0 : std::size_t(row["fill"].toInt()), 'x');
        for (int i = 0; i < (row["echo"].toBool() ? 7 : 1); ++i)
            EXPECT_TRUE(send(client, method, QUrl(address), data) == body + fill)
                    << method << ' ' << qPrintable(address) << client.lastError();
        EXPECT_EQ(*client.lastError() == '\0', body != "null") << client.lastError();
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

TEST(HttpClient, SendsNothingOfABadRequest)
{
    const LoopbackServer server(echo);
    HttpClient client;
    EXPECT_EQ(send(client, "POST", server.url("/sent")), "data");
    const std::pair<QByteArray, QByteArray> headers[] = {
        { "A\nB", "b" },      { "A\r", "b" },      { "A", "s3cr3t\r\nB: b" },
        { "A", "s3cr3t\nb" }, { "A", "s3cr3t\r" }, { "A", QByteArray("s3cr3t\0b", 8) },
    };
    for (const auto &[name, value] : headers) {
        HttpRequest request(server.url("/bad"));
        request.setRawHeader(name, value);
        EXPECT_EQ(send(client, "PUT", request), "null") << name.constData();
        EXPECT_STREQ(client.lastError(), "Header with a line break or NUL");
    }
    const QString tooLong(9'000'000, 'x'); // for libcurl, which takes 8 MB
    EXPECT_EQ(send(client, "PUT", server.url("/" + tooLong)), "null");
    EXPECT_EQ(server.last().path, "/sent");
    EXPECT_EQ(send(client, "GET", server.url("/again")), "");
    EXPECT_EQ(server.connections(), 2);
}

TEST(HttpClient, CancelEndsASilentRequestAndAllLaterOnes)
{
    std::promise<void> arrived;
    const LoopbackServer server([&](int socket, const LoopbackServer::Request &request) {
        if (request.path == "/after")
            return echo(socket, request);
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
    EXPECT_EQ(answer.get() + send(client, "PUT", server.url("/after")), "nullnull");
    client.resume();
    EXPECT_EQ(send(client, "PUT", server.url("/after")), "data");
}

TEST(HttpClient, TakesProxiesFromTheEnvironment)
{
    const LoopbackServer server([](int socket, const LoopbackServer::Request &request) {
        return request.head.starts_with("PUT ") ? echo(socket, request)
                                                : LoopbackServer::reply(socket, "", "407 Who?");
    });
    HttpClient client;
    for (const char *name : { "http_proxy", "https_proxy" })
        ::setenv(name, server.host().c_str(), 1); // NOLINT(concurrency-mt-unsafe)
    EXPECT_EQ(send(client, "PUT", QUrl("http://elsewhere.invalid/a")), "data");
    EXPECT_EQ(server.last().path, "http://elsewhere.invalid/a");
    EXPECT_EQ(send(client, "PUT", QUrl("https://elsewhere.invalid/a")), "null");
    EXPECT_NE(std::string(client.lastError()).find("response 407"), std::string::npos);
}

} // namespace
