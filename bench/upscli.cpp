// The suite's client library as far as a run calls it. It has as many units as `unitCount` says,
// each with `sampleCount` samples a waveform, and answers by copying a record.

#include "bench/records.h"

#include <memory>

namespace {

std::unique_ptr<const SuiteRecords> records;

} // namespace

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED unsigned long unitCount;
EXPORTED int sampleCount;
unsigned long unitCount = 1;
int sampleCount = 0;

EXPORTED void *CliStart()
{
    records = std::make_unique<const SuiteRecords>(sampleCount);
    return &records;
}

EXPORTED void CliStop(void * /*handle*/)
{
    records.reset();
}

EXPORTED unsigned long GetServerCount(void * /*handle*/)
{
    return unitCount;
}

EXPORTED int UPSSrvGetVersionInfo(void * /*handle*/, unsigned long /*index*/,
                                  pelorin_version_info *info)
{
    std::ranges::copy(records->version.version, info->version);
    std::ranges::copy_n(records->version.os, 64, info->os);
    return 1;
}

EXPORTED int UPSSrvGetState(void * /*handle*/, unsigned long /*index*/,
                            nb_capabilities *capabilities, nb_variaveis *variables,
                            nb_estado_flags *state, nb_falha_flags *failures, long *cause,
                            unsigned long *counter, char *fullDischarge)
{
    *capabilities = records->capabilities;
    *variables = records->variables;
    *state = records->state;
    *failures = records->failures;
    *cause = records->cause;
    *counter = records->counter;
    *fullDischarge = records->fullDischarge;
    return 1;
}
