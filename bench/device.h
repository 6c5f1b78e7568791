#ifndef PELCLOUD_BENCH_DEVICE_H
#define PELCLOUD_BENCH_DEVICE_H

#include "bench/records.h"
#include "model/devicestatus.h"
#include "model/pel6trans.h"

inline void translate(DeviceStatus &device, const SuiteRecords &records)
{
    Pel6Translator::translate(device, &records.capabilities, &records.failures, &records.state,
                              &records.variables, &records.cause, &records.counter,
                              &records.fullDischarge);
}

inline DeviceStatus deviceWith(int samples)
{
    DeviceStatus device;
    translate(device, SuiteRecords(samples));
    return device;
}

#endif
