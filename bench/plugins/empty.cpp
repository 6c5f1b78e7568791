// A plug-in that only initialises Qt Core and libcurl: what these two take in any plug-in.

#include <cstdlib>
#include <curl/curl.h>

#include <QJsonDocument>
#include <QString>

extern "C" [[gnu::visibility("default")]] int SrvStart(void **handle)
{
    *handle = nullptr;
    // Whatever Qt sets up at its first use, and one use of each class that links the JSON code in.
    if (QJsonDocument::fromJson(QString::fromLatin1("{}").toUtf8()).isNull())
        return 0;
    if (curl_global_init(CURL_GLOBAL_ALL) != CURLE_OK)
        return 0;
    *handle = curl_easy_init(); // lives as long as the process
    return *handle == nullptr ? 0 : 1;
}

extern "C" [[gnu::visibility("default")]] int SrvStop(void **)
{
    std::exit(EXIT_SUCCESS); // NOLINT(concurrency-mt-unsafe): as the real one ends the host
}
