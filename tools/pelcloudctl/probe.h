#ifndef PELCLOUD_TOOLS_PELCLOUDCTL_PROBE_H
#define PELCLOUD_TOOLS_PELCLOUDCTL_PROBE_H

#include <ctime>
#include <optional>
#include <string>

/** What a server shows of itself, beyond what the plug-in's client looks at. */
struct Answer
{
    long status = 0;     // 0: no answer, because of `failure`
    std::string failure; // for a person
    bool isTls = false;
    bool isTrusted = false;         // an authority that this system knows vouches for the server
    std::string certificateFailure; // why not, for a person
    std::string expiry;             // of a trusted certificate, as it says
    std::optional<std::time_t> date;
};

/**
 * Sends a GET, with the access token unless that is empty. A server whose certificate is not to be
 * trusted is asked again without looking at that, as the plug-in asks it; without the token in a
 * build that verifies.
 */
[[nodiscard]] Answer probe(const std::string &url, const std::string &accessToken);

#endif
