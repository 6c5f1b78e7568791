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
#include <set>
#include <sstream>

#include <QJsonObject>

namespace {

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

    /** `device` after a translation whose argument at the index `null` is null. */
    [[nodiscard]] DeviceStatus translated(DeviceStatus device = {}, int null = -1) const
    {
        const auto given = [null](int index, const auto *pointer) {
            return index == null ? nullptr : pointer;
        };
        Pel6Translator::translate(device, given(0, &caps), given(1, &failures), given(2, &state),
                                  given(3, &vars), given(4, &cause), given(5, &counter),
                                  given(6, &fullDischarge));
        return device;
    }
};

// The file has one line per byte of the capability, failure and state records and one name per bit
// from the least significant one; "-" is an unused bit.
TEST(Translation, EveryBitReachesItsKey)
{
    Status status;
    status.setNoCalibrated(1);
    DeviceStatus idle = Report().translated();
    idle.setCaps({});
    idle.setFailures({});
    idle.setStatus(status);
    std::istringstream names(golden("suite_bits.txt"));
    for (std::size_t i = 0; i < 80; ++i) {
        Report report; // begins with the three records, 10 bytes
        reinterpret_cast<std::uint8_t *>(&report)[i / 8] = static_cast<std::uint8_t>(1U << (i % 8));
        QJsonObject expected = idle.toJson();
        std::string name;
        names >> name;
        if (name != "-") {
            const QStringList path = QString::fromStdString(name).split('.');
            QJsonObject flags = expected[path[0]].toObject();
            flags[path[1]] = path[1] == "noCalibrated" ? 0 : 1;
            expected[path[0]] = flags;
        }
        EXPECT_EQ(report.translated().toJson(), expected) << name << " bit " << i;
    }
}

TEST(Translation, FamilyAndModelDecideCapabilitiesAndNominalFrequency)
{
    const std::set<int> dischargeable{ 1, 2, 4, 5, 7, 8, 9, 10, 13, 15 };
    for (int family = -40; family <= 80; ++family) {
        for (const int model : { -8, 7, 8, 15, 16 }) {
            Report report;
            report.vars.family = static_cast<std::int16_t>(family);
            report.vars.model = static_cast<std::int16_t>(model);
            const QJsonObject json = report.translated().toJson();
            const bool is50Hz = family == 3 && (model == 8 || model == 15);
            SCOPED_TRACE(testing::Message() << "family " << family << " model " << model);
            EXPECT_EQ(json["caps"]["hasNominalFOutput"], family > 0 ? 1 : 0);
            EXPECT_EQ(json["caps"]["hasSetDischargeBattery"],
                      dischargeable.contains(family) ? 1 : 0);
            EXPECT_EQ(json["caps"]["hasChangeAutonomy"], family == 10 || family == 13 ? 1 : 0);
            EXPECT_EQ(json["vars"]["nominalFOutput"], is50Hz ? 50 : 60);
        }
    }
}

TEST(Translation, EveryOffsetReachesItsKey)
{
    // Filled by offset rather than through the struct, to test the struct's layout too.
    Report report;
    char *const bytes = reinterpret_cast<char *>(&report.vars);
    std::memset(bytes, 0xee, 900);
    const auto put = [bytes](std::size_t offset, auto value) {
        std::memcpy(bytes + offset, &value, sizeof value);
    };
    const std::pair<std::size_t, std::int16_t> shorts[] = { { 0, -12 }, { 2, -13 }, { 40, -14 } };
    for (const auto &[offset, value] : shorts)
        put(offset, value);
    const std::pair<std::size_t, std::int32_t> integers[] = {
        { 48, 201 }, { 56, -202 }, { 64, 203 }, { 120, 2 }, { 380, 1 }, { 640, 3 },
    };
    for (const auto &[offset, value] : integers)
        put(offset, value);
    for (std::size_t i = 0; i < 8; ++i)
        put(4 + 4 * i, 100.5F + static_cast<float>(i));
    put(36, 1.05F);
    for (std::size_t i = 0; i < 4; ++i)
        put(72 + 4 * i, 300.5F + static_cast<float>(i));
    std::memset(bytes + 88, 'N', 32); // no NUL within its width
    put(124, std::array<std::uint8_t, 2>{ 0, 255 });
    put(384, std::uint8_t{ 17 });
    put(644, std::array<std::uint8_t, 3>{ 1, 2, 3 });

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
    for (const int count : { INT_MIN, 0, 1, 256, 257, INT_MAX }) {
        Report report;
        nb_variaveis &record = report.vars;
        record.sampVInput.count = record.sampVOutput.count = record.sampIOutput.count = count;
        record.sampIOutput.samples[255] = 99;
        const Variables vars = report.translated().getVars();
        EXPECT_EQ(vars.getSampVInput().size(), std::clamp(count, 0, 776));
        EXPECT_EQ(vars.getSampVOutput().size(), std::clamp(count, 0, 516));
        EXPECT_EQ(vars.getSampIOutput().size(), std::clamp(count, 0, 256));
        EXPECT_EQ(vars.getSampVInput().value(775), count == INT_MAX ? 99 : 0);
    }
}

TEST(Translation, OnlySamplesAccumulate)
{
    Report report{ { { 0xff } }, { { 0xff } }, { { 0xff } } };
    report.vars.sampVInput = { 2, { 5, 6 } };
    const DeviceStatus twice = report.translated(report.translated());
    EXPECT_EQ(twice.getVars().getSampVInput(), (QVector<float>{ 5, 6, 5, 6 }));

    DeviceStatus idle = Report().translated(twice);
    EXPECT_EQ(idle.getVars().getSampVInput().size(), 4);
    idle.setVars(Report().translated().getVars());
    EXPECT_EQ(idle.toJson(), Report().translated().toJson());
}

TEST(Translation, NullPointerLeavesTargetUnchanged)
{
    const Report full{ { { 0xff } }, {}, {}, {}, 0, 0, 1 };
    for (int null = 0; null < 7; ++null)
        EXPECT_EQ(full.translated({}, null).toJson(), DeviceStatus().toJson()) << null;
}

TEST(Translation, VersionRecordTexts)
{
    const std::tuple<std::string, const char *, const char *> rows[] = {
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
                                  reinterpret_cast<const pelorin_version_info *>(bytes.data()));
        Pel6Translator::translate(computer, nullptr); // changes nothing
        EXPECT_EQ(computer.toJson(),
                  (QJsonObject{ { "id", "i" }, { "name", "n" }, { "os", os }, { "ver", ver } }));
    }
}

} // namespace
