#include "ensemble/member_runs.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

std::string ownExecutable()
{
    char buffer[4096];
    ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (n <= 0) return {};
    return std::string(buffer, size_t(n));
}

namespace {

// starts one run; its process id, or -1 with the reason in the run
pid_t start(const std::string& program, MemberRun& run)
{
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (std::string& a : run.arguments) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, run.consoleFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    pid_t pid = -1;
    int err = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (err != 0) {
        run.failure = "start " + program + ": " + std::strerror(err);
        run.status = -1;
        return -1;
    }
    return pid;
}

} // namespace

void runMembers(std::vector<MemberRun>& runs, int jobs, const std::function<void(MemberRun&)>& done)
{
    if (jobs < 1) jobs = 1;
    const std::string program = ownExecutable();
    std::map<pid_t, size_t> running;
    size_t next = 0;
    while (next < runs.size() || !running.empty()) {
        while (next < runs.size() && int(running.size()) < jobs) {
            MemberRun& run = runs[next];
            pid_t pid = start(program, run);
            if (pid < 0) done(run);
            else running[pid] = next;
            ++next;
        }
        if (running.empty()) continue;
        int status = 0;
        pid_t pid = waitpid(-1, &status, 0);
        if (pid < 0) {
            if (errno == EINTR) continue;
            break;
        }
        auto it = running.find(pid);
        if (it == running.end()) continue;
        MemberRun& run = runs[it->second];
        running.erase(it);
        if (WIFEXITED(status)) {
            run.status = WEXITSTATUS(status);
        } else {
            run.status = -1;
            run.failure = WIFSIGNALED(status) ? std::string("ended by signal ") + strsignal(WTERMSIG(status))
                                              : std::string("ended abnormally");
        }
        done(run);
    }
}
