// A portable installation in a fresh temporary directory (App/ with the program and its
// files, Data/veldor.ini, _variant/ with a reference table of one region and its start
// population), and runs of the program inside it.
#pragma once
#include <map>
#include <string>
#include <tuple>
#include <vector>

struct RunResult {
    int status = -1;
    std::string out;
    std::string err;
};

class Sandbox {
public:
    Sandbox();
    ~Sandbox();
    const std::string& root() const { return dir; }
    std::string path(const std::string& rel) const { return dir + "/" + rel; }
    void write(const std::string& rel, const std::string& content) const;
    std::string read(const std::string& rel) const;
    bool exists(const std::string& rel) const;
    // runs App/orvane with the arguments (each quoted for the shell) from the root directory;
    // env: extra "NAME=value" settings; memoryKB: a limit of the address space, 0 for none
    RunResult run(const std::vector<std::string>& args, const std::vector<std::string>& env = {},
                  long memoryKB = 0) const;

private:
    std::string dir;
};

// the data lines of a population table that a run wrote with ";": year -> (GKZ, BG, GG, AG) -> value
using Cell = std::tuple<long long, int, int, int>;
using Table = std::map<Cell, double>;
std::map<int, Table> readPopulation(const std::string& text);
// the population at the end of a year of variant var/v
Table gemOf(const Sandbox& s, int year);

// number of non-overlapping occurrences of needle in text
int countOf(const std::string& text, const std::string& needle);
