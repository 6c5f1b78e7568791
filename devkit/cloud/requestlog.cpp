#include "devkit/cloud/requestlog.h"

#include <strings.h>

#include <QJsonObject>

namespace localcloud {

namespace {

constexpr std::size_t MAX_REQUESTS = 2000;
constexpr std::size_t MAX_BYTES = std::size_t{ 32 } << 20U;

bool isCredential(const std::string &header)
{
    for (const char *const name : { "Authorization", "Proxy-Authorization", "Cookie" }) {
        if (strcasecmp(header.c_str(), name) == 0)
            return true;
    }
    return false;
}

} // namespace

void RequestLog::add(const Request &request, int status, double now)
{
    m_entries.push_back({ ++m_sequence, now, request, status });
    m_bytes += request.body.size();
    while (m_entries.size() > MAX_REQUESTS || m_bytes > MAX_BYTES) {
        m_bytes -= m_entries.front().request.body.size();
        m_entries.pop_front();
    }
}

std::uint64_t RequestLog::sequence() const
{
    return m_sequence;
}

QJsonArray RequestLog::requestsAfter(std::uint64_t since) const
{
    QJsonArray list;
    for (const Entry &entry : m_entries) {
        if (entry.number <= since)
            continue;
        QJsonArray names;
        QJsonObject values;
        for (const auto &[name, value] : entry.request.headers) {
            names.append(QString::fromUtf8(name));
            if (!isCredential(name))
                values[QString::fromUtf8(name)] = QString::fromUtf8(value);
        }
        const QByteArray body = QByteArray::fromStdString(entry.request.body);
        list.append(QJsonObject{
                { QStringLiteral("number"), static_cast<qint64>(entry.number) },
                { QStringLiteral("time"), entry.time },
                { QStringLiteral("method"), QString::fromUtf8(entry.request.method) },
                { QStringLiteral("path"), QString::fromUtf8(entry.request.target) },
                { QStringLiteral("headers"), names },
                { QStringLiteral("values"), values },
                { QStringLiteral("body"), QString::fromUtf8(body) },
                { QStringLiteral("base64"), QString::fromLatin1(body.toBase64()) },
                { QStringLiteral("status"), entry.status },
        });
    }
    return list;
}

} // namespace localcloud
