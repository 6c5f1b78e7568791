// The conversions beside what the standard library offers to do the same, std::string included.

#include "bench/allocations.h"
#include "support/utils.h"

#include <array>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <cwchar>
#include <cwctype>
#include <string>
#include <string_view>

namespace {

const std::string NUMBER = "-271828";
const std::string PADDED = "  \tServer room \r\n";
const std::string NAME = "vBatteryLow";

void toIntOurs(benchmark::State &state)
{
    measure(state, [] { benchmark::DoNotOptimize(StrToIntDef(NUMBER, -1)); });
}

void toIntBare(benchmark::State &state)
{
    measure(state, [] {
        const char *const end = NUMBER.data() + NUMBER.size();
        long value = 0;
        const auto [stop, error] = std::from_chars(NUMBER.data(), end, value);
        benchmark::DoNotOptimize(error == std::errc() && stop == end ? value : -1);
    });
}

void fromIntOurs(benchmark::State &state)
{
    unsigned long number = 0;
    measure(state, [&number] { benchmark::DoNotOptimize(UIntToStr(++number % 200, 3, '0')); });
}

void fromIntBare(benchmark::State &state)
{
    unsigned long number = 0;
    measure(state, [&number] {
        std::array<char, 24> digits{};
        char *const end = std::to_chars(digits.begin(), digits.end(), ++number % 200).ptr;
        const auto count = static_cast<std::size_t>(end - digits.data());
        std::string result(count < 3 ? 3 - count : 0, '0');
        benchmark::DoNotOptimize(result.append(digits.data(), count));
    });
}

void trimOurs(benchmark::State &state)
{
    measure(state, [] { benchmark::DoNotOptimize(Trim(PADDED)); });
}

void trimBare(benchmark::State &state)
{
    measure(state, [] {
        const std::size_t first = PADDED.find_first_not_of(" \n\t\r");
        const std::size_t last = PADDED.find_last_not_of(" \n\t\r");
        benchmark::DoNotOptimize(PADDED.substr(first, last + 1 - first));
    });
}

void upperOurs(benchmark::State &state)
{
    measure(state, [] { benchmark::DoNotOptimize(LocaleUpperCase(NAME)); });
}

void upperBare(benchmark::State &state)
{
    measure(state, [] {
        std::string result;
        std::array<char, 16> bytes{};
        std::mbstate_t reading{};
        std::mbstate_t writing{};
        const char *const end = NAME.data() + NAME.size();
        for (const char *at = NAME.data(); at != end;) {
            wchar_t c = 0;
            // NOLINTNEXTLINE(concurrency-mt-unsafe): it is given a state of its own
            at += std::mbrtowc(&c, at, static_cast<std::size_t>(end - at), &reading);
            const auto upper = static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(c)));
            // NOLINTNEXTLINE(concurrency-mt-unsafe)
            result.append(bytes.data(), std::wcrtomb(bytes.data(), upper, &writing));
        }
        benchmark::DoNotOptimize(result);
    });
}

void upperBytes(benchmark::State &state)
{
    measure(state, [] {
        std::string result(NAME);
        for (char &c : result)
            c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        benchmark::DoNotOptimize(result);
    });
}

void fromFloatOurs(benchmark::State &state)
{
    measure(state, [] { benchmark::DoNotOptimize(FloatToStr(1.5, 0, 2, ' ')); });
}

void fromFloatBare(benchmark::State &state)
{
    measure(state, [] {
        std::array<char, 64> text{};
        const int length = std::snprintf(text.data(), text.size(), "%#.*g", 2, 1.5);
        benchmark::DoNotOptimize(std::string(text.data(), static_cast<std::size_t>(length)));
    });
}

BENCHMARK(toIntOurs);
BENCHMARK(toIntBare);
BENCHMARK(fromIntOurs);
BENCHMARK(fromIntBare);
BENCHMARK(trimOurs);
BENCHMARK(trimBare);
BENCHMARK(upperOurs);
BENCHMARK(upperBare);
BENCHMARK(upperBytes);
BENCHMARK(fromFloatOurs);
BENCHMARK(fromFloatBare);

} // namespace
