// The tool dstmak: turns the fixed-width statistics data sets of a directory into count
// tables, reference file templates and indicators. Constructing Dstmak is the run.
#pragma once
#include <array>
#include <cstdio>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "statistics/fixed_width_fields.h"

// counts by year and up to five further dimensions; hashed while counting, written in key order
using CountKey = std::array<long long, 6>;
struct CountKeyHash {
    size_t operator()(const CountKey& key) const;
};
using CountTree = std::unordered_map<CountKey, long long, CountKeyHash>;

// The tool's protocol prot.htm in the working directory. Lines gather in the temp file prot.tmp
// and become the page, written through a temporary and renamed into place, when it is closed; a
// line that starts with "!" and a class letter ('h' hint, 'w' warning) is shown in that class.
// When an output fails on the way (the fatal output error), the failure is the last line and the
// page is made all the same; prot.tmp never stays behind.
class DstProtocol {
public:
    ~DstProtocol();
    bool open(const std::string& directory);
    // kind 0 plain text, 'h' hint, 'w' warning
    void message(int kind, const char* format, ...) __attribute__((format(printf, 3, 4)));
    void text(const char* format, ...) __attribute__((format(printf, 2, 3)));
    // "[value    ] text of the key"
    void setting(const char* key, const std::string& value);
    void close();
    bool isOpen() const { return temp != nullptr; }

private:
    void put(const std::string& line);
    // the page from the temp file, which is closed and removed; nullptr (errno set) when the
    // page cannot be opened
    FILE* writePage();
    std::string directory;
    FILE* temp = nullptr;
};

// the settings of section RATEN the tool and its readers use
struct DstSettings {
    std::string r01filter, r02map;
    int neubau = 0, rtgkz = 0, w40dst = 3, abm = 1, anst = 0, neub = 0, nettobew = 0, aggBG = 0, aggGG = 0;
    int nagwu = 20, nagwo = 64, verbose = 0;
    void read();
};

class Dstmak;

// The filter every record passes: length, report year of the date field, R01 prefix, W01.
class RecordFilter {
public:
    RecordFilter(Dstmak& tool, const std::string& fileName, const FixedLayout& layout, const char* dateField);
    // false when the record is dropped; it is then counted
    bool accept(std::string_view record);
    // a field that must hold a number; false (with a message, the record counted as bad) otherwise
    bool number(std::string_view record, const char* field, long long& value);
    // the end line of the file with the time it took
    void finish(double seconds);

    Dstmak& tool;
    std::string fileName;
    const FixedLayout& layout;
    const FixedField& date;
    int fileYear = 0;        // from the file name, or from the first record
    bool yearWarned = false;
    size_t records = 0, rejectedR01 = 0, rejectedW01 = 0, ageMissing = 0, institution = 0;
    size_t tooShort = 0, badField = 0, wrongYear = 0;
    std::map<int, size_t> yearTally;
};

// Reads a data set line by line (at most 1024 bytes each, longer lines are cut), following a
// link file; calls each with the record without its line end. False when it cannot be opened.
bool readRecords(Dstmak& tool, const std::string& name, const std::function<void(std::string_view)>& each);

class Dstmak {
public:
    Dstmak(int count, char** vector);

    char directory[1024] = {};       // working directory, ends with "/"
    char r01filter[9] = {};
    DstProtocol* protocol = nullptr;
    std::vector<int> years;
    std::map<long long, long> regionKeys;    // region keys seen, with their records
    std::map<long long, long> outsideKeys;   // outside keys W40W41 seen
    size_t files = 0, plausibility = 0;

    DstSettings settings;
    bool indicatorRun = false;
    int highestStockAge = 0, highestMovementAge = 0;
    std::map<int, size_t> movementYears;   // movement records by year

    // the stock counts and the persons of institutions
    CountTree bestand, dsg;
    // the event tables
    CountTree geburt, baby, sterb, bgw, binnenwegzug, aussenwegzug, aussenzuzug, neubaubezug;
    long boys = 0, girls = 0;

    // the outside types of reftya.csv
    bool reftyaRead = false, reftyaFound = false, movementSeen = false, stockSeen = false;
    // the report years of the stock files read, so that an empty file still gets its table
    std::set<long long> stockYears;
    std::map<long long, int> reftya;
    std::set<long long> outsideMissing;

    DstProtocol& prot() { return *protocol; }
    std::string path(const std::string& name) const { return std::string(directory) + name; }
    // the report year of a file name: four digits between two non-digits, 0 when there are none
    static int yearOfName(const std::string& name);
    // Writes a count tree: one table of all years (name_roh.csv) and/or one per year
    // (name_<year>.csv); columns are year, the dimensions and the count.
    // the outside type of a key W40W41: from reftya.csv, else its leading W40DST digits, else 1
    int outsideType(long long key);
    // the settings lines of the protocol
    void showSettings(bool withIndicators);
    // walks the data sets of the directory into the trees
    void walk();
    // The per-year files are those of the years in the tree and in `years`, so that an empty
    // table of a year read still gets its file.
    void writeTree(const char* name, const char* title, const std::vector<const char*>& columns, const CountTree& tree,
                   bool allYears, bool perYear, const std::set<long long>& years = {});

    // one stock data set into bestand and dsg, and their tables with the layout descriptions
    void stockFile(const std::string& name);
    void writeStockTables();
    // one movement data set into the event tables, and their tables
    void movementFile(const std::string& name);
    void writeMovementTables();
    // the sub-command indi: the walk, then indikator.csv
    void indicators();

private:
    void list();
    void makro();
    void writeReftypTemplate();
    void writeReftyaTemplate();
};

// the tool entry of the dispatcher
void dstmak(int count, char** vector);
