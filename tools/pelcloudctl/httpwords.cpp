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
        { 200, 299, "success" },
        { 300, 399, "redirect; the plug-in does not follow redirects" },
        { 400, 400, "bad request" },
        { 401, 401, "access token not accepted" },
        { 403, 403, "not allowed for this account" },
        { 404, 404, "unknown address or computer" },
        { 405, 405, "method not allowed" },
        { 407, 407, "the proxy requires a name and a password" },
        { 413, 413, "report too large" },
        { 429, 429, "too many requests" },
        { 400, 499, "request refused" },
        { 500, 599, "server error" },
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
    if (url.find("://") == std::string::npos) { // allowed for a proxy
        const std::size_t at = url.rfind('@');
        return at == std::string::npos ? url : url.substr(at + 1);
    }
    return QUrl(QString::fromStdString(url)).toString(QUrl::RemoveUserInfo).toStdString();
}
