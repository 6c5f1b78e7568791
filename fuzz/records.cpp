// Any bytes as the suite's records: translated, and written as JSON text that says the same.

#include "fuzz/check.h"
#include "fuzz/texts.h"
#include "model/computer.h"
#include "model/devicestatus.h"
#include "model/pel6trans.h"
#include "support/jsontext.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

constexpr struct
{
    const char *key;
    std::size_t countOffset;
} SAMPLE_BLOCKS[] = { { "sampVInput", 120 }, { "sampVOutput", 380 }, { "sampIOutput", 640 } };

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

/** What is to be read where `written` was written and `read` is what becomes of numbers. */
QJsonValue readBack(const QJsonValue &written, double (*read)(double))
{
    if (written.isObject()) {
        QJsonObject object = written.toObject();
        for (QJsonValueRef member : object)
            member = readBack(member, read);
        return object;
    }
    if (written.isArray()) {
        QJsonArray array = written.toArray();
        for (QJsonValueRef element : array)
            element = readBack(element, read);
        return array;
    }
    const double number = written.toDouble();
    if (!written.isDouble())
        return written;
    return std::isfinite(number) ? read(number) + 0.0 : QJsonValue(); // -0 reads as 0
}

void checkText(const QJsonObject &object)
{
    const auto same = [](double number) { return number; };
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(ToJsonText(object), &error);
    FUZZ_CHECK(error.error == QJsonParseError::NoError);
    FUZZ_CHECK(readBack(document.object(), same) == readBack(object, sixDigits));
}

/** The samples of each block: as many as it says, or as the record holds, once a translation. */
void checkSamples(const QJsonObject &variables, Record &vars, int times)
{
    for (const auto &block : SAMPLE_BLOCKS) {
        const std::size_t first = block.countOffset + sizeof(std::int32_t);
        const auto held = static_cast<std::int32_t>(vars.size() - first);
        const qsizetype count = std::clamp(vars.at<std::int32_t>(block.countOffset), 0, held);
        FUZZ_CHECK(variables.contains(QLatin1String(block.key)) == (count > 0));
        const QJsonArray samples = variables[block.key].toArray();
        FUZZ_CHECK(samples.size() == times * count);
        for (qsizetype i = 0; i < samples.size(); ++i)
            FUZZ_CHECK(samples[i] == vars.begin()[first + static_cast<std::size_t>(i % count)]);
    }
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
    for (const auto &block : SAMPLE_BLOCKS) {
        const std::int32_t count = vars.at<std::int32_t>(block.countOffset) % 257;
        if (*options.begin() % 2 == 0)
            std::memcpy(vars.begin() + block.countOffset, &count, sizeof count);
    }

    DeviceStatus device;
    for (int times = 1; times <= 2; ++times) {
        Pel6Translator::translate(device, caps.as<nb_capabilities>(), failures.as<nb_falha_flags>(),
                                  state.as<nb_estado_flags>(), vars.as<nb_variaveis>(),
                                  cause.as<long>(), counter.as<unsigned long>(),
                                  fullDischarge.as<char>());
        const QJsonObject object = device.toJson();
        const QJsonObject variables = object["vars"].toObject();
        checkSamples(variables, vars, times);
        FUZZ_CHECK(variables["name"] == vars.text(88, 32));
        const auto voltage = vars.at<float>(4);
        FUZZ_CHECK(variables["vInput"] == double{ voltage } || std::isnan(voltage));
        const QJsonObject countDown = object["regressiveCounter"].toObject();
        FUZZ_CHECK(countDown["active"] == (cause.at<long>(0) >= 0 ? 1 : 0));
        FUZZ_CHECK(countDown["cause"] == static_cast<int>(cause.at<long>(0)));
        FUZZ_CHECK(countDown["value"] == static_cast<int>(counter.at<unsigned long>(0)));
        checkText(object);
    }

    Computer computer;
    Pel6Translator::translate(computer, version.as<pelorin_version_info>());
    FUZZ_CHECK(computer.getVer() == version.text(0, 7));
    FUZZ_CHECK(computer.getOs() == version.text(7, version.size() - 7));
    checkText(computer.toJson());
    return 0;
}
