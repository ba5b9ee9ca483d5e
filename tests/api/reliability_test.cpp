// What the library does when the system lets it down: full disks, paths
// that are no files, torn files, files shorter or longer than they say, and
// many threads at once.
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "murvio.h"
#include "support/api_files.h"
#include "support/case_files.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using namespace murv::testing;

// Limits the size of files this process writes, as a full disk would.
struct FileSizeLimit {
    explicit FileSizeLimit(rlim_t bytes) {
        ::getrlimit(RLIMIT_FSIZE, &saved);
        const rlimit lim{bytes, saved.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &lim);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &saved);
        ::signal(SIGXFSZ, handler);
    }
    rlimit saved{};
    void (*handler)(int) = ::signal(SIGXFSZ, SIG_IGN);
};

// Paths that are no regular files are refused at once, never waited on.
TEST(NotAFile, EveryOpenCallRefusesAtOnce) {
    TempDir dir;
    const std::string fifo = dir.File("pipe");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const std::string good = dir.File("good.murv");
    ASSERT_TRUE(WriteCaseFile(good, 2, false).AllOk());

    ::alarm(20);  // a hang ends the test instead of the run
    for (const std::string& path : {fifo, std::string("/dev/null"), std::string("/dev/zero"), dir.Path()}) {
        SCOPED_TRACE(path);
        int h = 7;
        const int FO = MURV_RC_FILE_OPEN;
        EXPECT_EQ((std::array{murvOpenRead(path.c_str(), &h), murvOpenWrite(path.c_str(), &h),
                              murvOpenAppend(path.c_str(), &h), murvOpenWriteCopy(path.c_str(), good.c_str(), &h),
                              murvOpenWriteCopy(dir.File("copy.murv").c_str(), path.c_str(), &h)}),
                  (std::array{MURV_RC_BAD_FILE, FO, FO, FO, FO}));
        EXPECT_EQ(h, -1);
    }
    ::alarm(0);
    EXPECT_FALSE(fs::exists(dir.File("copy.murv")));
}

// An existing file is replaced only by a complete new one: until the close
// succeeds it stays as it was (the fault sweep fails each step of it).
TEST(Replace, OldFileSurvivesUntilTheNewOneIsComplete) {
    TempDir dir;
    const std::string path = dir.File("data.murv");
    const mode_t mask = ::umask(022);
    ASSERT_TRUE(WriteCaseFile(path, 50, true, 1000).AllOk());
    ::umask(mask);
    struct stat st {};
    ASSERT_EQ(::stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0644u) << "a new file gets the permissions the umask leaves";
    ::chmod(path.c_str(), 0640);
    const std::string before = FileBytes(path);

    const int h = OpenNew(path, {{"x", 0}, {"s", 12}});
    ASSERT_EQ(murvCommitHeader(h), MURV_RC_OK);
    Codes codes;
    WriteCases(h, codes, 0, 20);
    ASSERT_TRUE(codes.AllOk());
    EXPECT_EQ(FileBytes(path), before) << "the old file is untouched while the new one is written";
    EXPECT_EQ(murvCloseWrite(h), MURV_RC_OK);
    EXPECT_TRUE(HoldsCases(path, 0, 20));
    ASSERT_EQ(::stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u) << "the replacement keeps the old file's permissions";
}

// Cases appended to a file that ends in a few stray bytes start right behind
// its last whole case, and the stray bytes are gone afterwards. An append
// that fills the disk (a real failure; the fault sweep injects all the
// others) leaves every case the file had before.
TEST(Append, TornTailIsOverwrittenAndFailureKeepsTheOldCases) {
    for (const bool compressed : {false, true}) {
        SCOPED_TRACE(compressed ? "compressed" : "plain");
        TempDir dir;
        const std::string path = dir.File("torn.murv"), fresh = dir.File("fresh.murv");
        ASSERT_TRUE(WriteCaseFile(path, 7, compressed).AllOk());
        ASSERT_TRUE(WriteCaseFile(fresh, 10, compressed).AllOk());
        std::ofstream(path, std::ios::binary | std::ios::app) << "xyz";
        ASSERT_TRUE(AppendCases(path, 7, 3).AllOk());
        EXPECT_TRUE(HoldsCases(path, 0, 10));
        EXPECT_EQ(fs::file_size(path), fs::file_size(fresh));

        const std::string before = FileBytes(path);
        const Codes codes = [&] {
            const FileSizeLimit limit(before.size() + 2048);
            return AppendCases(path, 10, 20000);
        }();
        EXPECT_EQ(std::pair(codes.first, codes.close != MURV_RC_OK), std::pair(MURV_RC_FILE_WRITE, true));
        EXPECT_EQ(FileBytes(path), before);
        EXPECT_TRUE(HoldsCases(path, 0, 10));
    }
}

#ifdef MURVIO_EXAMPLE
// Readers above the interface compare the cases they read with the count the
// file states; the example client is one of them.
TEST(CaseCount, ExampleClientReportsShorterAndLongerFiles) {
    TempDir dir;
    const std::string path = dir.File("count.murv");
    // Compressed or not, the count the file states for its 100 cases, the exit code.
    for (const auto& [compressed, stated, exitCode] : {std::tuple(true, 100, 0), {true, 1000, 1}, {true, 99, 1},
                                                        {false, 1000, 1}}) {
        SCOPED_TRACE(testing::Message() << compressed << ' ' << stated);
        ASSERT_TRUE(WriteCaseFile(path, 100, compressed).AllOk());
        ASSERT_TRUE(SetStatedCaseCount(path, stated));
        const int status = std::system((std::string(MURVIO_EXAMPLE) + " '" + path + "' >/dev/null 2>&1").c_str());
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), exitCode);
    }
}
#endif

// Loading the library sets only the character classes and collation to the
// user's default; the host's number and time formatting stay as they were.
// Run with LC_ALL naming a locale (see the test list); skipped otherwise.
TEST(LoadLocale, OnlyCharacterCategoriesFollowTheUser) {
    const char* user = std::getenv("LC_ALL");
    if (!user || !*user) GTEST_SKIP() << "needs LC_ALL";
    EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), user);
    EXPECT_STREQ(std::setlocale(LC_COLLATE, nullptr), user);
    EXPECT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "C");
    EXPECT_STREQ(std::setlocale(LC_TIME, nullptr), "C");
}

// Different handles on different threads: each thread writes, appends to
// and reads its own files while others open and close handles in a loop.
TEST(Threads, HandlesOnDifferentThreadsDoNotInterfere) {
    TempDir dir;
    const std::string shared = dir.File("shared.murv");
    ASSERT_TRUE(WriteCaseFile(shared, 10, true).AllOk());
    std::vector<std::thread> threads;
    int failures[6] = {};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            const std::string path = dir.File("t" + std::to_string(t) + ".murv");
            for (int round = 0; round < 10; ++round)
                failures[t] += !WriteCaseFile(path, 200, (t + round) % 2 == 0, t * 1000).AllOk() +
                               !AppendCases(path, t * 1000 + 200, 50).AllOk() + !HoldsCases(path, t * 1000, 250);
        });
    for (int t = 4; t < 6; ++t)
        threads.emplace_back([&, t] {
            for (int round = 0; round < 200; ++round) {
                int h = -1;
                failures[t] += murvOpenRead(shared.c_str(), &h) != MURV_RC_OK || murvCloseRead(h) != MURV_RC_OK;
            }
        });
    for (auto& th : threads) th.join();
    for (int t = 0; t < 6; ++t) EXPECT_EQ(failures[t], 0) << "thread " << t;
}

}  // namespace
