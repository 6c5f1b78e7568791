#ifndef PELCLOUD_MODEL_UNITSTATE_H
#define PELCLOUD_MODEL_UNITSTATE_H

#include <string>
#include <string_view>
#include <vector>

class QJsonObject;

/** How urgently a state wants to be looked at; whoever shows it gives each a colour. */
enum class StateLevel { Good, Notice, Warning, Critical };

/** "good", "notice", "warning" or "critical". */
[[nodiscard]] std::string_view levelName(StateLevel level);

/** What a UPS's report says about it, in one word for programs and in words for people. */
struct UnitState
{
    std::string_view key;   // "on-battery"
    std::string_view words; // "On battery"
    StateLevel level;
    std::vector<std::string_view> notes; // whatever else the flags say, the most urgent first
};

/**
 * The state that the flags of a UPS's report add up to: the most urgent one that is set names it, the
 * others become notes. A flag that is missing counts as not set, so that any object has a state.
 */
[[nodiscard]] UnitState unitStateOf(const QJsonObject &report);

/** The report's output power in percent of the rated one; negative when either is not known. */
[[nodiscard]] double loadOf(const QJsonObject &report);

/** The report in a few words for a console: "on battery 87%", without the battery where there is none. */
[[nodiscard]] std::string summaryOf(const QJsonObject &report);

#endif
