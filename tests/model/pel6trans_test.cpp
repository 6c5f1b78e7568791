#include "model/pel6trans.h"

#include "model/computer.h"
#include "model/devicestatus.h"
#include "support/jsontext.h"
#include "tests/golden.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstring>
#include <memory>
#include <set>
#include <sstream>

#include <QJsonObject>

namespace {

/** A copy of a record at an odd address, at the end of its block for AddressSanitizer to check. */
template <class Record>
class Unaligned
{
public:
    explicit Unaligned(const void *bytes, std::size_t size = sizeof(Record))
        : m_bytes(new char[size + 1])
    {
        std::memcpy(m_bytes.get() + 1, bytes, size);
    }
    operator const Record *() const { return reinterpret_cast<const Record *>(m_bytes.get() + 1); }

private:
    std::unique_ptr<char[]> m_bytes;
};

/** What the suite reports of one UPS. */
struct Report
{
    nb_capabilities caps{};
    nb_falha_flags failures{};
    nb_estado_flags state{};
    nb_variaveis vars{};
    long cause = -1;
    unsigned long counter = 0;
    char fullDischarge = 0;

    [[nodiscard]] DeviceStatus translated(DeviceStatus device = {}) const
    {
        Pel6Translator::translate(
                device, Unaligned<nb_capabilities>(&caps), Unaligned<nb_falha_flags>(&failures),
                Unaligned<nb_estado_flags>(&state), Unaligned<nb_variaveis>(&vars),
                Unaligned<long>(&cause), Unaligned<unsigned long>(&counter),
                Unaligned<char>(&fullDischarge));
        return device;
    }
};

using Flags = std::set<std::string>;

/** The keys of all flags that are set in a device's JSON, as "section.key". */
Flags setFlags(const DeviceStatus &device)
{
    Flags set;
    const QJsonObject json = device.toJson();
    for (const QString section : { "caps", "failures", "status" }) {
        const QJsonObject flags = json[section].toObject();
        for (const QString &key : flags.keys()) {
            if (flags[key] != 0)
                set.insert((section + '.' + key).toStdString());
            EXPECT_TRUE(flags[key] == 0 || flags[key] == 1) << key.toStdString();
        }
    }
    return set;
}

// One line per byte of the capability, failure and state records, one name per bit from the least
// significant one; "-" is an unused bit, "calibrated" the inverted one.
constexpr const char *BITS = R"(
    caps.hasFamily caps.hasModel caps.hasVInput caps.hasVOutput caps.hasIOutput caps.hasPOutput caps.hasFOutput caps.hasVBattery
    caps.hasTemperature caps.hasCBattery caps.hasVersion caps.hasICBattery caps.hasShutdownTimer caps.hasPowerOnTimer caps.hasPowerOffTimer caps.hasNominalVBattery
    caps.hasNominalVInput caps.hasNominalPOutput caps.hasNominalVOutput caps.hasManualShutdown caps.hasProgPowerOff caps.hasProgPowerOn caps.hasSetICBattery caps.hasSampVInput
    caps.hasSampVOutput caps.hasSampIOutput - - - - - -
    failures.overTemp failures.internal failures.endBattery failures.overLoad failures.shortCircuit failures.abnormalVOutput failures.abnormalVBattery failures.inverter
    failures.lowVInput failures.highPOutput failures.tiristor - - - - -
    status.connected status.opBattery status.opStandby status.opWarning status.opStartup status.lowFInput status.highFInput status.noSyncInput
    status.syncInput status.lowVInput status.highVInput status.noVInput status.lowBattery status.noiseInput status.maxBattery status.shutdownTimerActive
    status.remoteControlActive calibrated status.opCheckup failures.fan status.noBattery status.oldBattery status.highPOutput status.moreBattery
    status.lessBattery - - - - - - -
)";

