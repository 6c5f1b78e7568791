// Any bytes as the suite's records: translated to the model, and the model written as JSON text.

#include "fuzz/fuzz.h"
#include "model/computer.h"
#include "model/devicestatus.h"
#include "model/pel6trans.h"
#include "support/jsontext.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

constexpr struct
{
    const char *key;
    nb_samples nb_variaveis::*block;
} SAMPLE_BLOCKS[] = { { "sampVInput", &nb_variaveis::sampVInput },
                      { "sampVOutput", &nb_variaveis::sampVOutput },
                      { "sampIOutput", &nb_variaveis::sampIOutput } };

/** The next bytes of the input, then zeros. */
template <class Record>
Record take(FuzzedDataProvider &input)
{
    Record record{};
    input.ConsumeData(&record, sizeof record);
    return record;
}

/**
 * A copy at an odd address, since the suite promises no alignment. It ends where its allocation
 * ends, so that AddressSanitizer detects a read beyond it.
 */
template <class Record>
struct OddCopy
{
    std::vector<char> bytes;
    explicit OddCopy(const Record &record)
        : bytes(sizeof record + 1)
    {
        std::memcpy(bytes.data() + 1, &record, sizeof record);
    }
    operator const Record *() const { return reinterpret_cast<const Record *>(bytes.data() + 1); }
};

template <std::size_t Size>
QString text(const char (&field)[Size])
{
    return QString::fromLatin1(field, static_cast<qsizetype>(strnlen(field, Size)));
}

/** Checks that the text is Qt's, which has one value on a line, with six digits in numbers. */
void checkText(const QJsonObject &object)
{
    QByteArrayList lines = QJsonDocument(object).toJson().split('\n');
    for (QByteArray &line : lines) {
        const qsizetype at = line.lastIndexOf(' ') + 1;
        const qsizetype end = line.size() - (line.endsWith(',') ? 1 : 0);
        bool isNumber = false;
        const double number = line.mid(at, end - at).toDouble(&isNumber);
        char text[32] = {};
        std::snprintf(text, sizeof text, "%.6g", number);
        if (isNumber)
            line.replace(at, end - at, text);
    }
    FUZZ_CHECK(ToJsonText(object) == lines.join('\n'));
}

/** Checks that each translation added as many samples as a block counts and the record holds. */
void checkSamples(const QJsonObject &object, const nb_variaveis &vars, int translations)
{
    for (const auto &row : SAMPLE_BLOCKS) {
        const nb_samples &block = vars.*row.block;
        const std::uint8_t *const first = block.samples;
        const std::ptrdiff_t most = reinterpret_cast<const std::uint8_t *>(&vars + 1) - first;
        const auto count = std::clamp<std::ptrdiff_t>(block.count, 0, most);
        const QJsonArray samples = object[row.key].toArray();
        FUZZ_CHECK(object.contains(row.key) == (count > 0));
        FUZZ_CHECK(samples.size() == translations * count);
        for (qsizetype i = 0; i < samples.size(); ++i)
            FUZZ_CHECK(samples[i] == first[i % count]);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const bool isAnyCount = take<char>(input) % 2 != 0;
    const OddCopy caps(take<nb_capabilities>(input));
    const OddCopy failures(take<nb_falha_flags>(input));
    const OddCopy state(take<nb_estado_flags>(input));
    const OddCopy cause(take<long>(input));
    const OddCopy counter(take<unsigned long>(input));
    const OddCopy fullDischarge(take<char>(input));
    auto vars = take<nb_variaveis>(input);
    const auto version = take<pelorin_version_info>(input);
    if (!isAnyCount) { // the suite promises at most 256 samples
        for (const auto &row : SAMPLE_BLOCKS)
            (vars.*row.block).count %= 257;
    }

    DeviceStatus device;
    for (int translations = 1; translations <= 2; ++translations) {
        Pel6Translator::translate(device, caps, failures, state, OddCopy(vars), cause, counter,
                                  fullDischarge);
        const QJsonObject object = device.toJson();
        const QJsonObject variables = object["vars"].toObject();
        checkSamples(variables, vars, translations);
        FUZZ_CHECK(variables["name"] == text(vars.name));
        checkText(object);
    }

    Computer computer;
    Pel6Translator::translate(computer, OddCopy(version));
    FUZZ_CHECK(computer.getVer() == text(version.version) && computer.getOs() == text(version.os));
    checkText(computer.toJson());
    return 0;
}
