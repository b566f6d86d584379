// ubrofdump as a user who cannot write beside the file: a debugger opening someone else's build.
#include "TestFiles.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>


namespace ubrof {
namespace {

namespace fs = boost::filesystem;
using test::ScratchDir;

constexpr int kNotReachable = 77;

struct DumpRun {
    int status = -1;
    std::string out;
};

// Runs "ubrofdump sample.d90" in folder, as user when one is given; output goes to outPath,
// opened before the user changes, so that it may lie where the user cannot write.
DumpRun summarise(const fs::path& folder, const std::string& outPath, const passwd* user)
{
    const pid_t child = fork();
    if (child == 0) {
        const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (out < 0 || dup2(out, 1) < 0 || dup2(out, 2) < 0)
            _exit(127);
        if (user && (setgroups(0, nullptr) != 0 || setgid(user->pw_gid) != 0 || setuid(user->pw_uid) != 0))
            _exit(127);
        if (chdir(folder.c_str()) != 0 || access(UBROFDUMP, X_OK) != 0)
            _exit(kNotReachable);
        execl(UBROFDUMP, UBROFDUMP, "sample.d90", static_cast<char*>(nullptr));
        _exit(127);
    }
    DumpRun run;
    int status = 0;
    if (child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status))
        run.status = WEXITSTATUS(status);
    run.out = test::fileText(outPath);
    return run;
}

TEST(Unprivileged, SummarisesASampleInAFolderItCannotWrite)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can run ubrofdump as another user";
    const passwd* nobody = getpwnam("nobody");
    if (!nobody)
        GTEST_SKIP() << "no user nobody";

    ScratchDir dir;
    const fs::path top(dir.dir());
    fs::permissions(top, fs::perms(0755));
    const fs::path mine = top / "mine", theirs = top / "theirs";
    for (const fs::path& folder : {mine, theirs}) {
        fs::create_directory(folder);
        fs::copy_file(UBROF_SAMPLE_FILE, folder / "sample.d90");
    }
    fs::permissions(theirs, fs::perms(0555));

    const DumpRun owner = summarise(mine, dir.path("owner.out"), nullptr);
    ASSERT_EQ(0, owner.status) << owner.out;
    ASSERT_TRUE(fs::exists(mine / "embedded_source")) << "the sample embeds sources";
    const DumpRun other = summarise(theirs, dir.path("other.out"), nobody);
    if (other.status == kNotReachable)
        GTEST_SKIP() << "nobody may not run " << UBROFDUMP;
    EXPECT_EQ(0, other.status);
    EXPECT_EQ(owner.out, other.out);
    EXPECT_FALSE(fs::exists(theirs / "embedded_source"));
}

} // namespace
} // namespace ubrof
