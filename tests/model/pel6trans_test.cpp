#include "model/pel6trans.h"

#include "model/computer.h"
#include "model/devicestatus.h"
#include "support/jsontext.h"
#include "tests/golden.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <memory>
#include <sstream>
#include <vector>

#include <QJsonObject>

namespace {

/**
 * Bytes on the heap at an odd address and with nothing behind them, so that AddressSanitizer sees
 * every read too far.
 */
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

    void translateInto(DeviceStatus &device) const
    {
        Pel6Translator::translate(
                device, Unaligned<nb_capabilities>(&caps), Unaligned<nb_falha_flags>(&failures),
                Unaligned<nb_estado_flags>(&state), Unaligned<nb_variaveis>(&vars),
                Unaligned<long>(&cause), Unaligned<unsigned long>(&counter),
                Unaligned<char>(&fullDischarge));
    }
    [[nodiscard]] DeviceStatus device() const
    {
        DeviceStatus result;
        translateInto(result);
        return result;
    }
};

using Flags = std::vector<std::string>;

/** The keys, as "section.key", of all flags that are set in a device's JSON. */
Flags setFlags(const DeviceStatus &device)
{
    Flags set;
    const QJsonObject json = device.toJson();
    for (const char *section : { "caps", "failures", "status" }) {
        const QJsonObject flags = json[QLatin1String(section)].toObject();
        for (const QString &key : flags.keys()) {
            const int flag = flags[key].toInt(-1);
            EXPECT_TRUE(flag == 0 || flag == 1) << key.toStdString();
            if (flag == 1)
                set.push_back(std::string(section).append(".").append(key.toStdString()));
        }
    }
    return set;
}

Flags sorted(Flags flags)
{
    std::sort(flags.begin(), flags.end());
    return flags;
}

// A line a byte of the capability, failure and state records, a name a bit from the least
// significant one; "-" is a bit without a meaning, "calibrated" the one that is inverted.
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
        Flags expected{ "status.noCalibrated" };
        if (name == "calibrated")
            expected.clear();
        else if (name != "-")
            expected.push_back(name);
        EXPECT_EQ(setFlags(report.device()), sorted(expected)) << name << " bit " << i;
    }
}

TEST(Translation, FamilyDecidesThreeCapabilities)
{
    constexpr int ALL_THREE[] = { 10, 13 };
    constexpr int DISCHARGE[] = { 1, 2, 4, 5, 7, 8, 9, 10, 13, 15 };
    for (const int family : { SHRT_MIN, -1, 0,  1,  2,  3,  4,  5,  6,  7,  8,
                              9,        10, 11, 12, 13, 14, 15, 16, 26, 29, SHRT_MAX }) {
        Report report;
        report.vars.family = static_cast<std::int16_t>(family);
        Flags expected{ "status.noCalibrated" };
        if (family > 0)
            expected.emplace_back("caps.hasNominalFOutput");
        if (std::ranges::count(DISCHARGE, family) != 0)
            expected.emplace_back("caps.hasSetDischargeBattery");
        if (std::ranges::count(ALL_THREE, family) != 0)
            expected.emplace_back("caps.hasChangeAutonomy");
        EXPECT_EQ(setFlags(report.device()), sorted(expected)) << "family " << family;
    }
}

TEST(Translation, FamilyAndModelDecideTheNominalFrequency)
{
    const struct
    {
        std::int16_t family, model;
        float frequency;
    } rows[] = {
        { 3, 7, 60 }, { 3, 8, 50 },  { 3, 15, 50 }, { 3, 16, 60 },  { 3, -8, 60 },
        { 2, 8, 60 }, { 4, 15, 60 }, { 0, 8, 60 },  { -3, 10, 60 },
    };
    for (const auto &row : rows) {
        Report report;
        report.vars.family = row.family;
        report.vars.model = row.model;
        EXPECT_EQ(report.device().getVars().getNominalFOutput(), row.frequency)
                << row.family << ' ' << row.model;
    }
}

TEST(Translation, EveryOffsetReachesItsKey)
{
    // Filled by offset rather than through the struct, so that the struct is tested too.
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
    const DeviceStatus device = report.device();
    EXPECT_EQ(ToJsonText(device.getVars().toJson()).toStdString(), golden("vars_by_offset.json"));
    EXPECT_EQ(ToJsonText(device.getRegressiveCounter().toJson()).toStdString(),
              "{\n    \"active\": 1,\n    \"cause\": 6,\n    \"value\": -9\n}\n");
    EXPECT_EQ(device.getFullDischargeRequired(), 1);
    EXPECT_EQ(Report().device().getFullDischargeRequired(), 0);
}

