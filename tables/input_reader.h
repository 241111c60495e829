// The input file reader: opens a table of the variant (numbered search, shared _variant
// fall-back, link files), reads index cells and value expressions line by line into a target
// array, checks what it can and reports fill degree, sums and errors to the protocol.
#pragma once
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tables/labelled_array.h"

class CsvReader;

// One row of the table of files: a table for reading or writing.
struct FileEntry {
    std::string name;                   // stem, may hold one %d
    int kind = 1;                       // 0 openInput, 1 openFile, 4, 5, 6 output kinds
    int lastIndexFromZero = 0;          // 1: the last index column counts from 0 (age)
    int checkMode = 0;                  // 0 none, 1 check cell ignored, 2 check number, 3 year section
    int regionColumn = 0;               // 0 none, else number of the region index column plus 1 (2 = first)
    int yearOffset = 0;                 // subtracted from the year to form the file number
    std::vector<std::string> columnNames;   // column keys of output kinds
    int valueDomain = 0;                // 0 any value, 1 counts (not negative), 2 shares and quotas (0 to 1)
    int fileNumber = -1;                // number of the file last opened, -1 none
    int linesWritten = -1;              // -1 until the first output
};

// What a read returns.
struct ReadResult {
    uint64_t nonZero = 0;               // assignments of a value other than 0
    uint64_t nonInteger = 0;            // of these, values that are not whole numbers
    double sum = 0;                     // sum of those values
};

// valueCheck values
enum ValueCheck { VC_PLAIN = 0, VC_PLAIN1 = 1, VC_RATE = 2, VC_ADDITIVE = 4 };

// ---- index cells ----

// The interval of an index cell. irand(a,b) is held as lo = hi = -1 with the bounds packed in m:
// upper 16 bits a, lower 16 bits b.
struct IndexInterval {
    long long lo = 1, hi = 0, m = 1;
    bool star = false;                  // the cell was "*"
    bool computed = false;              // a $ variable, *m, -k or irand was used
    bool isRandom() const { return lo == -1 && hi == -1; }
    long long randomLow() const { return (m >> 16) & 0xFFFF; }
    long long randomHigh() const { return m & 0xFFFF; }
};

// Parses one index cell: n, $VAR, a..b, a..b*m, a*m, a..b-k, *, irand(a,b) (any prefix of
// "irand"). first and last are the column's bounds, which "*" stands for. reader (may be
// nullptr) gives line number and line for messages. Trailing text gives the warning @csv_W1;
// and is skipped. An unknown variable gives the error "invalid variable %s in input", a
// function other than irand "invalid function %s in input"; both return false, and so does a
// cell without any index form (interval left empty: lo > hi).
bool parseIndexCell(const char* cell, long long first, long long last, IndexInterval& out,
                    CsvReader* reader = nullptr);
// the same, for callers that want the triple only
bool parseIndexCell(const char* cell, long long first, long long last, long long& lo, long long& hi, long long& m,
                    CsvReader* reader = nullptr);
// a random index of an irand interval, from the run's generator
long long drawRandomIndex(const IndexInterval& interval);

// The value of a $ variable of the language (let variables, published system variables, the
// run's dimensions); false when unknown.
bool variableValue(const char* name, double& value);

// ---- opening ----

// Opens by the search of input tables. directory: the variant file's directory ("" for the
// current directory), variant: appended with "/" when not empty; that is the base. Every table
// is looked for in the base, then the directory above it, then the shared _variant beside the
// base, a name.csv.lnk followed at each place. A name with %d is searched at each place from the
// number year - yearOffset down to STARTJAHR - 20 (stem "reft": number 1 is reftyp.csv). Sets
// file.fileNumber. *result receives the path opened (the link's target for a link).
// The protocol note ", <a ...>" goes to *note when given, else into the protocol.
// Returns 0, or the error number after the error message (when the protocol does not throw).
int openFile(FILE** opened, FileEntry& file, const std::string& directory, const std::string& variant,
             const std::string& name, const char* mode, std::string* result = nullptr, std::string* note = nullptr);
// Opens name in the first search path, the second (else the directory above the first), then
// ../_variant under the first; link files at each place. Returns 0 or the error number
// (a failure is noted with fn_notFound, no error message).
int openInput(FILE** opened, FileEntry& file, const std::vector<std::string>& searchPaths,
              const std::string& variant, const std::string& name, std::string* result = nullptr,
              std::string* note = nullptr);

// Opens the input table of an entry for reading by its kind: 0 through openInput with the
// search paths {Directory Version/, Directory}, 1 through openFile from Directory Version/. Sets the
// entry's fileNumber; clears traceLevel and expandNeeded, sets expandRequested. path gets the
// file opened, note the protocol text. Returns 0 or an error number.
int openReadTable(FileEntry& file, FILE** opened, std::string& path, std::string& note);

