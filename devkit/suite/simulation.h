#ifndef PELCLOUD_DEVKIT_SUITE_SIMULATION_H
#define PELCLOUD_DEVKIT_SUITE_SIMULATION_H

#include "devkit/suite/scenario.h"
#include "model/suiterecords.h"

#include <cstdint>

/**
 * What a simulated UPS measures, as the suite's records. Everything here follows from the scenario,
 * the unit's index and the second since the start: the same arguments give the same bytes.
 */
namespace suite {

/** All that the suite tells about one unit. */
struct Report
{
    nb_capabilities caps;
    nb_variaveis vars;
    nb_estado_flags state;
    nb_falha_flags failures;
    long cause; // negative while no count-down runs
    unsigned long counter;
    char fullDischarge;
};

/** With `faulty`, the record is spoilt as the unit's faults say. The unit must exist. */
[[nodiscard]] Report stateReport(const Scenario &scenario, std::size_t index, std::int64_t second,
                                 bool faulty);
[[nodiscard]] pelorin_version_info versionReport(const Scenario &scenario, std::size_t index,
                                                 std::int64_t second, bool faulty);

} // namespace suite

#endif
