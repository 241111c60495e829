// Runs commands of this executable as separate processes, as many at once as allowed, each
// with its console going to a file of its own.
#pragma once
#include <functional>
#include <string>
#include <vector>

struct MemberRun {
    std::vector<std::string> arguments;   // behind the program itself
    std::string consoleFile;              // standard output and standard error
    int status = -1;                      // exit status; -1: did not start or ended by a signal
    std::string failure;                  // why it did not start, or the signal that ended it
};

// the program that runs now, to be started again as a member
std::string ownExecutable();

// runs every command, at most `jobs` at once, in order of the list; `done` is called in this
// process as each one ends (in the order they end)
void runMembers(std::vector<MemberRun>& runs, int jobs, const std::function<void(MemberRun&)>& done);
