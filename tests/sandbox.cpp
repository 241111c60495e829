#include "sandbox.h"

#include <algorithm>
#include <atomic>
#include <ctime>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

Sandbox::Sandbox()
{
    static std::atomic<int> counter{0};
    dir = (fs::temp_directory_path() / ("veldor-test-" + std::to_string(getpid()) + "-" + std::to_string(counter++))).string();
    fs::remove_all(dir);
    fs::create_directories(dir + "/App");
    fs::create_directories(dir + "/Data");
    for (const auto& e : fs::directory_iterator(VELDOR_APPDIR)) {
        if (e.path().filename() == "orvane") fs::create_symlink(e.path(), dir + "/App/orvane");
        else fs::copy_file(e.path(), dir + "/App/" + e.path().filename().string());
    }
    write("Data/veldor.ini", "[DEFAULTS]\nRelease=9.4\n[TRACE]\nlogfile=1\n");
    // the variants of the tests stand in var/; the shared variant var/_variant holds a
    // reference table of one region and a start population of one person for every start
    // year from 2016 to 2035 and the next calendar year, and rates of no births and no deaths,
    // which a test's own tables take the place of
    write("var/_variant/reftyp.csv", "1,Gebiet,1,1,1,1,1,1,1,1,1,1,1\n");
    time_t now = time(nullptr);
    tm local;
    localtime_r(&now, &local);
    for (int year = 2015; year <= std::max(2034, local.tm_year + 1900 + 1); ++year)
        write("var/_variant/gem" + std::to_string(year) + ".csv", std::to_string(year) + ",1,1,1,0,1\n");
    // no births and no deaths
    write("var/_variant/fruc2015.csv", "# no births\n");   // empty on purpose, and saying so
    write("var/_variant/strb2015.csv", "*,*,*,*,0\n");
}

Sandbox::~Sandbox()
{
    if (!std::getenv("VELDOR_KEEP_SANDBOX")) {
        std::error_code ec;
        fs::permissions(dir, fs::perms::owner_all, fs::perm_options::add, ec);
        fs::remove_all(dir, ec);
    }
}

void Sandbox::write(const std::string& rel, const std::string& content) const
{
    fs::create_directories(fs::path(path(rel)).parent_path());
    std::ofstream f(path(rel), std::ios::binary);
    f << content;
}

std::string Sandbox::read(const std::string& rel) const
{
    std::ifstream f(path(rel), std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

bool Sandbox::exists(const std::string& rel) const { return fs::exists(path(rel)); }

RunResult Sandbox::run(const std::vector<std::string>& args, const std::vector<std::string>& env, long memoryKB) const
{
    auto quote = [](const std::string& s) {
        std::string q = "'";
        for (char c : s) {
            if (c == '\'') q += "'\\''";
            else q += c;
        }
        return q + "'";
    };
    std::string cmd = "cd " + quote(dir) + " && ";
    if (memoryKB > 0) cmd += "ulimit -v " + std::to_string(memoryKB) + " && ";
    cmd += "env -u LC_ALL LANG=C.UTF-8 XDG_CONFIG_HOME=" + quote(dir + "/cfg");
    for (const auto& e : env) cmd += " " + quote(e);
    cmd += " ./App/orvane";
    for (const auto& a : args) cmd += " " + quote(a);
    cmd += " >" + quote(dir + "/.stdout") + " 2>" + quote(dir + "/.stderr") + " </dev/null";
    RunResult r;
    int rc = std::system(cmd.c_str());
    r.status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    r.out = read(".stdout");
    r.err = read(".stderr");
    return r;
}

int countOf(const std::string& text, const std::string& needle)
{
    int n = 0;
    for (size_t p = text.find(needle); p != std::string::npos; p = text.find(needle, p + needle.size())) ++n;
    return n;
}

std::map<int, Table> readPopulation(const std::string& text)
{
    std::map<int, Table> years;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("\xEF\xBB\xBF", 0) == 0) line = line.substr(3);
        if (line.empty() || line[0] == '#') continue;
        std::vector<std::string> f;
        std::stringstream ls(line);
        std::string cell;
        while (std::getline(ls, cell, ';')) f.push_back(cell);
        if (f.size() != 6) continue;
        years[std::stoi(f[0])][{std::stoll(f[1]), std::stoi(f[2]), std::stoi(f[3]), std::stoi(f[4])}] = std::stod(f[5]);
    }
    return years;
}

Table gemOf(const Sandbox& s, int year)
{
    auto all = readPopulation(s.read("var/v/gem" + std::to_string(year) + ".csv"));
    return all.count(year) ? all[year] : Table{};
}
