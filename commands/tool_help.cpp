#include "commands/tool_help.h"

#include <cstring>
#include <map>

namespace {

struct ToolHelp {
    const char* options;   // the tool's option letters as its scanner reads them; "" for none
    const char* text;
};

const std::map<std::string, ToolHelp>& helps()
{
    static const std::map<std::string, ToolHelp> table = {
        {"orvane",
         {"cd:e:j:l:o:pv:w:",
          "orvane orvane [options]: the population forecast of one variant\n"
          "Reads <directory><variant>.ini and the tables of the variant, writes gem<year>.csv, bew.csv,\n"
          "bewgem.csv, ... into <directory><variant>/ and the protocol <directory><variant>/prot/index.html.\n"
          "\n"
          "  -c            run the callbacks CALLBACK0 and CALLBACK2 of the variant file    orvane orvane -c -d demo/ -v demo\n"
          "  -d directory  directory of the variant file, ending in /                     orvane orvane -d demo/ -v demo\n"
          "  -e seed:dir   an ensemble member's seed and tables (the ensemble sets it)    orvane orvane -e 4711:/srv/demo/ -d work/ -v demo\n"
          "  -j n          ensemble members or scenarios at once (default: the cores)     orvane orvane -j 2 -d demo/ -v demo -o 'option($ENSEMBLE 100)'\n"
          "  -l language   language of messages and column names (de, en)                 orvane orvane -l en -d demo/ -v demo\n"
          "  -o expression named options and other expressions; includes -p             orvane orvane -o 'option($STACK 1)' -d demo/ -v demo\n"
          "  -p            run the loops over regions in parallel                          orvane orvane -p -d demo/ -v demo\n"
          "  -v variant    name of the variant: <directory><variant>.ini                   orvane orvane -d demo/ -v demo\n"
          "  -w directory  change to this directory first                                  orvane orvane -w /srv/forecast -d demo/ -v demo\n"
          "  -h, --help    this help\n"
          "\n"
          "Exit status: 0 after a complete run, 1 when the options, the variant file or the forecast failed.\n"}},
        {"hhprog",
         {"C:d:E:F:l:N:M:O:P:Q:r:R:S:T:U:w:Vp",
          "orvane hhprog [options]: the household forecast\n"
          "Reads Directory of section HHPROG of veldor.ini and hhprog.ini there; the quota phase classifies the\n"
          "stock records dstbest.txt into Quoten/, the forecast phase applies them to gem.csv into Prognose/.\n"
          "\n"
          "  -d directory  input directory, a prefix of every file name                    orvane hhprog -d demo/hh/\n"
          "  -F rule       number of significant digits of R02 (the R02 map rule)          orvane hhprog -F 3\n"
          "  -l language   language of the dictionary (de)                                 orvane hhprog -l de\n"
          "  -M bits       micro output of the stock records, 0 to 7                       orvane hhprog -P 0 -M 1\n"
          "  -N 0|1        keep only records with W04 = 1                                  orvane hhprog -N 1\n"
          "  -O age        upper age limit of the age classes (default 65)                 orvane hhprog -O 67\n"
          "  -P 0|1        run the forecast phase                                          orvane hhprog -Q 0 -P 1\n"
          "  -Q 0|1        run the quota phase                                             orvane hhprog -Q 1 -P 0\n"
          "  -R 0..3       time series plot                                                orvane hhprog -R 2\n"
          "  -T column     column of the household type in reftyp.csv; 0 each region       orvane hhprog -T 11\n"
          "  -U age        lower age limit of the age classes (default 35)                 orvane hhprog -U 30\n"
          "  -V            protocol volume (the letter takes no value)                     orvane hhprog -V\n"
          "  -w directory  change to this directory first                                  orvane hhprog -w /srv/households\n"
          "  -h, --help    this help\n"
          "\n"
          "Exit status: 0 after a complete run, 1 on a wrong option or a failed phase.\n"}},
        {"dstmak",
         {"",
          "orvane dstmak list|makro|indi: count tables from fixed-width statistics records\n"
          "Works in dirDSTmak of section RATEN of veldor.ini (default the current directory).\n"
          "\n"
          "  list          print the files of the directory                                orvane dstmak list\n"
          "  makro         count the stock and movement records dst*.??? into *_roh.csv\n"
          "                tables and the reference table template reftyp_roh.csv           orvane dstmak makro\n"
          "  indi          indicators of the counted tables into indikator.csv             orvane dstmak indi\n"
          "  -h, --help    this help\n"
          "\n"
          "Exit status: 0 after a complete run, 1 on a failure it detects.\n"}},
        {"zrgem",
         {"a:l:o:r",
          "orvane zrgem [options]: the yearly gem<year>.csv of the variant named in veldor.ini as one time series\n"
          "\n"
          "  -a columns    five column rules: $i, /n, ^n, a number or 'file c1 c2'         orvane zrgem -a '$i,$i,$i,$i,^65'\n"
          "  -l language   language of the dictionary (de, en)                             orvane zrgem -l en\n"
          "  -o name       name of the output table (default zr_gem)                       orvane zrgem -o zr_alter\n"
          "  -r            the run mode of a forecast's closing aggregation                orvane zrgem -r\n"
          "  -h, --help    this help\n"
          "\n"
          "Exit status: 1 once the aggregation has run to its end, 0 when only the usage was shown.\n"}},
        {"adeton",
         {"",
          "orvane adeton input.csv output.csv: adjusts a table to row sums and column targets\n"
          "(chi-square closest table, by singular value decomposition; the log goes to log.txt in the\n"
          "settings directory).\n"
          "\n"
          "Input: a table of numbers separated by the column separator; comment lines (#) are copied to the\n"
          "output. All lines but the last two are the table; the sum of each line is its row target. The last\n"
          "two lines are the lower and the upper target of each column, which must be equal.\n"
          "Output: the adjusted table, one line per table line, cells as %.15g.\n"
          "\n"
          "  input.csv     the table and its two target lines                              orvane adeton tabelle.csv\n"
          "  output.csv    the adjusted table                                              orvane adeton tabelle.csv angepasst.csv\n"
          "  -h, --help    this help\n"
          "\n"
          "Exit status: 0; failures are written to the log.\n"}},
        {"shp2plt",
         {"a:cd:g:lp:r:t:s:x:",
          "orvane shp2plt [options] shapefile: a map of result tables over the regions of a shapefile, as PNG\n"
          "\n"
          "  -a attr[=col] attribute of the .dbf holding the region key (default GKZ)        orvane shp2plt -a KEY=GKZ gebiete\n"
          "  -c            colour classes of about equal count                             orvane shp2plt -c -r gem2040.csv gebiete\n"
          "  -d directory  directory of the shapefile, the tables and the picture          orvane shp2plt -d demo/ gebiete\n"
          "  -g picture    the PNG to write (default karte.png)                            orvane shp2plt -g map.png gebiete\n"
          "  -l            label the regions                                               orvane shp2plt -l gebiete\n"
          "  -p parts      a pie per region, one slice per column or condition             orvane shp2plt -p 'AG=0..17,AG=18..64' gebiete\n"
          "  -r tables     result tables joined by region key                              orvane shp2plt -r demo/gem2040.csv gebiete\n"
          "  -s value      year, change between years, conditions and value column          orvane shp2plt -s 2024:2040 gebiete\n"
          "  -t title      the title of the map                                            orvane shp2plt -t 'Population 2040' gebiete\n"
          "  -x parts      a bar chart per region, one bar per part                        orvane shp2plt -x 'BG=1,BG=2' gebiete\n"
          "  -h, --help    this help\n"
          "\n"
          "Exit status: 0 when the picture was drawn, 1 on bad input (nothing is written then).\n"}},
    };
    return table;
}

} // namespace

