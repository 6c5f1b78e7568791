#ifndef PELCLOUD_MODEL_PEL6TRANS_H
#define PELCLOUD_MODEL_PEL6TRANS_H

#include "model/suiterecords.h"

class Computer;
class DeviceStatus;

/**
 * Turns the suite's C records into the records of this folder. It has no state; both operations
 * may be called from any thread.
 *
 * Pointers need no alignment, and no byte is read beyond 4, 2, 4 and 900 bytes for the records of
 * a state, and beyond the NUL of the operating-system text for a version, which is cut where the
 * declared record ends. Texts are taken as Latin-1, of which the suite's ASCII is a part, so that every byte gives a valid character.
 * Values are taken as they come, without range checks. When any pointer is null, the target stays
 * as it is; no error is reported.
 */
class Pel6Translator
{
public:
    Pel6Translator() = default;
    virtual ~Pel6Translator();

    /** Sets os and ver; id and name stay. */
    static void translate(Computer &computer, const pelorin_version_info *info);

    /**
     * Sets every field of `device`, except that waveform samples are added behind those that it
     * already holds. A sample count runs on into the following bytes when it exceeds its block,
     * but never beyond the record.
     *
     * `cause` is the cause code of the running shutdown count-down, negative when none runs;
     * `counter` is what remains of it; `fullDischarge` points to one byte, not zero when the UPS
     * asks for a full discharge of its battery.
     */
    static void translate(DeviceStatus &device, const nb_capabilities *caps,
                          const nb_falha_flags *failures, const nb_estado_flags *state,
                          const nb_variaveis *vars, const long *cause, const unsigned long *counter,
                          const char *fullDischarge);
};

#endif
