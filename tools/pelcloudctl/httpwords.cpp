#include "tools/pelcloudctl/httpwords.h"

#include <QString>
#include <QUrl>

std::string statusWords(long status)
{
    constexpr struct
    {
        long first, last;
        const char *words;
    } ROWS[] = {
        { 200, 299, "all is well" },
        { 300, 399, "it lives at another address, to which the plug-in does not follow" },
        { 400, 400, "the request is not understood" },
        { 401, 401, "the access token is not accepted" },
        { 403, 403, "this account may not do that" },
        { 404, 404, "this address or computer is not known there" },
        { 405, 405, "there is something at this address, which only takes reports" },
        { 407, 407, "the proxy wants a name and a password" },
        { 413, 413, "the report is too long" },
        { 429, 429, "too many requests" },
        { 400, 499, "the request is refused" },
        { 500, 599, "the server has trouble of its own" },
    };
    std::string number = std::to_string(status);
    for (const auto &row : ROWS) {
        if (status >= row.first && status <= row.last)
            return number + " (" + row.words + ")";
    }
    return number;
}

std::string withoutPassword(const std::string &url)
{
    if (url.find("://") == std::string::npos) { // as proxies may be named
        const std::size_t at = url.rfind('@');
        return at == std::string::npos ? url : url.substr(at + 1);
    }
    return QUrl(QString::fromStdString(url)).toString(QUrl::RemoveUserInfo).toStdString();
}
