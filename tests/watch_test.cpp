// Folders watched as the SDK watches them, where inotify cannot be had: the user's instances are all
// taken (by a holder process), so the watches look with stat, and take inotify again once some are
// given back. The test process acts as that user meanwhile; the machine's other users keep theirs.
#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/ymFolderWatch.h"
#include "platform/ymIOLoop.h"
#include "support/Processes.h"
#include "support/TestSupport.h"

namespace {

// No other test takes this user's instances (the client's test takes nobody's), so the two may run
// side by side.
constexpr uid_t kUser = 65533;

// The process acts as `user` while this lives; root stays its saved id, to come back to.
struct ActingAs {
    explicit ActingAs(uid_t user) : acting(setresgid(user, user, 0) == 0 && setresuid(user, user, 0) == 0) {}
    ~ActingAs()
    {
        if (setresuid(0, 0, 0) != 0 || setresgid(0, 0, 0) != 0)
            std::abort();  // nothing after this could trust what it may do
    }
    const bool acting;
};

class ScarceInotify : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "needs root, to act as another user";
        holder = std::make_unique<ymtest::InotifyInstancesHeld>(kUser);
        if (holder->outcome().starts_with("beyond one process"))
            GTEST_SKIP() << holder->outcome();
        ASSERT_TRUE(holder->held()) << holder->outcome();
        ASSERT_EQ(chown(folder.path().c_str(), kUser, kUser), 0);
    }

    ymtest::TemporaryHome home;  // whatever the SDK would log goes there
    ymtest::TemporaryDirectory folder;
    std::unique_ptr<ymtest::InotifyInstancesHeld> holder;
};

TEST_F(ScarceInotify, AFolderWatchLooksWithStatAndTakesInotifyOnceThereIsSome)
{
    ActingAs user(kUser);
    ASSERT_TRUE(user.acting);
    const std::string watched = folder.path() + "/watched", later = folder.path() + "/later";
    ASSERT_TRUE(std::filesystem::create_directory(watched));

    // Without an instance: a folder that exists, and one not made yet, seen through its ancestor.
    ymFolderWatch near, far, retried;
    EXPECT_FALSE(near.watchOnly({watched}, ""));
    EXPECT_EQ(near.descriptor(), -1);
    EXPECT_FALSE(far.watchOnly({later + "/deeper"}, ""));
    EXPECT_FALSE(retried.watchOnly({watched}, ""));
    EXPECT_FALSE(far.changed());
    ymtest::writeFile(watched + "/entry", "");
    EXPECT_TRUE(near.changed());
    ASSERT_TRUE(std::filesystem::create_directory(later));
    EXPECT_TRUE(far.changed());
    EXPECT_FALSE(far.changed());

    // Instances given back: poll() takes inotify where it was missing, and watchOnly() has every
    // folder watched anew (none stays counted as unwatched).
    holder->giveBackEight();
    EXPECT_TRUE(ymtest::eventually(
        [&] {
            retried.poll();
            return retried.complete();
        },
        std::chrono::seconds(30)));
    EXPECT_GE(retried.descriptor(), 0);
    EXPECT_TRUE(near.watchOnly({watched}, ""));
    EXPECT_TRUE(far.watchOnly({later + "/deeper"}, ""));
    EXPECT_TRUE(far.complete());

    // With inotify, a folder standing for one not made yet counts only the next component.
    ymtest::writeFile(later + "/unrelated", "");
    EXPECT_FALSE(far.changed());
    ASSERT_TRUE(std::filesystem::create_directory(later + "/deeper"));
    EXPECT_TRUE(far.changed());

    // A folder named by nothing, or by a relative name of which nothing exists, is nothing to watch.
    ymFolderWatch none;
    EXPECT_TRUE(none.watchOnly({"", "nowhere/at/all"}, ""));
}

TEST_F(ScarceInotify, ADirectoryWatchTellsFromItsLooksAndFromInotifyOnceThereIsSome)
{
    ActingAs user(kUser);
    ASSERT_TRUE(user.acting);
    const std::string watched = folder.path() + "/watched";
    ASSERT_TRUE(std::filesystem::create_directory(watched));
    ymIOLoop::Use use;
    ASSERT_TRUE(use.running());

    std::mutex lock;
    std::vector<std::string> told;
    auto heard = [&](const std::string &name) {
        return ymtest::eventually(
            [&] {
                std::lock_guard<std::mutex> guard(lock);
                return std::find(told.begin(), told.end(), name) != told.end();
            },
            std::chrono::seconds(30));
    };
    std::unique_ptr<ymIOLoop::DirectoryWatch> watch;
    ASSERT_TRUE(ymIOLoop::shared().runAndWait(
        [&] {
            watch = ymIOLoop::DirectoryWatch::watch(watched, [&](const char *name) {
                std::lock_guard<std::mutex> guard(lock);
                told.push_back(name ? name : "(gone)");
            });
        },
        std::chrono::seconds(10)));
    ASSERT_NE(watch, nullptr);
    EXPECT_EQ(ymtest::inotifyInstances(getpid()), 0);

    ymtest::writeFile(watched + "/first", "");
    EXPECT_TRUE(heard("first"));
    holder->giveBackEight();
    EXPECT_TRUE(ymtest::eventually([] { return ymtest::inotifyInstances(getpid()) > 0; }, std::chrono::seconds(30)));
    ymtest::writeFile(watched + "/second", "");
    EXPECT_TRUE(heard("second"));
    std::filesystem::rename(watched, folder.path() + "/moved");
    EXPECT_TRUE(heard("(gone)"));
    {
        std::lock_guard<std::mutex> guard(lock);
        EXPECT_EQ(std::count(told.begin(), told.end(), "first"), 1);
    }
    ymIOLoop::shared().runAndWait([&] { watch.reset(); }, std::chrono::seconds(10));
}

}  // namespace
