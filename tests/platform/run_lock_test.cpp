// The lock of a result directory: a second process is refused and told who holds it; a holder
// killed with SIGKILL leaves nothing that blocks the next run.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/run_lock.h"

TEST(RunLock, ASecondProcessIsRefusedUntilTheHolderIsKilled)
{
    std::string dir = (std::filesystem::temp_directory_path() / ("veldor_lock_" + std::to_string(getpid()))).string();
    std::filesystem::create_directories(dir);
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::string holder, error;
        char ok = runLock::acquire(dir, holder, error) ? '1' : '0';
        if (write(ready[1], &ok, 1) != 1) _exit(2);
        pause();
        _exit(0);
    }
    char ok = 0;
    ASSERT_EQ(read(ready[0], &ok, 1), 1);
    EXPECT_EQ(ok, '1');

    std::string holder, error;
    EXPECT_FALSE(runLock::acquire(dir, holder, error));
    EXPECT_EQ(error, "");
    // the holder is named by its process number and command line
    EXPECT_EQ(holder.rfind(std::to_string(child) + " (", 0), 0u) << holder;
    EXPECT_NE(holder.find("veldor_tests"), std::string::npos) << holder;

    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_TRUE(runLock::acquire(dir, holder, error)) << error;
    // held already: asking again is no conflict
    EXPECT_TRUE(runLock::acquire(dir, holder, error));
    // a directory that is not there cannot be locked, and says why
    EXPECT_FALSE(runLock::acquire(dir + "/none", holder, error));
    EXPECT_EQ(error, "No such file or directory");
    close(ready[0]);
    close(ready[1]);
    std::filesystem::remove_all(dir);
}
