#ifndef PELCLOUD_HTTP_HTTPREQUEST_H
#define PELCLOUD_HTTP_HTTPREQUEST_H

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>

class QUrl;

/**
 * An address and the headers to send. Names are unique and case-sensitive; headers are sent in the
 * byte order of their names, whatever the order in which they were set. A plain value: copies are
 * independent. Not safe for use by two threads at once.
 */
class HttpRequest
{
public:
    /** An empty address and no headers. */
    HttpRequest() = default;
    HttpRequest(const QUrl &url);
    HttpRequest(const HttpRequest &) = default;
    HttpRequest &operator=(const HttpRequest &) = default;

    // The order of the virtual functions is part of the interface.
    virtual ~HttpRequest();
    /** The address as QUrl::toString() returns it. */
    [[nodiscard]] virtual QString url() const;
    /** The names, in the order in which the headers are sent. */
    [[nodiscard]] virtual QList<QByteArray> rawHeaderList() const;
    /** The value; empty if there is no such header. */
    [[nodiscard]] virtual QByteArray rawHeader(const QByteArray &name) const;
    virtual void setUrl(const QUrl &url);
    /** Adds a header or replaces its value. */
    virtual void setRawHeader(const QByteArray &name, const QByteArray &value);

private:
    QString m_url;
    QMap<QByteArray, QByteArray> m_rawHeaders;
};

#endif
