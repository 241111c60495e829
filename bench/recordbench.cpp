// Times dstmak makro on generated fixed-width data sets: stock records of persons and
// movement records of events, read and counted by the real program in a temporary
// installation. Reports records per second and the peak memory of the run.
// usage: recordbench [stock records] [movement records]   (default 1000000 and 200000)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "statistics/fixed_width_fields.h"

namespace fs = std::filesystem;

namespace {
void put(std::string& record, const FixedLayout& layout, const char* name, long long value)
{
    const FixedField& f = layout.field(name);
    std::string text = std::to_string(value);
    text.insert(0, static_cast<size_t>(f.width) - text.size(), ' ');
    record.replace(static_cast<size_t>(f.column - 1), static_cast<size_t>(f.width), text);
}

[[noreturn]] void fail(const std::string& text)
{
    fprintf(stderr, "recordbench: %s\n", text.c_str());
    exit(1);
}
} // namespace

int main(int argc, char** argv)
{
    long stockCount = argc > 1 ? std::atol(argv[1]) : 1000000;
    long movementCount = argc > 2 ? std::atol(argv[2]) : 200000;
    fs::path app = fs::absolute(fs::path(argv[0])).parent_path().parent_path() / "App";
    if (!fs::exists(app / "orvane")) fail("no program at " + (app / "orvane").string());
    char tmpl[] = "/tmp/veldor-recordbench-XXXXXX";
    if (!mkdtemp(tmpl)) fail("no temporary directory");
    fs::path root = tmpl;
    fs::create_directories(root / "App");
    for (const auto& e : fs::directory_iterator(app)) fs::create_symlink(e.path(), root / "App" / e.path().filename());
    fs::create_directories(root / "Data");
    fs::create_directories(root / "work");
    std::ofstream(root / "Data/veldor.ini") << "[DEFAULTS]\nRelease=bench\n[CSV]\nSpaltentrennzeichen=;\n"
                                               "[RATEN]\ndirDSTmak=work/\nR02DST=5\n";

    std::mt19937 random(42);
    {
        const FixedLayout& l = stockLayout();
        std::ofstream out(root / "work/dstbest2023.txt");
        for (long i = 0; i < stockCount; ++i) {
            std::string r(350, ' ');
            put(r, l, "R01", 9001000);
            put(r, l, "R02", 1000000 + static_cast<long long>(random() % 2000) * 100);
            r[30] = '1';
            put(r, l, "Z02", 20231231);
            put(r, l, "P02", 1 + random() % 2);
            put(r, l, "P05", random() % 5 == 0 ? 163 : 0);
            put(r, l, "A01", random() % 100);
            out << r << '\n';
        }
    }
    {
        const FixedLayout& l = movementLayout();
        std::ofstream out(root / "work/dstbew2024.txt");
        const char* kinds[][3] = {{"2", "2", "1"}, {"1", "1", "1"}, {"2", "3", "1"}, {"1", "3", "1"}, {"2", "4", "1"}};
        for (long i = 0; i < movementCount; ++i) {
            std::string r(350, ' ');
            put(r, l, "R01", 9001000);
            put(r, l, "R02", 1000000 + static_cast<long long>(random() % 2000) * 100);
            put(r, l, "RQZ", 1000000 + static_cast<long long>(random() % 2000) * 100);
            r[30] = '1';
            put(r, l, "Z01", 20240601);
            put(r, l, "P01", (1930 + random() % 94) * 10000 + 101);
            put(r, l, "P02", 1 + random() % 2);
            put(r, l, "P05", 0);
            put(r, l, "P05QZ", 0);
            put(r, l, "B05", 0);
            put(r, l, "NEUB", 0);
            put(r, l, "G01", 30);
            put(r, l, "G02", 0);
            put(r, l, "W40", random() % 16);
            put(r, l, "W41", 111000);
            const char* const* k = kinds[random() % 5];
            r[169] = k[0][0];
            r[170] = k[1][0];
            r[174] = k[2][0];
            out << r << '\n';
        }
    }

    auto start = std::chrono::steady_clock::now();
    pid_t child = fork();
    if (child == 0) {
        if (chdir(root.c_str()) != 0) _exit(127);
        if (!freopen("/dev/null", "w", stdout)) _exit(127);
        execl("./App/orvane", "./App/orvane", "dstmak", "makro", static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);

    std::ifstream page(root / "work/prot.htm");
    std::string text((std::istreambuf_iterator<char>(page)), std::istreambuf_iterator<char>());
    std::string expected = "Summe " + std::to_string(stockCount);
    bool ok = WIFEXITED(status) && WEXITSTATUS(status) == 0 && text.find(expected) != std::string::npos;
    std::error_code ec;
    if (!ok) {
        fprintf(stderr, "recordbench: dstmak makro failed (status %d) or its stock sum is not %ld; see %s\n",
                WIFEXITED(status) ? WEXITSTATUS(status) : -1, stockCount, root.c_str());
        return 1;
    }
    if (!getenv("RECORDBENCH_KEEP")) fs::remove_all(root, ec);
    long records = stockCount + movementCount;
    printf("dstmak makro: %ld stock + %ld movement records in %.3f s, %.0f records/s, peak memory %ld KB\n", stockCount,
           movementCount, seconds, records / seconds, usage.ru_maxrss);
    return 0;
}
