// Any bytes as the suite's records: translated, and written as JSON text that says the same.

#include "fuzz/check.h"
#include "model/computer.h"
#include "model/devicestatus.h"
#include "model/pel6trans.h"
#include "support/jsontext.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

namespace {

constexpr std::size_t NAME_OFFSET = 88;
constexpr std::size_t NAME_WIDTH = 32;
constexpr std::size_t VERSION_WIDTH = 7;

constexpr struct
{
    const char *key;
    std::size_t countOffset;
} SAMPLE_BLOCKS[] = { { "sampVInput", 120 }, { "sampVOutput", 380 }, { "sampIOutput", 640 } };

constexpr struct
{
    const char *key;
    std::size_t offset;
} FLOATS[] = {
    { "vInput", 4 },         { "vOutput", 8 },         { "iOutput", 12 },
    { "pOutput", 16 },       { "fOutput", 20 },        { "vBattery", 24 },
    { "temperature", 28 },   { "cBattery", 32 },       { "nominalVBattery", 72 },
    { "nominalVInput", 76 }, { "nominalPOutput", 80 }, { "nominalVOutput", 84 },
};

/**
 * A record's bytes: those of the input, then zeros. They lie at an odd address, for the suite
 * promises no alignment, and end where the allocation ends, so that a longer reach shows.
 */
class Record
{
public:
    Record(const std::uint8_t *&data, std::size_t &left, std::size_t size)
        : m_bytes(size + 1)
    {
        const std::size_t taken = std::min(left, size);
        if (taken > 0)
            std::memcpy(begin(), data, taken);
        data += taken;
        left -= taken;
    }
    std::uint8_t *begin() { return m_bytes.data() + 1; }
    [[nodiscard]] std::size_t size() const { return m_bytes.size() - 1; }
    template <class Type>
    Type *as()
    {
        return reinterpret_cast<Type *>(begin());
    }
    template <class Value>
    Value at(std::size_t offset)
    {
        Value value;
        std::memcpy(&value, begin() + offset, sizeof value);
        return value;
    }
    QString text(std::size_t offset, std::size_t width)
    {
        QString result;
        for (std::size_t i = offset; i < offset + width && begin()[i] != 0; ++i)
            result += QChar(begin()[i]);
        return result;
    }

private:
    std::vector<std::uint8_t> m_bytes;
};

double sixDigits(double value)
{
    char text[32] = {};
    std::snprintf(text, sizeof text, "%.6g", value);
    return std::strtod(text, nullptr);
}

void checkSame(const QJsonValue &read, const QJsonValue &written)
{
    if (written.isObject()) {
        const QJsonObject object = written.toObject();
        FUZZ_CHECK(read.isObject() && read.toObject().keys() == object.keys());
        for (auto member = object.begin(); member != object.end(); ++member)
            checkSame(read[member.key()], *member);
    } else if (written.isArray()) {
        const QJsonArray array = written.toArray();
        const QJsonArray elements = read.toArray();
        FUZZ_CHECK(read.isArray() && elements.size() == array.size());
        for (qsizetype i = 0; i < array.size(); ++i)
            checkSame(elements[i], array[i]);
    } else if (!written.isDouble()) {
        FUZZ_CHECK(read == written);
    } else if (std::isfinite(written.toDouble())) {
        FUZZ_CHECK(read.isDouble() && read.toDouble() == sixDigits(written.toDouble()));
    } else {
        FUZZ_CHECK(read.isNull());
    }
}

/** The text without what numbers consist of, outside of strings; the layout is to be Qt's own. */
std::string layout(const QByteArray &text)
{
    std::string result;
    bool isInside = false;
    bool isEscaped = false;
    for (const char c : text) {
        if (c == '"' && !isEscaped)
            isInside = !isInside;
        isEscaped = c == '\\' && !isEscaped;
        if (isInside || std::strchr("0123456789+-.e", c) == nullptr)
            result += c;
    }
    return result;
}

void checkText(const QJsonObject &object)
{
    const QByteArray text = ToJsonText(object);
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    FUZZ_CHECK(error.error == QJsonParseError::NoError);
    checkSame(document.object(), object);
    FUZZ_CHECK(layout(text) == layout(document.toJson()));
}

QJsonValue number(float value)
{
    return static_cast<double>(value);
}

/** By offsets, how many samples of a block there are: as many as it says, or as the record holds. */
qsizetype sampleCount(Record &vars, std::size_t countOffset)
{
    const auto held = static_cast<std::int32_t>(vars.size() - countOffset - sizeof(std::int32_t));
    return std::clamp(vars.at<std::int32_t>(countOffset), 0, held);
}

void checkVariables(const QJsonObject &variables, Record &vars, int times)
{
    FUZZ_CHECK(variables["family"] == vars.at<std::int16_t>(0));
    FUZZ_CHECK(variables["model"] == vars.at<std::int16_t>(2));
    FUZZ_CHECK(variables["icBattery"] == vars.at<std::int16_t>(40));
    FUZZ_CHECK(variables["shutdownTimer"] == vars.at<std::int32_t>(48));
    FUZZ_CHECK(variables["powerOnTimer"] == vars.at<std::int32_t>(56));
    FUZZ_CHECK(variables["powerOffTimer"] == vars.at<std::int32_t>(64));
    FUZZ_CHECK(variables["name"] == vars.text(NAME_OFFSET, NAME_WIDTH));
    char version[64] = {};
    std::snprintf(version, sizeof version, "%#.2g", static_cast<double>(vars.at<float>(36)));
    FUZZ_CHECK(variables["version"] == QLatin1String(version));
    for (const auto &row : FLOATS) {
        const auto value = vars.at<float>(row.offset);
        FUZZ_CHECK(variables[row.key] == number(value) || std::isnan(value));
        FUZZ_CHECK(std::isnan(variables[row.key].toDouble(-1)) == std::isnan(value));
    }
    for (const auto &block : SAMPLE_BLOCKS) {
        const qsizetype count = sampleCount(vars, block.countOffset);
        FUZZ_CHECK(variables.contains(QLatin1String(block.key)) == (count > 0));
        const QJsonArray samples = variables[block.key].toArray();
        FUZZ_CHECK(samples.size() == times * count);
        const std::uint8_t *const first = vars.begin() + block.countOffset + sizeof(std::int32_t);
        for (qsizetype i = 0; i < samples.size(); ++i)
            FUZZ_CHECK(samples[i] == first[i % count]);
    }
}

int bit(Record &flags, std::size_t byte, unsigned int index)
{
    return static_cast<int>((flags.begin()[byte] >> index) & 1U);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    Record options(data, size, 1);
    Record caps(data, size, 4);
    Record failures(data, size, 2);
    Record state(data, size, 4);
    Record cause(data, size, sizeof(long));
    Record counter(data, size, sizeof(unsigned long));
    Record fullDischarge(data, size, 1);
    Record vars(data, size, 900);
    Record version(data, size, sizeof(pelorin_version_info));

    // The suite promises at most 256 samples; what is beyond that is tried every other time.
    if (bit(options, 0, 0) == 0) {
        for (const auto &block : SAMPLE_BLOCKS) {
            const std::int32_t count = vars.at<std::int32_t>(block.countOffset) % 257;
            std::memcpy(vars.begin() + block.countOffset, &count, sizeof count);
        }
    }

    DeviceStatus device;
    QJsonObject object;
    for (int times = 1; times <= 2; ++times) {
        Pel6Translator::translate(device, caps.as<nb_capabilities>(), failures.as<nb_falha_flags>(),
                                  state.as<nb_estado_flags>(), vars.as<nb_variaveis>(),
                                  cause.as<long>(), counter.as<unsigned long>(),
                                  fullDischarge.as<char>());
        object = device.toJson();
        const QJsonValue status = object;
        checkVariables(status["vars"].toObject(), vars, times);
        FUZZ_CHECK(status["failures"]["fan"] == bit(state, 2, 3));
        FUZZ_CHECK(status["status"]["noCalibrated"] == 1 - bit(state, 2, 1));
        FUZZ_CHECK(status["status"]["lessBattery"] == bit(state, 3, 0));
        FUZZ_CHECK(status["failures"]["tiristor"] == bit(failures, 1, 2));
        FUZZ_CHECK(status["caps"]["hasSampIOutput"] == bit(caps, 3, 1));
        FUZZ_CHECK(status["fullDischargeRequired"] == (*fullDischarge.begin() != 0 ? 1 : 0));
        const QJsonValue countDown = status["regressiveCounter"];
        FUZZ_CHECK(countDown["active"] == (cause.at<long>(0) >= 0 ? 1 : 0));
        FUZZ_CHECK(countDown["cause"] == static_cast<int>(cause.at<long>(0)));
        FUZZ_CHECK(countDown["value"] == static_cast<int>(counter.at<unsigned long>(0)));
    }
    checkText(object);

    Computer computer;
    Pel6Translator::translate(computer, version.as<pelorin_version_info>());
    FUZZ_CHECK(computer.getVer() == version.text(0, VERSION_WIDTH));
    FUZZ_CHECK(computer.getOs() == version.text(VERSION_WIDTH, version.size() - VERSION_WIDTH));
    checkText(computer.toJson());
    return 0;
}
