#ifndef PELCLOUD_DEVKIT_CLOUD_FAULTS_H
#define PELCLOUD_DEVKIT_CLOUD_FAULTS_H

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace localcloud {

/** The requests that can have faults. */
enum class FaultTarget { Api, Token };

enum class FaultKind {
    Status,     // an error status with a matching body
    OAuthError, // an error word of the token endpoint
    Reset,      // the connection is reset
    Silence,    // no answer; the connection stays open
    Hang,       // as Silence, but only for requests on a kept connection
    Slow,       // the answer is late
    BadJson     // status 200 with a body that is not JSON
};

/** What replaces the usual answer or, if Slow, precedes it. */
struct Fault
{
    FaultKind kind = FaultKind::Status;
    int status = 0;     // of FaultKind::Status
    std::string word;   // of FaultKind::OAuthError
    double seconds = 0; // of Silence, Hang and Slow
};

/** A fault and the requests that have it. */
struct FaultRule
{
    enum class When { Always, Nth, Every, Share };

    std::string text; // as given
    FaultTarget target = FaultTarget::Api;
    Fault fault;
    When when = When::Always;
    std::uint64_t count = 1;
    double share = 1;
};

/**
 * Reads "api:500:every=3", "token:reset:nth=2", "api:silence:share=0.1" or "api:slow:seconds=2": target,
 * kind, and settings in any order. Without nth, every or share the rule is for every request. If the text
 * is not of this form, returns nothing and sets `error`.
 */
[[nodiscard]] std::optional<FaultRule> parseFaultRule(std::string_view text, std::string &error);

/** The active rules, each with its own count of requests. Not safe for concurrent use. */
class FaultPlan
{
public:
    /** Replaces the rules; all counts start again. */
    void setRules(std::vector<FaultRule> rules);

    /** Counts a request; its fault, of several that of the first rule. */
    [[nodiscard]] std::optional<Fault> next(FaultTarget target, bool isOnKeptConnection = false);

    [[nodiscard]] const std::vector<FaultRule> &rules() const;

    /** The count of requests of the rule at `index`. */
    [[nodiscard]] std::uint64_t seen(std::size_t index) const;

private:
    [[nodiscard]] bool befalls(const FaultRule &rule, std::uint64_t request);

    std::vector<FaultRule> m_rules;
    std::vector<std::uint64_t> m_seen;
    std::mt19937 m_random; // same seed in every run: runs are repeatable
};

} // namespace localcloud

#endif
