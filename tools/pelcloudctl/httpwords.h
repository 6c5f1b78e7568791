#ifndef PELCLOUD_TOOLS_PELCLOUDCTL_HTTPWORDS_H
#define PELCLOUD_TOOLS_PELCLOUDCTL_HTTPWORDS_H

#include <string>

/** The status with its meaning: "404 (unknown address or computer)". */
[[nodiscard]] std::string statusWords(long status);

[[nodiscard]] inline bool isSuccess(long status)
{
    return status >= 200 && status < 300;
}

/** Whether the same request may succeed later. */
[[nodiscard]] inline bool isTransient(long status)
{
    constexpr long TOO_MANY_REQUESTS = 429;
    return status == TOO_MANY_REQUESTS || status >= 500;
}

/** The address without the name and password that it may hold. */
[[nodiscard]] std::string withoutPassword(const std::string &url);

#endif
