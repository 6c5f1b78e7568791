// Measures how the time to load an INI file grows with its number of keys, all in one section:
// counted through, as a program writes them, and shuffled, which suits a sorted map least.

#include "support/cfgclass.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr unsigned long KEY_COUNTS[] = { 10'000, 100'000, 1'000'000 };
constexpr int RUNS = 5; // the fastest counts, for everything else in the machine only adds

enum class Order {
    COUNTED,
    SHUFFLED,
};

void generate(const std::string &name, unsigned long keys, Order order)
{
    std::vector<unsigned long> numbers(keys);
    std::iota(numbers.begin(), numbers.end(), 0UL);
    if (order == Order::SHUFFLED)
        std::shuffle(numbers.begin(), numbers.end(), std::mt19937(1));

    std::ofstream file(name);
    file << "[Generated]\n";
    for (const unsigned long number : numbers)
        file << "Key" << number << " = value " << number << '\n';
}

double millisecondsToLoad(const std::string &name, unsigned long keys)
{
    using Clock = std::chrono::steady_clock;
    CfgClass config;
    const auto start = Clock::now();
    const bool loaded = config.Open(name);
    const std::chrono::duration<double, std::milli> time = Clock::now() - start;
    if (!loaded || config.IsFail() || config.GetKeyCount("Generated") != keys) {
        std::fprintf(stderr, "iniload: %s was not loaded\n", name.c_str());
        std::abort();
    }
    return time.count();
}

double fastest(const std::string &name, unsigned long keys)
{
    double best = millisecondsToLoad(name, keys);
    for (int run = 1; run < RUNS; ++run)
        best = std::min(best, millisecondsToLoad(name, keys));
    return best;
}

void measure(const char *title, const std::string &name, Order order)
{
    double firstPerKey = 0;
    std::printf("%s\n%9s %10s %14s\n", title, "keys", "ms", "time per key");
    for (const unsigned long keys : KEY_COUNTS) {
        generate(name, keys, order);
        const double time = fastest(name, keys);
        const double perKey = time / static_cast<double>(keys);
        if (firstPerKey == 0)
            firstPerKey = perKey;
        std::printf("%9lu %10.1f %14.2f\n", keys, time, perKey / firstPerKey);
    }
    std::filesystem::remove(name);
}

} // namespace

int main()
{
    const std::string name = std::filesystem::temp_directory_path()
                             / ("iniload." + std::to_string(getpid()) + ".ini");
    measure("counted through", name, Order::COUNTED);
    measure("shuffled", name, Order::SHUFFLED);
}