TEST(Translation, EveryBitReachesItsKey)
{
    std::istringstream names(BITS);
    for (std::size_t i = 0; i < 80; ++i) {
        std::array<std::uint8_t, 10> bytes{};
        bytes[i / 8] = static_cast<std::uint8_t>(1U << (i % 8));
        Report report;
        std::memcpy(&report.caps, bytes.data(), 4);
        std::memcpy(&report.failures, bytes.data() + 4, 2);
        std::memcpy(&report.state, bytes.data() + 6, 4);

        std::string name;
        names >> name;
        Flags expected{ "status.noCalibrated", name };
        expected.erase("-");
        if (expected.erase("calibrated") != 0)
            expected.clear();
        EXPECT_EQ(setFlags(report.translated()), expected) << name << " bit " << i;
    }
}

TEST(Translation, FamilyAndModelDecideCapabilitiesAndNominalFrequency)
{
    const std::set<int> dischargeable{ 1, 2, 4, 5, 7, 8, 9, 10, 13, 15 };
    for (const int family : { SHRT_MIN, -3, -1, 0,  1,  2,  3,  4,  5,  6,  7,       8,
                              9,        10, 11, 12, 13, 14, 15, 16, 26, 29, SHRT_MAX }) {
        for (const int model : { -8, 7, 8, 15, 16 }) {
            Report report;
            report.vars.family = static_cast<std::int16_t>(family);
            report.vars.model = static_cast<std::int16_t>(model);
            Flags expected{ "status.noCalibrated" };
            if (family > 0)
                expected.insert("caps.hasNominalFOutput");
            if (dischargeable.contains(family))
                expected.insert("caps.hasSetDischargeBattery");
            if (family == 10 || family == 13)
                expected.insert("caps.hasChangeAutonomy");
            const DeviceStatus device = report.translated();
            EXPECT_EQ(setFlags(device), expected) << family;
            EXPECT_EQ(device.getVars().getNominalFOutput(),
                      family == 3 && (model == 8 || model == 15) ? 50 : 60)
                    << family << ' ' << model;
        }
    }
}

TEST(Translation, EveryOffsetReachesItsKey)
{
    // Filled by offset rather than through the struct, to test the struct's layout too.
    std::array<unsigned char, 900> bytes{};
    bytes.fill(0xee);
    const auto put = [&bytes](std::size_t offset, auto value) {
        std::memcpy(bytes.data() + offset, &value, sizeof value);
    };
    put(0, std::int16_t{ -12 });
    put(2, std::int16_t{ -13 });
    for (std::size_t i = 0; i < 8; ++i)
        put(4 + 4 * i, 100.5F + static_cast<float>(i));
    put(36, 1.05F);
    put(40, std::int16_t{ -14 });
    put(48, std::int32_t{ 201 });
    put(56, std::int32_t{ -202 });
    put(64, std::int32_t{ 203 });
    for (std::size_t i = 0; i < 4; ++i)
        put(72 + 4 * i, 300.5F + static_cast<float>(i));
    std::memset(bytes.data() + 88, 'N', 32); // no NUL within its width
    put(120, std::int32_t{ 2 });
    put(124, std::array<std::uint8_t, 2>{ 0, 255 });
    put(380, std::int32_t{ 1 });
    put(384, std::uint8_t{ 17 });
    put(640, std::int32_t{ 3 });
    put(644, std::array<std::uint8_t, 3>{ 1, 2, 3 });

    Report report;
    std::memcpy(&report.vars, bytes.data(), bytes.size());
    report.cause = 0x500000006;
    report.counter = 0xfffffffffffffff7;
    report.fullDischarge = static_cast<char>(0x80);
    const DeviceStatus device = report.translated();
    EXPECT_EQ(ToJsonText(device.getVars().toJson()).toStdString(), golden("vars_by_offset.json"));
    EXPECT_EQ(device.getRegressiveCounter().toJson(),
              (QJsonObject{ { "active", 1 }, { "cause", 6 }, { "value", -9 } }));
    EXPECT_EQ(device.getFullDischargeRequired(), 1);
    const DeviceStatus idle = Report().translated();
    EXPECT_EQ(idle.getRegressiveCounter().toJson(),
              (QJsonObject{ { "active", 0 }, { "cause", -1 }, { "value", 0 } }));
    EXPECT_EQ(idle.getFullDischargeRequired(), 0);
}

