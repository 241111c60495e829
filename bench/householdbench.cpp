// Times the forecast phase of hhprog on many regions and years: a stock of a few households
// per region gives the quotas (untimed), a generated population forecast gem.csv and the
// assumptions zq.csv are then turned into households by type and size. Reports the time and
// the peak memory of the forecast run; a failed run ends the benchmark with status 1.
// usage: householdbench [regions] [years]   (default 9999 and 30: keys of four digits)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {
[[noreturn]] void fail(const std::string& text)
{
    fprintf(stderr, "householdbench: %s\n", text.c_str());
    exit(1);
}

void put(std::string& r, int column, const std::string& text) { r.replace(static_cast<size_t>(column - 1), text.size(), text); }

std::string number(long value, int width)
{
    std::string t = std::to_string(value);
    return std::string(static_cast<size_t>(width) - t.size(), ' ') + t;
}

// one person: role letters m mother, f father, c child, w wife, h husband, a alone, o other
std::string person(long region, long address, char role, int sex, int age, int size, int kids, bool first)
{
    std::string r(350, ' ');
    put(r, 1, "09001000");
    put(r, 9, number(address / 1000 + 1, 5));
    put(r, 14, number(address % 1000, 4));
    put(r, 24, number(region * 1000, 7));
    put(r, 31, "1");
    put(r, 117, std::to_string(sex));
    put(r, 123, role == 'c' ? "1" : "2");
    put(r, 132, "  0");
    put(r, 179, kids ? "5" : "1");
    put(r, 183, "   1");
    if (role == 'm' || role == 'c') put(r, 187, "1 ");
    if (role == 'm' || role == 'w') put(r, 189, "1");
    if (role == 'f' || role == 'h') put(r, 189, "2");
    if (role == 'm' || role == 'f') put(r, 190, "1");
    put(r, 195, "1");
    put(r, 227, "20231231");
    put(r, 251, number(age, 3));
    put(r, 256, first ? "1" : "0");
    put(r, 260, number(size, 2));
    put(r, 262, number(kids, 2));
    put(r, 350, "1");
    return r + "\n";
}

int run(const fs::path& root, const std::vector<std::string>& args)
{
    pid_t child = fork();
    if (child == 0) {
        if (chdir(root.c_str()) != 0) _exit(127);
        if (!freopen("/dev/null", "w", stdout)) _exit(127);
        std::vector<char*> argv;
        argv.push_back(const_cast<char*>("./App/orvane"));
        for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv("./App/orvane", argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
} // namespace

int main(int argc, char** argv)
{
    long regions = argc > 1 ? std::atol(argv[1]) : 9999;
    int years = argc > 2 ? std::atoi(argv[2]) : 30;
    if (regions < 1 || regions > 9999) fail("regions must lie in 1..9999 (keys of four digits)");
    fs::path app = fs::absolute(fs::path(argv[0])).parent_path().parent_path() / "App";
    if (!fs::exists(app / "orvane")) fail("no program at " + (app / "orvane").string());
    char tmpl[] = "/tmp/veldor-householdbench-XXXXXX";
    if (!mkdtemp(tmpl)) fail("no temporary directory");
    fs::path root = tmpl;
    fs::create_directories(root / "App");
    for (const auto& e : fs::directory_iterator(app)) fs::create_symlink(e.path(), root / "App" / e.path().filename());
    fs::create_directories(root / "Data");
    fs::create_directories(root / "hh");
    std::ofstream(root / "Data/veldor.ini") << "[DEFAULTS]\nRelease=bench\n[CSV]\nSpaltentrennzeichen=;\n[HHPROG]\nDirectory=hh/\n";
    std::ofstream(root / "hh/hhprog.ini") << "[HHPROG]\nR02map=4\nQtypCol=1\nProtokollumfang=0\nZeitreihenplot=0\nNBG=1\n";
    {
        std::ofstream ref(root / "hh/reftyp.csv");
        for (long r = 1; r <= regions; ++r) ref << r << ';' << 1 + r % 3 << '\n';
        std::ofstream stock(root / "hh/dstbest.txt");
        long address = 0;
        for (long r = 1; r <= regions; ++r) {
            int shift = static_cast<int>(r % 7);
            ++address;
            stock << person(r, address, 'm', 2, 30 + shift, 4, 2, true) << person(r, address, 'f', 1, 33 + shift, 4, 2, false)
                  << person(r, address, 'c', 1, 3 + shift, 4, 2, false) << person(r, address, 'c', 2, 9 + shift, 4, 2, false);
            ++address;
            stock << person(r, address, 'm', 2, 40 + shift, 2, 1, true) << person(r, address, 'c', 2, 16, 2, 1, false);
            ++address;
            stock << person(r, address, 'w', 2, 50 + shift * 3, 2, 0, true) << person(r, address, 'h', 1, 52 + shift * 3, 2, 0, false);
            ++address;
            stock << person(r, address, 'a', 1 + r % 2, 25 + shift * 8, 1, 0, true);
            ++address;
            stock << person(r, address, 'o', 1, 24, 2, 0, true) << person(r, address, 'o', 2, 26, 2, 0, false);
        }
    }
    if (run(root, {"hhprog", "-P", "0"}) != 0) fail("the quota phase failed; see " + root.string() + "/hh/Quoten/index.html");
    {
        std::mt19937 random(7);
        std::ofstream gem(root / "hh/gem.csv");
        char line[96];
        for (int y = 0; y < years; ++y)
            for (long r = 1; r <= regions; ++r)
                for (int g = 1; g <= 2; ++g)
                    for (int a = 0; a < 100; ++a) {
                        int n = snprintf(line, sizeof line, "%d;%ld;1;%d;%d;%.3f\n", 2024 + y, r, g, a, 2.0 + (random() % 1000) / 100.0);
                        gem.write(line, n);
                    }
        std::ifstream zqa(root / "hh/Quoten/zqa.csv");
        std::ofstream zq(root / "hh/zq.csv");
        std::string text;
        while (std::getline(zqa, text)) {
            if (text.empty() || !isdigit(static_cast<unsigned char>(text[0]))) continue;
            std::string rest = text.substr(text.find(';'));
            for (int y = 0; y < years; ++y) zq << 2024 + y << rest << '\n';
        }
    }
    auto start = std::chrono::steady_clock::now();
    int status = run(root, {"hhprog", "-Q", "0", "-P", "1"});
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    // every region and year: 5 rows of one-person households and 4 per household type whose
    // stock table is not empty (the stock above has no type 4, so 5 + 3 * 4)
    std::ifstream result(root / "hh/Prognose/haushalt.csv");
    long rows = 0;
    std::string text;
    while (std::getline(result, text))
        if (!text.empty() && isdigit(static_cast<unsigned char>(text[0]))) ++rows;
    long expected = regions * years * 17;
    if (status != 0 || rows != expected) {
        fprintf(stderr, "householdbench: the forecast phase failed (status %d) or wrote %ld rows instead of %ld; see %s\n", status,
                rows, expected, root.c_str());
        return 1;
    }
    printf("householdbench: %ld regions, %d years: %.2f s, peak memory %ld MB (%.0f region-years per second)\n", regions, years,
           seconds, usage.ru_maxrss / 1024, regions * years / seconds);
    std::error_code ec;
    fs::remove_all(root, ec);
    return 0;
}
