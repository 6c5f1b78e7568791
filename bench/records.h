#ifndef PELCLOUD_BENCH_RECORDS_H
#define PELCLOUD_BENCH_RECORDS_H

#include "model/suiterecords.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <string_view>

/** What the suite's library says of one UPS on mains, with as many digits as measured values have. */
struct SuiteRecords
{
    static constexpr int MOST_SAMPLES = 256;

    explicit SuiteRecords(int samples)
    {
        variables.family = 10;
        variables.model = 2;
        variables.vInput = 229.637F;
        variables.vOutput = 230.184F;
        variables.iOutput = 2.17342F;
        variables.pOutput = 41.5287F;
        variables.fOutput = 59.9813F;
        variables.vBattery = 27.3419F;
        variables.cBattery = 98.6F;
        variables.temperature = 31.2548F;
        variables.version = 1.5F;
        variables.icBattery = 7;
        variables.shutdownTimer = 300;
        variables.nominalVInput = 230.0F;
        variables.nominalVOutput = 230.0F;
        variables.nominalPOutput = 1400.0F;
        variables.nominalVBattery = 24.0F;
        std::ranges::copy(std::string_view("Server room"), variables.name);
        fill(variables.sampVInput, samples, 110);
        fill(variables.sampVOutput, samples, 108);
        fill(variables.sampIOutput, samples, 35);
        std::ranges::copy(std::string_view("6.3.0"), version.version);
        std::ranges::copy(std::string_view("Linux 6.1.0 x86_64"), version.os);
    }

    /** Two periods of a sine around the middle of the byte range. */
    static void fill(nb_samples &wave, int samples, double amplitude)
    {
        wave.count = samples;
        for (int i = 0; i < samples; ++i) {
            const double angle = 4 * std::numbers::pi * i / samples;
            wave.samples[i] =
                    static_cast<std::uint8_t>(std::lround(128 + amplitude * std::sin(angle)));
        }
    }

    nb_capabilities capabilities{ { 0xff, 0xff, 0x87, 0x03 } };
    nb_falha_flags failures{};
    nb_estado_flags state{ { 0x01, 0x01, 0x02, 0x00 } }; // connected, in step, calibrated
    nb_variaveis variables{};
    pelorin_version_info version{};
    long cause = -1;
    unsigned long counter = 0;
    char fullDischarge = 0;
};

#endif
