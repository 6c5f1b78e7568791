#ifndef PELCLOUD_TOOLS_PELCLOUDCTL_PROBE_H
#define PELCLOUD_TOOLS_PELCLOUDCTL_PROBE_H

#include <ctime>
#include <optional>
#include <string>

/** A server's answer, with more details than HttpClient gives. */
struct Answer
{
    long status = 0;     // 0: no answer
    std::string failure; // why there is no answer
    bool isTls = false;
    bool isTrusted = false;         // the certificate was verified
    std::string certificateFailure; // why not
    std::string expiry;             // of a trusted certificate, as text
    std::optional<std::time_t> date;
};

/**
 * Sends a GET, with the access token if there is one. When the certificate is not trusted, asks
 * again without verifying it, and in a build that verifies also without the token.
 */
[[nodiscard]] Answer probe(const std::string &url, const std::string &accessToken);

#endif
