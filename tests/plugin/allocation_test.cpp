// A run in which memory is not to be had: the first, the second, the third allocation fails, and so
// on, or all from there on. The host must not fall, and the next run must report as ever.

#include "logging/qlogger.h"
#include "plugin/constants.h"
#include "plugin/pelcloud.h"
#include "support/config.h"
#include "tests/support/loopbackserver.h"
#include "tests/support/testsinside.h"

#include <cerrno>
#include <climits>

// What the C library calls its own.
extern "C" {
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
}

namespace {

constexpr int NEVER = INT_MAX;

thread_local int allocationsLeft = NEVER; // of this thread, until one fails
thread_local bool onlyOneFails = true;
thread_local bool hasFailed = false;

bool fails()
{
    if (allocationsLeft == NEVER)
        return false;
    if (allocationsLeft > 0) {
        --allocationsLeft;
        return false;
    }
    hasFailed = true;
    if (onlyOneFails)
        allocationsLeft = NEVER;
    errno = ENOMEM;
    return true;
}

} // namespace

// These take the place of the C library's, for whoever allocates: ours, Qt, libcurl.
extern "C" void *malloc(std::size_t size)
{
    return fails() ? nullptr : __libc_malloc(size);
}

extern "C" void *calloc(std::size_t count, std::size_t size)
{
    return fails() ? nullptr : __libc_calloc(count, size);
}

extern "C" void *realloc(void *block, std::size_t size)
{
    return fails() ? nullptr : __libc_realloc(block, size);
}

namespace {

class Client : public PelCloudClient
{
public:
    using PelCloudClient::OnTimer;
};

TEST(Allocation, AFailureEndsOnlyItsRun)
{
    std::mutex mutex;
    int reports = 0;
    const LoopbackServer server([&](int socket, const LoopbackServer::Request &request) {
        const bool isToken = request.path == "/oauth2/v4/token";
        const std::lock_guard lock(mutex);
        reports += request.path.find("/mon/good") != std::string::npos ? 1 : 0;
        return LoopbackServer::reply(
                socket, isToken ? R"({"access_token":"s3cr3t","expires_in":3600})" : "{}");
    });
    GoogleAuth::GOOGLE_OAUTH2_GET_TOKEN = server.url("/oauth2/v4/token").toString();
    const std::string home = GetPelorinPath();
    written(home + "scenario.ini", "units = 1\n[unit *]\nsamples = 3\n");
    // A run that gave up may still have a request under way, under another name than that of a good run.
    const auto call = [&](const std::string &name) {
        written(home + "pelcloud.json", R"({ "home": "http://)" + server.host() + R"(", "cpid": ")"
                                                + name + R"(", "rtk": "s3cr3t", "log": "info" })");
    };
    call("good");

    QLogger::QLoggerManager::getInstance()->addDestination(
            QString::fromStdString(home + "pelcloud.log"), { Constants::LOG_MODULE_NAME },
            QLogger::LogLevel::Info);

    Client client;
    client.setInterval(INT_MAX);
    ASSERT_EQ(client.start(), 0);
    client.OnTimer();
    for (const bool onlyOne : { true, false }) {
        int allocations = 0;
        for (bool failed = true; failed; ++allocations) {
            call("failing");
            hasFailed = false;
            onlyOneFails = onlyOne;
            allocationsLeft = allocations;
            client.OnTimer();
            allocationsLeft = NEVER;
            failed = hasFailed;

            {
                const std::lock_guard lock(mutex);
                reports = 0;
            }
            call("good");
            client.OnTimer();
            const std::lock_guard lock(mutex);
            ASSERT_EQ(reports, 2) << "after allocation " << allocations;
        }
        std::printf("%d allocations\n", allocations);
        EXPECT_GT(allocations, 100) << "failures reach nobody";
    }
    client.stop();
}

} // namespace

int main(int argc, char **argv)
{
    return runTestsInside(argc, argv, UPSCLI_FILE);
}
