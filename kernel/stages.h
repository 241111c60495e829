// The static stage operations of the forecast kernel.
#pragma once

#include <string>

#include "tables/labelled_array.h"

class Orvane;
class MonteCarlo;
struct YearStep;

// the forecast period being computed
extern int JAHR;

class RK {
public:
    static int PRO(Orvane* orvane);                       // the driver of one forecast
    static void INI(Orvane* orvane);                      // year initialisation
    static void PAG(MonteCarlo& mc, Orvane* orvane);      // year step
    static void EBB(Orvane& c, YearStep& y);              // new building at type level
    static void REA(Orvane& c, YearStep& y);              // demolition at type level
    // external migration at type level; non-zero when a new table of out-migration rates was read
    static int IRW(MonteCarlo& mc, Orvane& c, YearStep& y);
    static void SZW(Orvane& c, YearStep& y);              // out- and in-migration together to a target
    static void ALL(Orvane& c);                           // in-migration of each area to its target types
    // internal migration between the types: rates to numbers on the population left after new
    // building and demolition, with supply and demand of the types; the balance to the limits
    static void ASM(Orvane& c, YearStep& y);
    static void ABG(Orvane& c, const LA4& BR30);
    static void input();                                  // input stage: declare and read all tables
    static void checkCombinations(const Orvane& c);       // the module combinations, before the first year
    static void REF();                                    // reads the reference table of regions
    // rows of the outputs by aggregate level lev: their number, the key of row i, the largest key
    static int refRows(int lev);
    static long long refKey(int lev, int i);
    static long long refMaxKey(int lev);
    // lowest (0 or 1) and highest number used in a column of the reference table, 3 (TYG) to 13 (AGG)
    static int refLowest(int column);
    static int refHighest(int column);
    static void releaseYear();                            // release the arrays of a year
    static void report();                                 // run report of the settings
    // dimension table of the run report; the year initialisation shows it in the start year
    // and in the year after the first reference table entry
    static void reportDimensions(const Orvane& orvane);
};


// the summary of a finished run: unused region keys, charts, pyramid link, gstrom close
void cleanUpPrognose(Orvane* orvane);
// prot/results.htm, the overview of the run's results; finished is false for a run that stopped
void writeResultsOverview(const Orvane& c, bool finished);
// A page of prot/ that a step after the forecast writes (its file and the dictionary key of its
// title): the overview links it, since the protocol is closed before the page exists.
void announceLaterPage(const std::string& file, const std::string& titleKey);

// period label of a counter value under $MONATE
int periodLabel(int year);
