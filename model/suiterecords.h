#ifndef PELCLOUD_MODEL_SUITERECORDS_H
#define PELCLOUD_MODEL_SUITERECORDS_H

#include <bit>
#include <cstddef>
#include <cstdint>

/**
 * The C records that the suite's client library fills. Only the part that is read here is declared:
 * a record may be longer, and a buffer passed to the library must leave room for that. The library
 * guarantees no alignment: copy a record from its pointer before use, as Pel6Translator does.
 *
 * Numbers are little-endian. Texts end at a NUL or at the end of their field. The bits of the flag
 * records count from the least significant one; pel6trans.cpp maps them to fields.
 */

static_assert(std::endian::native == std::endian::little, "the suite writes little-endian records");
static_assert(sizeof(long) == 8, "the suite's long is a 64-bit number");

extern "C" {

struct nb_capabilities
{
    std::uint8_t bytes[4];
};

struct nb_falha_flags // failures
{
    std::uint8_t bytes[2];
};

struct nb_estado_flags // state
{
    std::uint8_t bytes[4];
};

/** One waveform: `count` samples, of which the library guarantees at most 256. */
struct nb_samples
{
    std::int32_t count;
    std::uint8_t samples[256];
};

struct nb_variaveis // variables
{
    std::int16_t family;
    std::int16_t model;
    float vInput;
    float vOutput;
    float iOutput;
    float pOutput;
    float fOutput;
    float vBattery;
    float temperature;
    float cBattery;
    float version;
    std::int16_t icBattery;
    std::uint8_t unread42[6];
    std::int32_t shutdownTimer; // each timer is the low half of an 8-byte slot
    std::uint8_t unread52[4];
    std::int32_t powerOnTimer;
    std::uint8_t unread60[4];
    std::int32_t powerOffTimer;
    std::uint8_t unread68[4];
    float nominalVBattery;
    float nominalVInput;
    float nominalPOutput;
    float nominalVOutput;
    char name[32];
    nb_samples sampVInput;
    nb_samples sampVOutput;
    nb_samples sampIOutput;
};

struct pelorin_version_info
{
    char version[7];
    char os[4096 - 7]; // up to its NUL; the width is the limit if the NUL is missing
};

} // extern "C"

static_assert(sizeof(nb_capabilities) == 4);
static_assert(sizeof(nb_falha_flags) == 2);
static_assert(sizeof(nb_estado_flags) == 4);

static_assert(offsetof(nb_variaveis, family) == 0);
static_assert(offsetof(nb_variaveis, model) == 2);
static_assert(offsetof(nb_variaveis, vInput) == 4);
static_assert(offsetof(nb_variaveis, vOutput) == 8);
static_assert(offsetof(nb_variaveis, iOutput) == 12);
static_assert(offsetof(nb_variaveis, pOutput) == 16);
static_assert(offsetof(nb_variaveis, fOutput) == 20);
static_assert(offsetof(nb_variaveis, vBattery) == 24);
static_assert(offsetof(nb_variaveis, temperature) == 28);
static_assert(offsetof(nb_variaveis, cBattery) == 32);
static_assert(offsetof(nb_variaveis, version) == 36);
static_assert(offsetof(nb_variaveis, icBattery) == 40);
static_assert(offsetof(nb_variaveis, shutdownTimer) == 48);
static_assert(offsetof(nb_variaveis, powerOnTimer) == 56);
static_assert(offsetof(nb_variaveis, powerOffTimer) == 64);
static_assert(offsetof(nb_variaveis, nominalVBattery) == 72);
static_assert(offsetof(nb_variaveis, nominalVInput) == 76);
static_assert(offsetof(nb_variaveis, nominalPOutput) == 80);
static_assert(offsetof(nb_variaveis, nominalVOutput) == 84);
static_assert(offsetof(nb_variaveis, name) == 88);
static_assert(offsetof(nb_variaveis, sampVInput.count) == 120);
static_assert(offsetof(nb_variaveis, sampVInput.samples) == 124);
static_assert(offsetof(nb_variaveis, sampVOutput.count) == 380);
static_assert(offsetof(nb_variaveis, sampVOutput.samples) == 384);
static_assert(offsetof(nb_variaveis, sampIOutput.count) == 640);
static_assert(offsetof(nb_variaveis, sampIOutput.samples) == 644);
static_assert(sizeof(nb_variaveis) == 900);

static_assert(offsetof(pelorin_version_info, version) == 0);
static_assert(offsetof(pelorin_version_info, os) == 7);

#endif
