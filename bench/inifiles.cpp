// INI files beside SimpleIni and QSettings: loading one with many keys, and many writes that are
// put off until one save. All keys are in one section.

#include "bench/allocations.h"
#include "support/cfgclass.h"
#include "tests/support/tempdir.h"

#define SI_NO_CONVERSION // of UTF-8: the header of a converter is not packaged
#include <SimpleIni.h>

#include <algorithm>
#include <fstream>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include <QSettings>
#include <QString>

namespace {

constexpr int WRITES = 10'000;

enum Order { COUNTED, SHUFFLED };

std::string generated(const TempDir &directory, benchmark::State &state)
{
    std::vector<long> numbers(static_cast<std::size_t>(state.range(0)));
    std::iota(numbers.begin(), numbers.end(), 0L);
    if (state.range(1) == SHUFFLED)
        std::shuffle(numbers.begin(), numbers.end(), std::mt19937(1));

    std::string name = directory.path + "generated.ini";
    std::ofstream file(name);
    file << "[Generated]\n";
    for (const long number : numbers)
        file << "Key" << number << " = value " << number << '\n';
    return name;
}

/** QSettings keeps what it has read by file name: it gets a new one each time. */
QString renewed(const std::string &name)
{
    static int number = 0;
    const std::string other = name + std::to_string(++number);
    std::filesystem::create_hard_link(name, other);
    return QString::fromStdString(other);
}

bool isLoaded(benchmark::State &state, bool hasKey)
{
    if (!hasKey)
        state.SkipWithError("the file was not loaded");
    return hasKey;
}

void loadOurs(benchmark::State &state)
{
    const TempDir directory;
    const std::string name = generated(directory, state);
    for ([[maybe_unused]] auto _ : state) {
        CfgClass config;
        config.Open(name);
        if (!isLoaded(state, config.ReadStr("Generated", "Key9", "") == "value 9"))
            break;
    }
}

void loadReadOnly(benchmark::State &state)
{
    const TempDir directory;
    const std::string name = generated(directory, state);
    for ([[maybe_unused]] auto _ : state) {
        CfgClass config;
        config.OpenReadOnly(name);
        if (!isLoaded(state, config.ReadStr("Generated", "Key9", "") == "value 9"))
            break;
    }
}

void loadSimpleIni(benchmark::State &state)
{
    const TempDir directory;
    const std::string name = generated(directory, state);
    for ([[maybe_unused]] auto _ : state) {
        CSimpleIniA config;
        config.LoadFile(name.c_str());
        if (!isLoaded(state, config.GetValue("Generated", "Key9", "") == std::string("value 9")))
            break;
    }
}

void loadQSettings(benchmark::State &state)
{
    const TempDir directory;
    const std::string name = generated(directory, state);
    for ([[maybe_unused]] auto _ : state) {
        state.PauseTiming();
        const QString other = renewed(name);
        state.ResumeTiming();
        const QSettings config(other, QSettings::IniFormat);
        if (!isLoaded(state, config.value(QStringLiteral("Generated/Key9")) == "value 9"))
            break;
    }
}

std::vector<std::string> keyNames(const char *before = "Key")
{
    std::vector<std::string> names;
    names.reserve(WRITES);
    for (int i = 0; i < WRITES; ++i)
        names.push_back(before + std::to_string(i));
    return names;
}

void writesOurs(benchmark::State &state)
{
    const TempDir directory;
    const std::vector<std::string> names = keyNames();
    for ([[maybe_unused]] auto _ : state) {
        CfgClass config;
        config.Open(directory.path + "ours.ini");
        config.SetCached(true);
        for (const std::string &name : names)
            config.WriteStr("Generated", name.c_str(), "some value");
        if (!config.Close())
            state.SkipWithError("the file was not written");
        state.PauseTiming();
        std::filesystem::remove(directory.path + "ours.ini");
        state.ResumeTiming();
    }
}

void writesSimpleIni(benchmark::State &state)
{
    const TempDir directory;
    const std::vector<std::string> names = keyNames();
    for ([[maybe_unused]] auto _ : state) {
        CSimpleIniA config;
        for (const std::string &name : names)
            config.SetValue("Generated", name.c_str(), "some value");
        if (config.SaveFile((directory.path + "simple.ini").c_str()) != SI_OK)
            state.SkipWithError("the file was not written");
        state.PauseTiming();
        std::filesystem::remove(directory.path + "simple.ini");
        state.ResumeTiming();
    }
}

void writesQSettings(benchmark::State &state)
{
    static int number = 0;
    const TempDir directory;
    const std::vector<std::string> prefixed = keyNames("Generated/Key");
    std::vector<QString> names(prefixed.size());
    std::transform(prefixed.begin(), prefixed.end(), names.begin(), QString::fromStdString);
    const QString value = QStringLiteral("some value");
    for ([[maybe_unused]] auto _ : state) {
        QSettings config(QString::fromStdString(directory.path) + QString::number(++number),
                         QSettings::IniFormat);
        for (const QString &name : names)
            config.setValue(name, value);
        config.sync();
        if (config.status() != QSettings::NoError)
            state.SkipWithError("the file was not written");
    }
}

void growth(benchmark::internal::Benchmark *load)
{
    load->Args({ 10'000, COUNTED })->Args({ 1'000'000, COUNTED });
    load->Args({ 10'000, SHUFFLED })->Args({ 1'000'000, SHUFFLED });
    load->Unit(benchmark::kMillisecond);
}

void compared(benchmark::internal::Benchmark *load)
{
    load->Args({ 100'000, COUNTED })->Args({ 100'000, SHUFFLED })->Unit(benchmark::kMillisecond);
}

BENCHMARK(loadOurs)->Apply(compared);
BENCHMARK(loadReadOnly)->Apply(compared);
BENCHMARK(loadSimpleIni)->Apply(compared);
BENCHMARK(loadQSettings)->Apply(compared);
BENCHMARK(writesOurs)->Unit(benchmark::kMillisecond);
BENCHMARK(writesSimpleIni)->Unit(benchmark::kMillisecond);
BENCHMARK(writesQSettings)->Unit(benchmark::kMillisecond);
BENCHMARK(loadOurs)->Apply(growth);

} // namespace
