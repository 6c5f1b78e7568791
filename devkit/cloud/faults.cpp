#include "devkit/cloud/faults.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace localcloud {

namespace {

constexpr double SLOW_SECONDS = 3;
constexpr double SILENT_SECONDS = 60;
constexpr double HANG_SECONDS = 86400; // longer than any client waits
constexpr double MAX_SECONDS = 600;

struct KindName
{
    std::string_view name;
    FaultKind kind;
    int status;
};

constexpr std::array KINDS{
    KindName{ "401", FaultKind::Status, 401 },
    KindName{ "429", FaultKind::Status, 429 },
    KindName{ "500", FaultKind::Status, 500 },
    KindName{ "reset", FaultKind::Reset, 0 },
    KindName{ "silence", FaultKind::Silence, 0 },
    KindName{ "hang", FaultKind::Hang, 0 },
    KindName{ "slow", FaultKind::Slow, 0 },
    KindName{ "bad-json", FaultKind::BadJson, 0 },
    KindName{ "authorization_pending", FaultKind::OAuthError, 400 },
    KindName{ "slow_down", FaultKind::OAuthError, 400 },
    KindName{ "expired_token", FaultKind::OAuthError, 400 },
    KindName{ "access_denied", FaultKind::OAuthError, 400 },
    KindName{ "invalid_client", FaultKind::OAuthError, 401 },
    KindName{ "invalid_grant", FaultKind::OAuthError, 400 },
};

/** Removes the text up to the next colon from `text` and returns it. */
std::string_view cutField(std::string_view &text)
{
    const std::size_t end = std::min(text.find(':'), text.size());
    const std::string_view field = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return field;
}

template <class Number>
bool readNumber(std::string_view text, Number &number)
{
    const char *const end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && last == end;
}

bool readTarget(std::string_view name, FaultRule &rule)
{
    rule.target = name == "token" ? FaultTarget::Token : FaultTarget::Api;
    return name == "token" || name == "api";
}

bool readKind(std::string_view name, FaultRule &rule)
{
    const auto found = std::find_if(KINDS.begin(), KINDS.end(),
                                    [name](const KindName &row) { return row.name == name; });
    if (found == KINDS.end())
        return false;
    if (found->kind == FaultKind::OAuthError && rule.target != FaultTarget::Token)
        return false;
    rule.fault.kind = found->kind;
    rule.fault.status = found->status;
    if (found->kind == FaultKind::OAuthError)
        rule.fault.word = found->name;
    if (found->kind == FaultKind::Slow)
        rule.fault.seconds = SLOW_SECONDS;
    if (found->kind == FaultKind::Silence)
        rule.fault.seconds = SILENT_SECONDS;
    if (found->kind == FaultKind::Hang)
        rule.fault.seconds = HANG_SECONDS;
    return true;
}

bool readWhen(FaultRule::When when, std::string_view value, FaultRule &rule)
{
    if (rule.when != FaultRule::When::Always)
        return false; // at most one of nth, every and share
    rule.when = when;
    if (when == FaultRule::When::Share)
        return readNumber(value, rule.share) && rule.share >= 0 && rule.share <= 1;
    return readNumber(value, rule.count) && rule.count > 0;
}

bool readSetting(std::string_view setting, FaultRule &rule)
{
    const std::size_t equals = setting.find('=');
    if (equals == setting.npos)
        return false;
    const std::string_view key = setting.substr(0, equals);
    const std::string_view value = setting.substr(equals + 1);
    if (key == "nth")
        return readWhen(FaultRule::When::Nth, value, rule);
    if (key == "every")
        return readWhen(FaultRule::When::Every, value, rule);
    if (key == "share")
        return readWhen(FaultRule::When::Share, value, rule);
    return key == "seconds" && rule.fault.seconds > 0 && readNumber(value, rule.fault.seconds)
           && rule.fault.seconds > 0 && rule.fault.seconds <= MAX_SECONDS;
}

} // namespace

std::optional<FaultRule> parseFaultRule(std::string_view text, std::string &error)
{
    FaultRule rule;
    rule.text = text;
    const auto fail = [&](std::string_view what, std::string_view field) {
        error = "fault '" + rule.text + "': " + std::string(what) + " '" + std::string(field) + "'";
        return std::nullopt;
    };
    const std::string_view target = cutField(text);
    if (!readTarget(target, rule))
        return fail("no such target", target);
    const std::string_view kind = cutField(text);
    if (!readKind(kind, rule))
        return fail("no such kind", kind);
    while (!text.empty()) {
        const std::string_view setting = cutField(text);
        if (!readSetting(setting, rule))
            return fail("cannot use", setting);
    }
    return rule;
}

void FaultPlan::setRules(std::vector<FaultRule> rules)
{
    m_rules = std::move(rules);
    m_seen.assign(m_rules.size(), 0);
}

std::optional<Fault> FaultPlan::next(FaultTarget target, bool isOnKeptConnection)
{
    std::optional<Fault> fault;
    for (std::size_t i = 0; i < m_rules.size(); ++i) {
        const FaultRule &rule = m_rules[i];
        if (rule.target != target || !befalls(rule, ++m_seen[i]))
            continue;
        if (!fault && (isOnKeptConnection || rule.fault.kind != FaultKind::Hang))
            fault = rule.fault;
    }
    return fault;
}

const std::vector<FaultRule> &FaultPlan::rules() const
{
    return m_rules;
}

std::uint64_t FaultPlan::seen(std::size_t index) const
{
    return m_seen[index];
}

bool FaultPlan::befalls(const FaultRule &rule, std::uint64_t request)
{
    switch (rule.when) {
    case FaultRule::When::Nth:
        return request == rule.count;
    case FaultRule::When::Every:
        return request % rule.count == 0;
    case FaultRule::When::Share:
        return std::uniform_real_distribution<>()(m_random) < rule.share;
    case FaultRule::When::Always:
        break;
    }
    return true;
}

} // namespace localcloud