// The year a read works for: the forecast year JAHR, or STARTJAHR before the first year.
int readYear();
// check number of an entry: readYear() minus yearOffset
int checkNumber(const FileEntry& file);
// the file name of an entry for a number: the stem with %d filled, ".csv"; reft%d number 1 is reftyp.csv
std::string tableFileName(const FileEntry& file, int number);

// ---- reading ----

// The generic reader. indexCount 0 to 5; sizes: extent of each index column (-1 for a column
// not checked); names: the index names, null-separated as for the labelled arrays
// ("C.NTYB\0NBG\0NGG\0NAG\0"). sparse: additive reading, each value goes to put() and the
// target adds them after the read. Indices handed to a target are 0-based.
struct ReadTarget {
    virtual ~ReadTarget() = default;
    // the contiguous row of the last index for the other indices, or nullptr: then get and put
    virtual double* row(const long long* index) { return nullptr; }
    // the value of a cell, the undefined value while not assigned (doubles check)
    virtual double get(const long long* index) { return UNDEF; }
    // stores (or for additive reading collects) a value
    virtual void put(const long long* index, double value) {}
    // before a read that is not additive: every cell undefined
    virtual void clear() {}
    // after the read: f for every cell still undefined (in index order); the target then holds
    // its fill value there
    virtual void unassigned(const std::function<void(const long long* index)>& f) {}
    // what a cell no line names holds after the read: 0, or the value the array was made with
    // when the stage reads it as "fill 1" (the weights of regions and types)
    double fill = 0;
    // number of cells, for the fill degree
    virtual uint64_t cells() const { return 0; }
    // after an additive read: the collected values go into the target
    virtual void finish() {}
};
ReadResult readTable(FileEntry& file, ReadTarget& target, int sparse, int indexCount, const long long* sizes,
                     const char* names, int valueCheck);

// Typed entry points: sizes are taken from the target (which must be made), checkUndef is set
// to 1 before and after, and the table is printed into the protocol when values were read or
// valueCheck is 4. A cell that no line names gets fill (the hint counts it all the same).
ReadResult readTable(FileEntry& file, LA1& target, const char* names, int valueCheck = 0, double fill = 0);
ReadResult readTable(FileEntry& file, LA2& target, const char* names, int valueCheck = 0, double fill = 0);
ReadResult readTable(FileEntry& file, LA3& target, const char* names, int valueCheck = 0, double fill = 0);
ReadResult readTable(FileEntry& file, LA4& target, const char* names, int valueCheck = 0, double fill = 0);
ReadResult readTable(FileEntry& file, LA5& target, const char* names, int valueCheck = 0, double fill = 0);
// one value: no index column, the value cell is the first cell after the check
ReadResult readTable(FileEntry& file, double& target, const char* name, int valueCheck = 0);

// around a typed read: the doubles check of the arrays is on before and after
struct CheckUndefGuard {
    CheckUndefGuard();
    ~CheckUndefGuard();
};
// the cell kind a read table is printed with, and the total its print shows
int readKind(int valueCheck);
double readTotalShown(const ReadResult& r, int valueCheck);

// ---- the run that reads ----

// What the reader asks of the forecast it reads for: the regions of the reference table
// (ascending by key), the key list and divisor of a table read with key groups (cut), the
// run's $ variables and the forecast year. Without a run, no key is known and the year is
// STARTJAHR.
class ReadingRun {
public:
    virtual ~ReadingRun() = default;
    virtual size_t regionCount() const = 0;
    virtual long long regionKey(size_t position) const = 0;
    virtual std::vector<int64_t>& keysUnderCut() = 0;
    virtual void setRegionKeyScale(int64_t scale) = 0;
    virtual bool runVariable(const std::string& name, double& value) const = 0;
    // the forecast period being computed, 0 before the first year
    virtual int forecastYear() const = 0;
};
void setReadingRun(ReadingRun* run);
ReadingRun* readingRun();

// ---- region keys ----

// use counter of each region key, raised by every table that names the key; the reference
// table sets the keys to 0
std::map<long long, long>& regionKeyUse();

// the table under reading (for messages of other modules): its file name and reader, or
// nullptr/empty between reads
const std::string& readingName();
// an ensemble member's tables: looked for in its own directory, then in the variant directory
// given here, the directory above it and the shared _variant beside it (empty: the usual places)
void setMemberOf(const std::string& variantDirectory);
// the directory of the variant file, whose tables its variants share: the run's own, or for an
// ensemble member that of the variant it belongs to ("." for the current one)
std::string variantFileDirectory();
CsvReader* readingReader();
