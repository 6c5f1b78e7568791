#ifndef PELCLOUD_DEVKIT_CLOUD_FAULTS_H
#define PELCLOUD_DEVKIT_CLOUD_FAULTS_H

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace localcloud {

/** The two kinds of requests that faults are made for. */
enum class FaultTarget { Api, Token };

enum class FaultKind {
    Status,     // an error status with a fitting body
    OAuthError, // one of the error words of the token endpoint
    Reset,      // the connection is reset
    Silence,    // the connection stays open and nothing is answered
    Slow,       // the answer comes late
    BadJson     // an answer of success whose body is no JSON
};

/** What is to be done instead of (or, when slow, before) the usual answer. */
struct Fault
{
    FaultKind kind = FaultKind::Status;
    int status = 0;     // of FaultKind::Status
    std::string word;   // of FaultKind::OAuthError
    double seconds = 0; // how long Silence and Slow take
};

/** A fault and the requests that it befalls. */
struct FaultRule
{
    enum class When { Always, Nth, Every, Share };

    std::string text; // as it was given
    FaultTarget target = FaultTarget::Api;
    Fault fault;
    When when = When::Always;
    std::uint64_t count = 1;
    double share = 1;
};

/**
 * Reads "api:500:every=3", "token:reset:nth=2", "api:silence:share=0.1" or "api:slow:seconds=2": target,
 * kind, and settings in any order. Without nth, every or share the rule befalls every request. Nothing,
 * and the reason in `error`, when the text is not of this form.
 */
[[nodiscard]] std::optional<FaultRule> parseFaultRule(std::string_view text, std::string &error);

/** The rules in force, each with its own count of requests. Not safe for concurrent use. */
class FaultPlan
{
public:
    /** Puts `rules` in force in place of the former ones and counts from the start. */
    void setRules(std::vector<FaultRule> rules);

    /** Counts a request; the fault that befalls it, of several the one whose rule stands first. */
    [[nodiscard]] std::optional<Fault> next(FaultTarget target);

    [[nodiscard]] const std::vector<FaultRule> &rules() const;

    /** How many requests the rule at `index` has seen. */
    [[nodiscard]] std::uint64_t seen(std::size_t index) const;

private:
    [[nodiscard]] bool befalls(const FaultRule &rule, std::uint64_t request);

    std::vector<FaultRule> m_rules;
    std::vector<std::uint64_t> m_seen;
    std::mt19937 m_random; // from the same start in every run, so that a run can be repeated
};

} // namespace localcloud

#endif
