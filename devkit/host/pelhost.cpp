// Loads a plug-in as the suite's service manager does: starts it, waits, stops it, and says so line
// by line.

#include <CLI/CLI.hpp>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include <dlfcn.h>
#include <pthread.h>

namespace {

using Entry = int (*)(void **);
using Milliseconds = std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr int STATUS_PLUGIN_UNUSABLE = 1;
constexpr int STATUS_USAGE = 2;
constexpr double MAX_SECONDS = 1e9;

/** A line of the report, seen at once by whoever reads the pipe. */
[[gnu::format(printf, 1, 2)]] void say(const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
    std::putchar('\n');
    std::fflush(stdout);
}

/** Which part of the plug-in runs; null while the host itself decides when the process ends. */
std::atomic<const char *> g_stage = nullptr;

extern "C" void reportExit(int status, void *)
{
    if (const char *stage = g_stage.load())
        say("exited by the plug-in during %s, status %d", stage, status);
}

struct CloseLibrary
{
    void operator()(void *library) const { dlclose(library); }
};
using Library = std::unique_ptr<void, CloseLibrary>;

struct Plugin
{
    Library library;
    Entry start = nullptr;
    Entry stop = nullptr;
};

Entry entryOf(const Library &library, const char *name)
{
    const auto entry = reinterpret_cast<Entry>(dlsym(library.get(), name));
    if (entry == nullptr)
        std::fprintf(stderr, "pelhost: the plug-in has no entry %s\n", name);
    return entry;
}

/** Nothing, and a message, when the file cannot be used. */
std::optional<Plugin> load(const std::string &path)
{
    Plugin plugin;
    g_stage = "loading";
    plugin.library.reset(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL));
    g_stage = nullptr;
    if (plugin.library == nullptr) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): glibc keeps the text for each thread
        std::fprintf(stderr, "pelhost: cannot load the plug-in: %s\n", dlerror());
        return std::nullopt;
    }
    plugin.start = entryOf(plugin.library, "SrvStart");
    plugin.stop = entryOf(plugin.library, "SrvStop");
    if (plugin.start == nullptr || plugin.stop == nullptr)
        return std::nullopt;
    return plugin;
}

int call(Entry entry, const char *name, void **handle)
{
    g_stage = name;
    const int result = entry(handle);
    g_stage = nullptr;
    say("%s: %d", name, result);
    return result;
}

sigset_t endingSignals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

/** The next of `signals`, which are blocked, or -1 when there is none until the deadline. */
int waitForSignal(const sigset_t &signals, std::optional<Clock::time_point> deadline)
{
    for (;;) {
        int signal = -1;
        if (deadline) {
            using namespace std::chrono;
            const auto left = std::max(nanoseconds(*deadline - Clock::now()), nanoseconds(0));
            const auto whole = duration_cast<seconds>(left);
            const timespec timeout{ whole.count(), (left - whole).count() };
            signal = sigtimedwait(&signals, nullptr, &timeout);
        } else {
            signal = sigwaitinfo(&signals, nullptr);
        }
        if (signal > 0 || errno != EINTR)
            return signal;
    }
}

void waitForEnd(const sigset_t &signals, std::optional<Milliseconds> limit)
{
    std::optional<Clock::time_point> deadline;
    if (limit)
        deadline = Clock::now() + *limit;
    g_stage = "the run";
    const int signal = waitForSignal(signals, deadline);
    g_stage = nullptr;
    if (signal > 0)
        say("received %s", signal == SIGINT ? "SIGINT" : "SIGTERM");
    else
        say("time is over");
}

int g_exitHandlerMs = 0;

/** An exit handler of the host's own, registered after the plug-in has started. */
extern "C" void handleExit()
{
    std::this_thread::sleep_for(Milliseconds(g_exitHandlerMs));
    say("exit handler done");
}

/** From now on no thread can be created with the default attributes. */
void forbidThreads()
{
    constexpr std::size_t TOO_LARGE = std::size_t(1) << 50U;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, TOO_LARGE);
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
}

/** What the host does beside loading, starting and stopping the plug-in. */
struct Options
{
    std::optional<Milliseconds> limit; // until the stop
    int exitHandlerMs = -1;            // -1: no exit handler
    bool stopsWithoutThreads = false;
};

int run(const std::string &path, const Options &options)
{
    // Before the plug-in has threads: they inherit the mask, so that the signals come to us.
    const sigset_t signals = endingSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    on_exit(reportExit, nullptr);

    const std::optional<Plugin> plugin = load(path);
    if (!plugin)
        return STATUS_PLUGIN_UNUSABLE;
    say("loaded %s", path.c_str());

    void *handle = nullptr;
    if (call(plugin->start, "SrvStart", &handle) == 0) {
        std::fputs("pelhost: the plug-in did not start\n", stderr);
        return STATUS_PLUGIN_UNUSABLE;
    }
    if (options.exitHandlerMs >= 0) {
        g_exitHandlerMs = options.exitHandlerMs;
        std::atexit(handleExit);
    }
    waitForEnd(signals, options.limit);
    say("stopping");
    if (options.stopsWithoutThreads)
        forbidThreads();
    call(plugin->stop, "SrvStop", &handle);
    return EXIT_SUCCESS;
}

int runWithArguments(int argc, char **argv)
{
    std::string plugin;
    double seconds = 0;
    double milliseconds = 0;
    Options options;
    CLI::App app("Loads a plug-in as the service manager does, and stops it on SIGINT, on SIGTERM "
                 "or when its time is over.");
    app.add_option("PLUGIN", plugin, "the plug-in's file")->required();
    const auto *const inSeconds =
            app.add_option("--seconds", seconds, "stop so long after the start")
                    ->check(CLI::Range(0.0, MAX_SECONDS));
    auto *const inMilliseconds =
            app.add_option("--stop-after-ms", milliseconds, "the same in milliseconds")
                    ->check(CLI::Range(0.0, 1000 * MAX_SECONDS));
    inMilliseconds->excludes("--seconds");
    app.add_option("--exit-handler-ms", options.exitHandlerMs,
                   "register an exit handler that takes so long");
    app.add_flag("--stop-without-threads", options.stopsWithoutThreads,
                 "create no thread from the stop on");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &problem) {
        return app.exit(problem) == 0 ? EXIT_SUCCESS : STATUS_USAGE;
    }
    if (inSeconds->count() + inMilliseconds->count() > 0)
        options.limit = Milliseconds(std::llround(1000 * seconds + milliseconds));
    // A bare name is a file here, and not one of the system's libraries.
    return run(std::filesystem::absolute(plugin), options);
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return runWithArguments(argc, argv);
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "pelhost: %s\n", problem.what());
        return STATUS_PLUGIN_UNUSABLE;
    }
}
