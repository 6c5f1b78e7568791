#ifndef PELCLOUD_DEVKIT_CLOUD_CLOUD_H
#define PELCLOUD_DEVKIT_CLOUD_CLOUD_H

#include "devkit/cloud/faults.h"
#include "devkit/cloud/httpserver.h"
#include "devkit/cloud/oauth.h"
#include "devkit/cloud/reports.h"
#include "devkit/cloud/requestlog.h"

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace localcloud {

/**
 * The endpoints of the local cloud. It owns the reports, authorizations, faults and the request log.
 * The endpoints may be called by any thread.
 */
class Cloud
{
public:
    /** Called with a line for each accepted report, one at a time. */
    using Announce = std::function<void(const std::string &line)>;

    Cloud(const ReportLimits &limits, const OAuthSettings &oauth, Announce announce);

    [[nodiscard]] std::string seed(const QJsonObject &seed);
    void setVerificationUrl(const std::string &url);
    void setFaults(std::vector<FaultRule> rules);

    /** Adds the reporting API, the page, and the endpoints for the page and tests. */
    void serveApi(HttpServer &server);

    /** Adds the token endpoint, device authorization and the approval page. */
    void serveOAuth(HttpServer &server);

    /** Adds a CONNECT to the request log. */
    void noteConnect(const std::string &target);

private:
    void serveApproval(HttpServer &server);
    void observe(const Request &request, int status);

    [[nodiscard]] Answer takeReport(const Request &request, const std::string &device);
    [[nodiscard]] Answer token(const Request &request);
    [[nodiscard]] Answer decide(const Request &request);
    [[nodiscard]] Answer state(const Request &request);
    [[nodiscard]] Answer reports(const Request &request);
    [[nodiscard]] Answer requests(const Request &request);
    [[nodiscard]] Answer body(const Request &request);
    [[nodiscard]] Answer history(const Request &request);
    [[nodiscard]] Answer faults();
    [[nodiscard]] Answer changeFaults(const Request &request);

    std::mutex m_mutex; // guards the members below
    ReportLimits m_limits;
    Reports m_reports;
    OAuthServer m_oauth;
    FaultPlan m_faults;
    RequestLog m_requests;
    Announce m_announce;
};

} // namespace localcloud

#endif
