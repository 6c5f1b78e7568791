#ifndef PELCLOUD_MODEL_UNITSTATE_H
#define PELCLOUD_MODEL_UNITSTATE_H

#include <string>
#include <string_view>
#include <vector>

class QJsonObject;

/** Severity of a state; each has its own colour where states are shown. */
enum class StateLevel { Good, Notice, Warning, Critical };

/** "good", "notice", "warning" or "critical". */
[[nodiscard]] std::string_view levelName(StateLevel level);

/** The state of a UPS, with a key for programs and words for people. */
struct UnitState
{
    std::string_view key;   // "on-battery"
    std::string_view words; // "On battery"
    StateLevel level;
    std::vector<std::string_view> notes; // meanings of the other flags, in order of precedence
};

/**
 * The state that the flags of a UPS's report add up to: the flag with the highest precedence names
 * it, the others become notes. A missing flag counts as not set, so every object has a state.
 */
[[nodiscard]] UnitState unitStateOf(const QJsonObject &report);

/** Output power in percent of the nominal one; negative when either is unknown. */
[[nodiscard]] double loadOf(const QJsonObject &report);

/** State and battery charge for a console: "on battery 87%"; without a battery, only the state. */
[[nodiscard]] std::string summaryOf(const QJsonObject &report);

#endif
