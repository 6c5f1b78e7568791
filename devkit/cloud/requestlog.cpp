#include "devkit/cloud/requestlog.h"

#include <strings.h>

#include <QJsonObject>

namespace localcloud {

namespace {

using namespace Qt::StringLiterals;

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
                { u"number"_s, static_cast<qint64>(entry.number) },
                { u"time"_s, entry.time },
                { u"method"_s, QString::fromUtf8(entry.request.method) },
                { u"path"_s, QString::fromUtf8(entry.request.target) },
                { u"headers"_s, names },
                { u"values"_s, values },
                { u"body"_s, QString::fromUtf8(body) },
                { u"base64"_s, QString::fromLatin1(body.toBase64()) },
                { u"status"_s, entry.status },
        });
    }
    return list;
}

} // namespace localcloud
