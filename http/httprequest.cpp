#include "http/httprequest.h"

#include <QUrl>

HttpRequest::HttpRequest(const QUrl &url)
    : m_url(url.toString())
{}

HttpRequest::~HttpRequest() = default;

QString HttpRequest::url() const
{
    return m_url;
}

QList<QByteArray> HttpRequest::rawHeaderList() const
{
    return m_rawHeaders.keys();
}

QByteArray HttpRequest::rawHeader(const QByteArray &name) const
{
    return m_rawHeaders.value(name);
}

void HttpRequest::setUrl(const QUrl &url)
{
    m_url = url.toString();
}

void HttpRequest::setRawHeader(const QByteArray &name, const QByteArray &value)
{
    m_rawHeaders.insert(name, value);
}
