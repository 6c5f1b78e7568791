#ifndef PELCLOUD_PLUGIN_RECORDBUFFERS_H
#define PELCLOUD_PLUGIN_RECORDBUFFERS_H

#include "model/pel6trans.h"
#include "model/suiterecords.h"

#include <array>
#include <cstddef>

/** Ten times what the three digits of an identifier allow for: a larger count is garbage. */
inline constexpr unsigned long MAX_UNITS = 10000;

/**
 * A record of the suite with room behind it, since the library's record may be longer than the part
 * that is known. Zeroed, since the library need not fill it.
 */
template <class Record>
class RecordBuffer
{
public:
    Record *get() { return reinterpret_cast<Record *>(m_bytes.data()); }

private:
    static constexpr std::size_t SIZE = 4096;
    static_assert(sizeof(Record) <= SIZE);
    alignas(std::max_align_t) std::array<unsigned char, SIZE> m_bytes{};
};

/** What the suite's library fills for one unit after another, for its translation. */
struct RecordBuffers
{
    void translateVersion(Computer &computer)
    {
        Pel6Translator::translate(computer, version.get());
    }
    void translateState(DeviceStatus &status)
    {
        // The library takes state before failures, the translator failures before state.
        Pel6Translator::translate(status, capabilities.get(), failureFlags.get(), stateFlags.get(),
                                  variables.get(), cause.get(), counter.get(), fullDischarge.get());
    }

    RecordBuffer<pelorin_version_info> version;
    RecordBuffer<nb_capabilities> capabilities;
    RecordBuffer<nb_variaveis> variables;
    RecordBuffer<nb_estado_flags> stateFlags;
    RecordBuffer<nb_falha_flags> failureFlags;
    RecordBuffer<long> cause;
    RecordBuffer<unsigned long> counter;
    RecordBuffer<char> fullDischarge;
};

#endif
