#ifndef PELCLOUD_MODEL_PEL6TRANS_H
#define PELCLOUD_MODEL_PEL6TRANS_H

#include "model/suiterecords.h"

class Computer;
class DeviceStatus;

/**
 * Translates the suite's C records into the records of this folder. It has no state; any thread
 * may call both operations. When any pointer is null, the target is unchanged; no error is
 * reported.
 *
 * Pointers need no alignment. A state is read from the first 4, 2, 4 and 900 bytes of its records,
 * a version up to the NUL of the operating-system text, at most to the end of the declared record.
 * Texts are ASCII, read as Latin-1 so that every byte gives a valid character. Values are not
 * range-checked.
 */
class Pel6Translator
{
public:
    Pel6Translator() = default;
    virtual ~Pel6Translator();

    /** Sets os and ver; leaves id and name unchanged. */
    static void translate(Computer &computer, const pelorin_version_info *info);

    /**
     * Sets every field of `device`, but appends waveform samples to those that it already holds. A
     * sample count that exceeds its block reads the bytes that follow, up to the record's end.
     *
     * `cause` is the cause code of the running shutdown count-down, negative when none runs;
     * `counter` is its remaining count; `fullDischarge` points to one byte, non-zero when the UPS
     * requires a full discharge of its battery.
     */
    static void translate(DeviceStatus &device, const nb_capabilities *caps,
                          const nb_falha_flags *failures, const nb_estado_flags *state,
                          const nb_variaveis *vars, const long *cause, const unsigned long *counter,
                          const char *fullDischarge);
};

#endif