std::string programHelp()
{
    return "\norvane TOOL [options]: small-area demographic forecasting\n"
           "\n"
           "  orvane    the population forecast of a variant: result tables, protocol, charts\n"
           "  hhprog    the household forecast on the population forecast and household records\n"
           "  dstmak    count tables and reference table templates from fixed-width statistics records\n"
           "  zrgem     the yearly population tables of a variant as one time series\n"
           "  adeton    adjust a table to given row sums and column targets\n"
           "  shp2plt   maps of result tables over the regions of a shapefile\n"
           "\n"
           "orvane TOOL --help prints the options of a tool, for example: orvane orvane --help\n"
           "man orvane tells the variant file, the result files and the exit statuses.\n";
}

std::string toolHelp(const std::string& tool)
{
    auto it = helps().find(tool);
    return it == helps().end() ? "" : it->second.text;
}

bool helpAsked(const std::string& tool, int count, char* const* vector)
{
    auto it = helps().find(tool);
    if (it == helps().end()) return false;
    const char* options = it->second.options;
    bool hFree = std::strchr(options, 'h') == nullptr;
    for (int i = 0; i < count; ++i) {
        const char* a = vector[i];
        if (std::strcmp(a, "--help") == 0) return true;
        if (std::strcmp(a, "--") == 0) return false;
        if (a[0] != '-' || a[1] == '\0') continue;
        // a cluster of letters: "-h" among them, or a letter whose value is the next element
        for (const char* p = a + 1; *p; ++p) {
            if (*p == 'h' && hFree) return true;
            const char* letter = *p == ':' ? nullptr : std::strchr(options, *p);
            if (letter && letter[1] == ':') {
                if (p[1] == '\0') ++i;   // the value stands in the next element
                break;
            }
        }
    }
    return false;
}
