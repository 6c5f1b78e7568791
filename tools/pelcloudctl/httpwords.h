#ifndef PELCLOUD_TOOLS_PELCLOUDCTL_HTTPWORDS_H
#define PELCLOUD_TOOLS_PELCLOUDCTL_HTTPWORDS_H

#include <string>

/** "404 (this address or computer is not known there)". */
[[nodiscard]] std::string statusWords(long status);

/** Whether the status says that a request was taken. */
[[nodiscard]] inline bool isSuccess(long status)
{
    return status >= 200 && status < 300;
}

/** The address without the name and password that it may hold. */
[[nodiscard]] std::string withoutPassword(const std::string &url);

#endif
