#ifndef PELCLOUD_DEVKIT_SUITE_SCENARIO_H
#define PELCLOUD_DEVKIT_SUITE_SCENARIO_H

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

/**
 * What the simulated suite is to play: the text of a scenario file, read. The keys are described in
 * README.md beside this file. All times but the delays are whole seconds of the scenario, so that
 * everything that follows from them is exact.
 */
namespace suite {

inline constexpr int MAX_UNITS = 999;
inline constexpr int MAX_SAMPLES = 256;

enum class Phase { Mains, Sag, Outage, Overload, Overheating, BatteryTest };

struct TimedPhase
{
    Phase phase;
    std::int64_t seconds; // at least 1

    bool operator==(const TimedPhase &) const = default;
};

/** Phases one after the other, over and over; without any, mains for ever. */
using Timeline = std::vector<TimedPhase>;

struct Unit
{
    std::string name;
    int family = 10;
    int model = 2;
    double voltage = 230; // nominal input and output, V
    double power = 1400;  // nominal, W
    double noise = 0.5;   // percent of each measurement
    int samples = 64;     // of each waveform
    Timeline timeline;

    // Faults. They hold for the calls that `fault...` picks; see isFaulty.
    bool versionFails = false;
    bool stateFails = false;
    bool extreme = false;
    bool nan = false;
    bool unterminated = false;
    bool garbage = false;
    int delayMs = 0;
    std::int64_t faultCall = 0; // the only faulty call, from 1; 0 is every call
    std::int64_t faultFrom = 0;
    std::int64_t faultUntil = INT64_MAX; // the first second that is healthy again

    bool operator==(const Unit &) const = default;
};

struct Scenario
{
    std::string os = "Linux 6.1.0 x86_64";
    std::string version = "6.3.0";
    std::int64_t seed = 1;
    double timeScale = 1; // seconds of the scenario that pass in a real one
    bool cliStartFails = false;
    bool countZero = false;
    int startDelayMs = 0;
    int countDelayMs = 0;
    int stopDelayMs = 0;
    bool stopWakesCalls = false;  // CliStop ends the delays of calls in progress
    int lingerMs = 0;             // such a call uses the library's global state for so long
    int workerPollMs = 0;         // how often the worker looks whether to end; 0: woken at once
    int destructorDelayMs = 0;    // of the library's global state
    int elfDestructorDelayMs = 0; // of its ELF destructor
    bool staysMapped = false;     // dlclose() does not unload the library
    int declaredUnits = -1;       // -1: not said
    std::vector<Unit> units;

    bool operator==(const Scenario &) const = default;
};

/** A line of a scenario that could not be used, and why. */
struct Complaint
{
    int line; // from 1
    std::string text;
};

/**
 * The scenario that the text describes. A line that cannot be used is left out and named in
 * `complaints`, in the order of the lines; the rest holds. Text without units, the empty one
 * included, gives the three built-in units.
 */
[[nodiscard]] Scenario readScenario(std::istream &text, std::vector<Complaint> &complaints);

/** Whether the faults of `unit` hold in its call number `call` (from 1), made at `second`. */
[[nodiscard]] bool isFaulty(const Unit &unit, std::int64_t call, std::int64_t second);

} // namespace suite

#endif
