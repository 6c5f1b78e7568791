#ifndef PELCLOUD_PLUGIN_RECORDBUFFERS_H
#define PELCLOUD_PLUGIN_RECORDBUFFERS_H

#include "model/suiterecords.h"

#include <array>
#include <cstddef>

/** Far more units than the three digits of their identifiers allow for: a count beyond is garbage. */
inline constexpr unsigned long MAX_UNITS = 10000;

/**
 * A record of the suite with room behind it, since the library's idea of a record may be longer
 * than what is known of it. Zeroed, for the library need not fill it.
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

/** What the suite's library fills for one unit after another. */
struct RecordBuffers
{
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
