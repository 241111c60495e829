// The table of files of a forecast: every input and output table in a fixed order, named by
// its entry number; opening by kind, removal of outputs, the loaders that read every year of
// a rate table at once, and the read-only $ variables that show the state to table cells.
#pragma once
#include <array>
#include <cstddef>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "tables/labelled_array.h"
#include "kernel/region_table_reading.h"

// the entries by number; inputs 0 to 37, outputs 38 to 54
enum FileNumber {
    FT_BGWR = 0, FT_GEM = 1, FT_WEGZ = 2, FT_STRM = 3, FT_ZUDQ = 4, FT_ZUAQ = 5, FT_ECKGEM = 6, FT_ECKREG = 7,
    FT_SALDVOL = 8, FT_NEBB = 9, FT_NEBQ = 10, FT_NEBQQA = 11, FT_NEBGQT = 12, FT_NEBGQR = 13, FT_REAB = 14,
    FT_REAGZT = 15, FT_REAGZR = 16, FT_REAQ = 17, FT_REAR = 18, FT_REAQZA = 19, FT_DSGA = 20, FT_DSGR = 21,
    FT_ATTR = 22, FT_REFT = 23, FT_FRUC = 24, FT_BGWQG = 25, FT_STRB = 26, FT_ZUVOL = 27, FT_ZUVL = 28,
    FT_ZUVG = 29, FT_MEPT = 30, FT_ECKGEB = 31, FT_ECKGEBG = 32, FT_WEGVOL = 33, FT_WEGV = 34, FT_ECKTYP = 35,
    FT_ECKSTRB = 36, FT_ECKSTRBG = 37,
    FT_OUT_GEM = 38, FT_OUT_GEBAM = 39, FT_OUT_BEWGEM = 40, FT_OUT_BEWGEMAGG = 41, FT_OUT_ZUZUG = 42,
    FT_OUT_NEBA = 43, FT_OUT_WEGZUG = 44, FT_OUT_REAA = 45, FT_OUT_STROM = 46, FT_OUT_AGG = 47,
    FT_OUT_PYRAMID = 48, FT_OUT_BEW = 49, FT_OUT_BEWAGG = 50, FT_OUT_ZUVOLO = 51, FT_OUT_BGWG = 52,
    FT_OUT_FRUCFAK = 53, FT_OUT_STRBFAK = 54,
    FT_COUNT = 55
};

// the table itself; filled by fillFileTable
extern std::array<FileEntry, FT_COUNT> fileTable;

// $GEMALL of the run: the population results in one file for all years
extern int GEMALL;

// fills all entries; reads $GEMALL and $MONATE
void fillFileTable();

// Opens entry file by its kind: 0 and 1 for reading (the table search), 4 a new file per year,
// 5 a file per reference table appended to, 6 one file for all years. An output that is new
// gets its head. resultName receives the file name (size bytes). 0 on success; 1 for a kind
// that cannot be opened or a failed open (after its error message).
int openTable(FILE** stream, int file, char* resultName, size_t size);
// Closes a stream of openTable: an output is put into place whole, and a failure there is the
// fatal output error; an input is simply closed.
void closeTable(FILE* stream);
// A run owns the result directory of its variant: the outputs an earlier run left there are
// removed at the start (the yearly tables from the first year of this run on, all others).
// Returns the names removed.
std::vector<std::string> removeEarlierOutputs();
// the yearly tables of one year, for a run that failed in it; the names removed
std::vector<std::string> removeYearOutputs(int year);
// the result directory of the variant: Directory, Version and "/"
std::string variantDirectory();
// The tables that grow by a year at a time (bew.csv, bewgem.csv, agg*.csv, pyramid.csv, the
// expanded copies of input tables) and their lengths at the start of a year: a year that fails
// is cut off them again, and a table the year began is removed. The names of the tables cut.
void markYearStart();
std::vector<std::string> cutBackYear();
// deletes the output of an entry: directory, variant, "/", stem, ".csv"
void removeTable(int file);

// ---- all years of a rate table at once, for the differential equation method ----
// Each lists the files of the tables' directory matching the family, reads each into a table
// of the family's shape (rates checked to 0..1, fruc to 0..2) and files it under the year of
// its name. A family without any file, or whose first year lies after STARTJAHR, is an error.
std::map<int, LA5> ratesByYearBgwr();   // PR4WBG: TYWBG, BG from, BG to, GG, AG
std::map<int, LA3> ratesByYearFruc();   // PR2G: TYG, BG, AG
std::map<int, LA4> ratesByYearStrb();   // PR3S: TYS, BG, GG, AG
std::map<int, LA5> ratesByYearStrm();   // DR4FB: TYBv, TYBn, BG, GG, AG
std::map<int, LA5> ratesByYearWegz();   // PR4WA: TYQWA, TYA, BG, GG, AG
std::map<int, LA5> ratesByYearZuvg();   // DG5ZA: TYA, GZ, BG, GG, AG (numbers, not rates)

// the year in a rate file name after the four letters of its stem ("fruc2025.csv" is 2025);
// false when no number follows, as for "frucfak.csv"
bool rateFileYear(const std::string& fileName, int& year);

// ---- the state shown to the expression language ----
// publishes $STARTJAHR, $ENDJAHR, $JAHR, the dimensions, the type counts, the generic
// parameters, the reduced extents and the module letters, all read-only
void publishStateVariables();
void withdrawStateVariables();