TEST(Translation, SampleCountsAreUsedAsGivenWithinTheRecord)
{
    const struct
    {
        std::int32_t count;
        std::array<qsizetype, 3> sizes;
    } rows[] = {
        { INT_MIN, { 0, 0, 0 } },
        { 1, { 1, 1, 1 } },
        { 257, { 257, 257, 256 } },
        { INT_MAX, { 776, 516, 256 } },
    };
    for (const auto &[count, sizes] : rows) {
        Report report;
        for (auto *block : { &report.vars.sampVInput, &report.vars.sampVOutput })
            block->count = count;
        report.vars.sampIOutput = { count, { 99 } };
        const Variables vars = report.translated().getVars();
        EXPECT_EQ((std::array{ vars.getSampVInput().size(), vars.getSampVOutput().size(),
                               vars.getSampIOutput().size() }),
                  sizes)
                << count;
        EXPECT_EQ(vars.getSampVInput().value(520), sizes[0] > 520 ? 99 : 0) << count;
    }
}

TEST(Translation, OnlySamplesAccumulate)
{
    Report report{ { { 0xff } }, { { 0xff } }, { { 0xff } } };
    report.vars.sampVInput = { 2, { 5, 6 } };
    const DeviceStatus twice = report.translated(report.translated());
    EXPECT_EQ(twice.getVars().getSampVInput(), (QVector<float>{ 5, 6, 5, 6 }));

    const DeviceStatus idle = Report().translated(twice);
    EXPECT_EQ(setFlags(idle), Flags{ "status.noCalibrated" });
    EXPECT_EQ(idle.getVars().getSampVInput().size(), 4);
}

TEST(Translation, NullPointerLeavesTargetUnchanged)
{
    const Report full{ { { 0xff } }, {}, {}, {}, 0, 0, 1 };
    for (int null = 0; null < 7; ++null) {
        DeviceStatus device;
        const auto given = [null](int index, const auto *pointer) {
            return index == null ? nullptr : pointer;
        };
        Pel6Translator::translate(device, given(0, &full.caps), given(1, &full.failures),
                                  given(2, &full.state), given(3, &full.vars),
                                  given(4, &full.cause), given(5, &full.counter),
                                  given(6, &full.fullDischarge));
        EXPECT_EQ(device.toJson(), DeviceStatus().toJson()) << null;
    }
    Computer computer;
    Pel6Translator::translate(computer, nullptr);
    EXPECT_EQ(computer.toJson(), Computer().toJson());
}

TEST(Translation, VersionRecordTexts)
{
    const struct
    {
        std::string bytes;
        const char *ver, *os;
    } rows[] = {
        { std::string("6.3\0\0\0\0Linux 6.1\0", 17), "6.3", "Linux 6.1" },
        { std::string("\0xxxxxx\0", 8), "", "" },
        { std::string("12.34.56Debian\0", 15), "12.34.5", "6Debian" },
        { std::string("\xff\0\0\0\0\0\0\x80\xe9\0", 10), "\u00ff", "\u0080\u00e9" },
    };
    for (const auto &[bytes, ver, os] : rows) {
        Computer computer;
        computer.setId("i");
        computer.setName("n");
        Pel6Translator::translate(computer,
                                  Unaligned<pelorin_version_info>(bytes.data(), bytes.size()));
        EXPECT_EQ(computer.toJson(),
                  (QJsonObject{ { "id", "i" }, { "name", "n" }, { "os", os }, { "ver", ver } }));
    }
}

} // namespace