TEST(Translation, VersionHasTwoDigitsAndAPoint)
{
    const struct
    {
        float version;
        const char *text;
    } rows[] = {
        { 1.5F, "1.5" },  { 2, "2.0" },       { 12, "12." },    { 0.5F, "0.50" },
        { 1.23F, "1.2" }, { 100, "1.0e+02" }, { 1.05F, "1.0" }, { 0, "0.0" },
    };
    for (const auto &row : rows) {
        Report report;
        report.vars.version = row.version;
        EXPECT_EQ(report.device().getVars().getVersion().toStdString(), row.text);
    }
}

TEST(Translation, SampleCountsAreUsedAsGivenWithinTheRecord)
{
    const struct
    {
        std::int32_t count;
        qsizetype vInput, vOutput, iOutput;
    } rows[] = {
        { INT_MIN, 0, 0, 0 },   { -1, 0, 0, 0 },
        { 0, 0, 0, 0 },         { 1, 1, 1, 1 },
        { 256, 256, 256, 256 }, { 257, 257, 257, 256 },
        { 600, 600, 516, 256 }, { INT_MAX, 776, 516, 256 },
    };
    for (const auto &row : rows) {
        Report report;
        report.vars.sampVInput.count = row.count;
        report.vars.sampVOutput.count = row.count;
        report.vars.sampIOutput.count = row.count;
        report.vars.sampIOutput.samples[255] = 99;
        const DeviceStatus device = report.device();
        EXPECT_EQ(device.getVars().getSampVInput().size(), row.vInput) << row.count;
        EXPECT_EQ(device.getVars().getSampVOutput().size(), row.vOutput) << row.count;
        EXPECT_EQ(device.getVars().getSampIOutput().size(), row.iOutput) << row.count;
        if (row.vInput == 776) {
            EXPECT_EQ(device.getVars().getSampVInput().last(), 99);
        }
    }
}

TEST(Translation, OnlySamplesAccumulate)
{
    Report report;
    report.caps.bytes[0] = 0xff;
    report.state.bytes[0] = 0xff;
    report.failures.bytes[0] = 0xff;
    report.vars.sampVInput = { 2, { 5, 6 } };
    DeviceStatus device;
    report.translateInto(device);
    report.translateInto(device);
    EXPECT_EQ(device.getVars().getSampVInput(), (QVector<float>{ 5, 6, 5, 6 }));
    EXPECT_TRUE(device.getVars().getSampVOutput().isEmpty());

    Report().translateInto(device);
    EXPECT_EQ(setFlags(device), Flags{ "status.noCalibrated" });
    EXPECT_EQ(device.getVars().getSampVInput().size(), 4);
}

TEST(Translation, ANullPointerLeavesTheTargetAlone)
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
        EXPECT_EQ(ToJsonText(device.toJson()).toStdString(), golden("device_default.json")) << null;
    }
    Computer computer;
    computer.setOs(QStringLiteral("kept"));
    Pel6Translator::translate(computer, nullptr);
    EXPECT_EQ(computer.getOs(), QStringLiteral("kept"));
}

TEST(Translation, VersionRecordTexts)
{
    const struct
    {
        std::string bytes;
        const char16_t *ver, *os;
    } rows[] = {
        { std::string("6.3\0\0\0\0Linux 6.1\0", 17), u"6.3", u"Linux 6.1" },
        { std::string("\0xxxxxx\0", 8), u"", u"" },
        { std::string("12.34.56Debian\0", 15), u"12.34.5", u"6Debian" },
        { std::string("\xff\0\0\0\0\0\0\x80\xe9\0", 10), u"\u00ff", u"\u0080\u00e9" },
    };
    for (const auto &row : rows) {
        Computer computer;
        computer.setId(QStringLiteral("id"));
        computer.setName(QStringLiteral("name"));
        const Unaligned<pelorin_version_info> record(row.bytes.data(), row.bytes.size());
        Pel6Translator::translate(computer, record);
        EXPECT_EQ(computer.getVer(), QString::fromUtf16(row.ver));
        EXPECT_EQ(computer.getOs(), QString::fromUtf16(row.os));
        EXPECT_EQ(computer.getId() + computer.getName(), QStringLiteral("idname"));
    }
}

} // namespace
