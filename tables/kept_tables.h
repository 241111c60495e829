// Tables read once and kept for the run. A table whose file name carries no year and whose
// cells use nothing that changes from year to year (no $ variable, no drawn index, no
// expression, no guard, no command line) gives the same assignments every year: the reader
// records them while it reads and does them again in later years, without reading and parsing
// the file. A table by years is kept section by section (a run of lines with the same year
// cell): a year whose sections were all read before is served from memory; any other year
// reads the file, and the sections read then are kept beside the others.
#pragma once
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

// the year section of a line of a table by years (its check cell); every year for a table
// without year cells
struct YearSection {
    long long lo = 1, hi = 0;
    bool star = true;       // "*", or no year cell: every year
    bool contains(long long year) const { return star || (lo <= year && year <= hi); }
    bool operator==(const YearSection& o) const
    {
        return std::tie(lo, hi, star) == std::tie(o.lo, o.hi, o.star);
    }
};

// the lines of one section in a row, and what their reading assigned
struct KeptSection {
    YearSection section;
    bool recorded = false;
    // the assignments in their order: indexCount indices (0-based) and the value stored
    std::vector<int32_t> indices;
    std::vector<double> values;
    // the counts and the sum of these lines, as the reader reports them
    uint64_t nonZero = 0, nonInteger = 0;
    double sum = 0;
};

// what the readings of one file into one target shape assigned
struct KeptTable {
    // the file as it stood when read: a file changed since is read again
    std::string path;
    long long size = -1, modified = -1;
    int indexCount = 0;
    // a table that overwrites keeps each cell of a section once, with its last value
    bool lastWins = false;
    std::vector<KeptSection> sections;
    size_t assignments = 0;

    // every section that holds year was read before (and one at least does)
    bool servesYear(long long year) const;
};

// Gathers the assignments of a reading into a kept table while it runs; gives up at the first
// thing that ties the table to the year, or when the table grows past its limit.
class KeptTableRecorder {
public:
    // table: the kept table of the file (with sections of earlier readings) or a new one;
    // nullptr when the reading cannot be kept
    void start(std::unique_ptr<KeptTable> table);
    bool on() const { return table != nullptr; }
    // the reading depends on the year (or on something else that may change): nothing is kept
    void giveUp();
    bool gaveUp() const { return abandoned; }
    // a data line begins in section s, read this year (inside) or skipped
    void line(const YearSection& s, bool inside);
    void assignment(const long long* index, double value);
    // the reading's counts go to the section of the line
    void counted(double value);
    // the finished table, or nullptr when it cannot be kept
    std::unique_ptr<KeptTable> finish();

private:
    using Key = std::array<int32_t, 5>;
    struct KeyHash {
        size_t operator()(const Key& k) const;
    };
    std::unique_ptr<KeptTable> table;
    bool abandoned = false;
    long long current = -1;            // the section of the line being read
    bool recording = false;            // that section is read now for the first time
    std::unordered_map<Key, size_t, KeyHash> position;   // lastWins: where each cell of the section stands
};

// the kept tables of the run, by file and by the shape of the target they were read into
namespace keptTables {
// the key of a reading: path, sparse or not, the index extents, the value check and the fill
std::string key(const std::string& path, int sparse, int indexCount, const long long* sizes, int valueCheck,
                double fill);
// The table kept under key when the file at its path is unchanged (else it is forgotten).
const KeptTable* find(const std::string& key);
// takes the table out of the store for a reading that adds sections; a new one for a new key
std::unique_ptr<KeptTable> take(const std::string& key, const std::string& path, int indexCount, bool lastWins);
void keep(const std::string& key, std::unique_ptr<KeptTable> table);
// a table that depends on the year is not tried again in this run
void never(const std::string& key);
bool isNever(const std::string& key);
// forgets all tables (a new run, or the end of one)
void forget();
// most assignments one kept table may hold
constexpr size_t kLimit = 4u << 20;
} // namespace keptTables
