// The run object of one forecast: dimensions, module switches, the regions of the reference
// table, and every array that outlives a stage of the year.
#pragma once
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "kernel/region_row.h"
#include "kernel/sparse_tables.h"
#include "kernel/kernel_helpers.h"
#include "tables/input_reader.h"
#include "tables/labelled_array.h"
#include "tables/table_text.h"

class Orvane : public ReadingRun {
public:
    Orvane();
    ~Orvane();
    Orvane(const Orvane&) = delete;
    Orvane& operator=(const Orvane&) = delete;

    // the open stream of the gstrom output
    FILE* gstrom = nullptr;
    // fixed columns of that output, set in the first year: last region key, NTYA, NBG, NGG, NAG minus 1
    std::string lastKey, ntya, nbg, ngg, nag;
    // number formatting by the float format of the settings
    ValueFormat fmt;

    // the one run object of the process, set while an Orvane object lives
    static Orvane* current;

    // ---- dimensions ----
    int NGZ = 0;        // regions
    int NGZt = 0;       // regions of the internal type in work
    int NRA = 0;        // region aggregates of the settings
    int NAG = 0, NGG = 0, NBG = 0;
    int NTYG = 0, NTYS = 0, NTYB = 0, NTYZZA = 0, NTYQWA = 0, NTYNEE = 0, NTYREA = 0, NTYWBG = 0;
    int NTYAGF = 0, NTYHH = 0;
    int NTYA = 1;       // external areas
    int NTYBv = 0, NTYBn = 0;   // rows and columns of DR4FB, both NTYB

    // generic parameters of [METHODE] and the iteration settings
    double GP = 0;
    int G = 0, GRND = 0, GNGZ = 0, GNTYG = 0, GNTYS = 0, GNTYB = 0, GNTYZZA = 0, GNTYQWA = 0, GNTYNEE = 0;
    int GNTYREA = 0, GNTYWBG = 0, GNRA = 0;
    double GPAR = 0, GPARmin = 0, GPARdef = 0, GPARmax = 0;
    int NITER = 0, NITERdef = 0;
    double EPS = 0, EPSdef = 0, SCE = 1, SCEdef = 1, SUMTOL = 0, SUMTOLdef = 0;
    int STARTJAHR = 0, ENDJAHR = 0;

    // takes the dimensions and parameters from the settings; done by the constructor, and
    // to be done again once the variant file has been read
    void loadSettings();

    // ---- modules: one variant per letter, 0 = off; read from and written to the settings ----
    int module(char letter) const;
    bool module(char letter, int variant) const { return module(letter) == variant; }
    void setModule(char letter, int variant);
    // the assertions on the combinations of modules; a violation is an error (throws)
    void checkModules() const;

    // ---- reduced extents of target tables and their index functions ----
    int NMAG() const { return module('M') == 2 ? NAG : 1; }
    int NMBG() const { return module('M') == 2 ? NBG : 1; }
    int NMGG() const { return module('M') == 2 ? NGG : 1; }
    int NKBG() const { return module('K') >= 3 ? NBG : 1; }
    int NKGG() const { return module('K') >= 4 ? NGG : 1; }
    int NKTYA() const { return module('K') >= 2 ? NTYA : 1; }
    int NCBG() const { return module('C') >= 3 ? NBG : 1; }
    int NCGG() const { return module('C') >= 4 ? NGG : 1; }
    int NCTYA() const { return module('C') >= 2 ? NTYA : 1; }
    int NNBG() const { return module('N') >= 3 ? NBG : 1; }
    int NNGG() const { return module('N') >= 4 ? NGG : 1; }
    int NNTYA() const { return module('N') >= 2 ? NTYA : 1; }
    // the index into a reduced table: 0 when its extent is 1, else the full index
    static int ENA(int extent, int index) { return extent == 1 ? 0 : index; }
    static int ENABG(int extent, int bg) { return ENA(extent, bg); }
    static int ENAGG(int extent, int gg) { return ENA(extent, gg); }
    static int ENAAG(int extent, int ag) { return ENA(extent, ag); }
    int ENMAG(int ag) const { return ENA(NMAG(), ag); }
    int ENMBG(int bg) const { return ENA(NMBG(), bg); }
    int ENMGG(int gg) const { return ENA(NMGG(), gg); }
    int ENKBG(int bg) const { return ENA(NKBG(), bg); }
    int ENKGG(int gg) const { return ENA(NKGG(), gg); }
    int ENKTYA(int tya) const { return ENA(NKTYA(), tya); }
    int ENCBG(int bg) const { return ENA(NCBG(), bg); }
    int ENCGG(int gg) const { return ENA(NCGG(), gg); }
    int ENCTYA(int tya) const { return ENA(NCTYA(), tya); }
    int ENNBG(int bg) const { return ENA(NNBG(), bg); }
    int ENNGG(int gg) const { return ENA(NNGG(), gg); }
    int ENNTYA(int tya) const { return ENA(NNTYA(), tya); }

    // the value of an expression variable of the run ("$NGZ", "$NMAG", "$A", ...);
    // false when the name is not one of them
    bool variable(const std::string& name, double& value) const;

