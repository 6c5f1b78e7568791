// Writing pelcloud.json where a system call fails, or is the last one before a power cut: the file
// must hold the old or the new object. The linker wraps the calls of the tested code.

#include "plugin/configfile.h"
#include "support/jsontext.h"
#include "tests/support/tempdir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QJsonDocument>
#include <QJsonObject>

extern "C" ssize_t __real_pwrite(int descriptor, const void *data, size_t size, off_t offset);
extern "C" int __real_fsync(int descriptor);
extern "C" int __real_ftruncate(int descriptor, off_t size);

namespace {

namespace fs = std::filesystem;

// The last three end the process; a power cut loses the size or the bytes that were not synced.
enum Fault { Fails, Interrupted, Short, Killed, SizeLost, BytesLost };
enum Outcome { Done, Failed, Cut, NotReached };

Fault fault;
int callsBefore;
fs::path file;
std::string synced; // the file's contents at its last fsync()
bool isNameSynced;

void loseUnsynced()
{
    const std::string now = contentOf(file);
    const std::size_t common = std::min(now.size(), synced.size());
    if (fault == SizeLost)
        written(file, synced.replace(0, common, now, 0, common));
    if (fault == BytesLost)
        written(file, synced.substr(0, common));
    if (fault > Killed && !isNameSynced)
        fs::remove(file);
}

template <typename Call>
auto withFault(Call call) -> decltype(call(false))
{
    const bool isHere = callsBefore-- == 0;
    errno = fault == Fails ? ENOSPC : EINTR;
    if (isHere && fault < Short)
        return -1;
    const auto result = call(isHere && fault == Short);
    if (isHere && fault > Short) {
        loseUnsynced();
        _exit(Cut);
    }
    return result;
}

} // namespace

extern "C" ssize_t __wrap_pwrite(int descriptor, const void *data, size_t size, off_t offset)
{
    return withFault([&](bool isShort) {
        return __real_pwrite(descriptor, data, isShort ? (size + 1) / 2 : size, offset);
    });
}

extern "C" int __wrap_fsync(int descriptor)
{
    return withFault([&](bool) {
        const fs::path opened = "/proc/self/fd/" + std::to_string(descriptor);
        if (fs::equivalent(opened, file))
            synced = contentOf(file);
        isNameSynced = isNameSynced || fs::equivalent(opened, file.parent_path());
        return __real_fsync(descriptor);
    });
}

extern "C" int __wrap_ftruncate(int descriptor, off_t size)
{
    return withFault([&](bool) { return __real_ftruncate(descriptor, size); });
}

namespace {

QJsonObject parsed(const std::string &text)
{
    return QJsonDocument::fromJson(QByteArray::fromStdString(text)).object();
}

TEST(ConfigFile, HoldsTheOldOrTheNewObjectAtEveryMoment)
{
    const TempDir directory;
    fs::create_directory(directory.path + "real");
    file = directory.path + "real/pelcloud.json";
    fs::create_symlink(file, directory.path + "link");
    const QString link = QString::fromStdString(directory.path + "link");
    const QJsonObject object{ { "code", "c" }, { "rtk", "new" }, { "log", "info" } };
    const std::string text = ToJsonText(object).toStdString();
    const std::string shorter = R"({"code":"c"})";
    const std::string longer = R"({"code":")" + std::string(text.size(), 'c') + "\"}";
    for (const std::string &old : { shorter, longer, std::string() }) { // empty: no file
        for (const Fault each : { Fails, Interrupted, Short, Killed, SizeLost, BytesLost }) {
            int status = Done;
            for (int calls = 0; status != NotReached; ++calls) {
                SCOPED_TRACE(testing::Message() << old << ", fault " << each << " at " << calls);
                fault = each;
                callsBefore = calls;
                synced = old;
                isNameSynced = !old.empty();
                fs::remove(file);
                if (isNameSynced)
                    fs::permissions(written(file, old), fs::perms(0640));
                if (fork() == 0) {
                    umask(calls % 2 == 0 ? 0 : 0777);
                    const bool isDone = writeConfigFile(link, object) == ConfigWriting::Done;
                    loseUnsynced();
                    _exit(!isDone ? Failed : callsBefore < 0 ? Done : NotReached);
                }
                wait(&status);
                status = WEXITSTATUS(status);
                const std::string now = contentOf(file);
                if (status == Cut) {
                    ASSERT_TRUE(parsed(now) == parsed(old) || parsed(now) == object) << now;
                } else if (status == Failed) {
                    ASSERT_TRUE(fault == Fails && (now == old || parsed(now) == object)) << now;
                } else {
                    ASSERT_EQ(now, text);
                    ASSERT_EQ(fs::status(file).permissions(), fs::perms(old.empty() ? 0600 : 0640));
                    ASSERT_TRUE(status == Done || calls >= 3) << "calls are not wrapped";
                }
            }
        }
    }
}

} // namespace
