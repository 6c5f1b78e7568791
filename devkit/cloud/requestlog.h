#ifndef PELCLOUD_DEVKIT_CLOUD_REQUESTLOG_H
#define PELCLOUD_DEVKIT_CLOUD_REQUESTLOG_H

#include "devkit/cloud/httpserver.h"

#include <cstdint>
#include <deque>

#include <QJsonArray>

namespace localcloud {

/**
 * The latest requests, byte for byte. Bounded in number and in bytes; new requests replace the oldest
 * ones. Requests are numbered from 1. Not safe for concurrent use.
 */
class RequestLog
{
public:
    void add(const Request &request, int status, double now);

    [[nodiscard]] std::uint64_t sequence() const;

    /**
     * The requests after number `since`: number, time, method, path, names of the headers in order,
     * values of the headers except credentials, body as text and its bytes in base64, and the status
     * of the answer (0: none was sent).
     */
    [[nodiscard]] QJsonArray requestsAfter(std::uint64_t since) const;

private:
    struct Entry
    {
        std::uint64_t number;
        double time;
        Request request;
        int status;
    };

    std::deque<Entry> m_entries;
    std::size_t m_bytes = 0;
    std::uint64_t m_sequence = 0;
};

} // namespace localcloud

#endif