    // ---- regions of the reference table, ascending by key ----
    std::vector<RegionRow> regions;
    std::map<int64_t, int> keyIndex;    // region key to row
    int64_t keyScale = 1;               // 1, or the divisor of coarse keys set by cut
    std::vector<int64_t> indexKeys;     // keys of the index list while keyScale is above 1
    int64_t maxKey = 0;
    // the record of a region index; with keyScale above 1 through the key of the index list
    const RegionRow& region(int gz) const;
    // region key to region index, -1 when unknown
    int findgem(int64_t key) const;
    // rebuilds keyIndex from regions
    void indexRegions();

    // ---- arrays of the state ----
    // region first, dense or sparse by $SPARSEGEM
    GemTable BGEM{"C.BGEM"}, BG40DSG{"C.BG40DSG"}, BG40{"C.BG40"}, BG40B{"C.BG40B"};
    bool sparseGem = false;     // the storage chosen for the run
    // TYB, BG, GG, AG
    LA4 BR30{"C.BR30"}, BR30B{"C.BR30B"}, DR3S{"C.DR3S"}, BR3R{"C.BR3R"};
    // TYBv, TYBn, BG, GG, AG; DR4FBs its list form under $SPARSESTRM
    LA5 DR4FB{"C.DR4FB"};
    FBList DR4FBs;
    bool sparseStrm = false;
    // supply (2 rows: lower, upper) and demand per TYB, marker
    LA2 BR0A{"C.BR0A"};
    LA1 BR0N{"C.BR0N"}, MR0Z{"C.MR0Z"};
    // targets
    LA2 BR21E{"C.BR21E"};       // 2, TYB
    LA2 BG21E{"C.BG21E"};       // 2, GZ
    LA3 BR21{"C.BR21"};         // NMBG, NMGG, NMAG
    LA3 BR21WS{"C.BR21WS"};     // NNTYA, NNBG, NNGG
    // deaths, external migration
    LA4 PR3S{"C.PR3S"};         // TYS, BG, GG, AG
    LA5 PR4WA{"C.PR4WA"};       // TYQWA, TYA, BG, GG, AG
    LA5 DR4WA{"C.DR4WA"};       // TYA, TYQWA, BG, GG, AG
    LA4 DR3WA{"C.DR3WA"};       // TYQWA, BG, GG, AG
    LA4 DR3ZAQ{"C.DR3ZAQ"}, QR3ZA{"C.QR3ZA"};     // TYA, BG, GG, AG
    LA3 DR2ZA{"C.DR2ZA"};       // NKTYA, NKBG, NKGG
    LA5 QR4ZA{"C.QR4ZA"}, DR4ZA{"C.DR4ZA"};       // TYA, TYZZA, BG, GG, AG
    // new building
    LA4 DR3IN{"C.DR3IN"}, DR3IBN{"C.DR3IBN"}, DR3OBN{"C.DR3OBN"}, DR3IAN{"C.DR3IAN"};
    LA5 DR3ZAN{"C.DR3ZAN"};     // TYA, TYZZA, BG, GG, AG
    // demolition
    LA4 DR3OR{"C.DR3OR"}, DR3OBR{"C.DR3OBR"}, DR3IBR{"C.DR3IBR"}, DR3OAR{"C.DR3OAR"};
    LA5 DR3ZAR{"C.DR3ZAR"};     // TYA, TYQWA, BG, GG, AG
    // group change
    LA4 PR4WBGzs{"C.PR4WBGzs"};                   // TYWBG, BG, GG, AG
    LA3 DR2WBGv{"C.DR2WBGv"}, DR2WBGn{"C.DR2WBGn"};   // BG, GG, AG

    // ---- kept for the charts of the run summary (PLOT_DATEN above 1), by period label ----
    // the target of the whole area and what the rates gave before the adjustment, both positive
    struct TargetYear {
        double target = 0, model = 0;
    };
    std::map<int, TargetYear> birthTargets, deathTargets;
    std::map<int, LA2> fertilityByYear;         // BR1G: TYG, BG
    std::map<int, LA3> lifeExpectancyByYear;    // TYS, BG, GG: life expectancy at birth

    // ---- the account of the run, by period label, for the results overview ----
    // persons by population group: the stock at the end of the year and what changed it
    struct GroupAccount {
        std::vector<double> end, births, deaths, arrivals, departures, groupJoined, groupLeft;
    };
    std::vector<double> startByGroup;             // the stock before the first year
    std::map<int, GroupAccount> accountByYear;
    // persons by aggregate row (DIFF_G) before the first year and at the end of each year
    std::vector<double> aggregateStart;
    std::map<int, std::vector<double>> aggregateByYear;

    // makes a region table in the storage of the run
    void makeGem(GemTable& t, const std::string& name, double fill = 0);
    // the same for a table whose every element the caller writes first (dense storage only)
    void makeGemForOverwrite(GemTable& t, const std::string& name);
    // frees the arrays of a year; BGEM, BG40 and the rate tables stay
    void releaseYear();
    // the memory of all arrays
    void releaseAll();

    // what the input reader asks of the run
    size_t regionCount() const override { return regions.size(); }
    long long regionKey(size_t position) const override { return regions[position].key; }
    std::vector<int64_t>& keysUnderCut() override { return indexKeys; }
    void setRegionKeyScale(int64_t scale) override { keyScale = scale; }
    bool runVariable(const std::string& name, double& value) const override { return variable(name, value); }
    int forecastYear() const override;
};
