#include "household/quota_building.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string_view>

#include "household/household_classes.h"
#include "household/household_files.h"
#include "household/household_outputs.h"
#include "household/household_protocol.h"
#include "household/household_settings.h"
#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/settings.h"
#include "statistics/fixed_width_fields.h"
#include "tables/table_text.h"
#include "platform/text_format.h"

StockSums S;
Quotas QQ;
std::vector<bool> typeSeen, regionSeen;
int stockYear = 0;

namespace {

struct DivisionCounters {
    bool forecast = false;
    unsigned long done = 0, replaced = 0;
} division;

} // namespace

void safeDivisionMode(bool forecast)
{
    division = DivisionCounters();
    division.forecast = forecast;
}

double safeDivision(double a, double b, double replacement, const char* text)
{
    ++division.done;
    if (b != 0) return a / b;
    FILE* page = hhprot::page();
    if (a == 0) {
        ++division.replaced;
        if (page && (division.forecast || hh.protocolVolume >= 3))
            fprintf(page, "%s %s %g: %s\n", DD::lookup("hh_divisionZero").c_str(), DD::lookup("hh_replacement").c_str(),
                    replacement, text);
        return replacement;
    }
    if (page && (division.forecast || hh.protocolVolume >= 1)) fprintf(page, "%s: (%g/%g=%g): %s\n", "Division", a, b, a, text);
    return a;
}

void safeDivisionSummary(const char* label)
{
    if (division.replaced > 0)
        hhprot::warning(DD::lookup("hh_replace_value").c_str(), static_cast<int>(division.replaced),
                        static_cast<int>(division.done), division.replaced * 100.0 / static_cast<double>(division.done), label);
    division.done = division.replaced = 0;
}

void allocateHouseholdArrays()
{
    int T = std::max(g2t.maxType, 1), R = g2t.regions();
    int c3 = AKL3.count(), cj = AKJ.count(), k18 = AK0_17.count(), m85 = AK15_99.count(), s5 = AK1_5.count();
    S = StockSums();
    S.SP.size({T, 2, AK15_17.count()});
    S.SPK.size({T, 2, k18});
    S.SPKV.size({R});
    S.SPKH2.size({T, s5});
    S.SPKZi_Ew.size({T, k18});
    S.SPKZi_Ewj.size({T, k18, m85});
    for (Sum* a : {&S.SPEZw, &S.SPEAZw, &S.SGw, &S.SPPw, &S.SPP2w, &S.SPEPZw}) a->size({T, c3});
    for (Sum* a : {&S.SPEA, &S.SPEAB, &S.SH2, &S.SPPwg, &S.SH4, &S.SPV4S, &S.SPM, &S.SPM2, &S.SPM3, &S.SPM4, &S.SPM5,
                   &S.SH5, &S.SP50, &S.SH50, &S.SFK})
        a->size({T});
    S.SPEPZm.size({T, c3, c3});
    S.SPPm.size({T, c3, c3});
    S.SH2i.size({R, AK1_8.count()});
    S.SH2is.size({T, AK1_8.count()});
    for (Sum* a : {&S.SPEH2, &S.SPPH3, &S.SPP2H2, &S.SPN2H2, &S.SPN3H3, &S.SPN4H4, &S.SPV2H2, &S.SPV3H3, &S.SPV4H4,
                   &S.SPP3H3})
        a->size({T, 2, c3, s5});
    for (Sum* a : {&S.SPES, &S.SPA, &S.SPN, &S.SPN2, &S.SPN3, &S.SPN4, &S.SPV, &S.SPV2, &S.SPV3, &S.SPV4, &S.SP1, &S.SPOB})
        a->size({T, 2, c3});
    S.SPPgg.size({T, 2, c3, 2, c3});
    S.SPNg.size({T, 2, cj});
    S.SPVg.size({T, 2, cj});
    for (Sum* a : {&S.SPM2H2, &S.SPM3H3, &S.SPM4H4, &S.SPM5H5}) a->size({T, s5});
    S.SPKZ_Ew.size({T, cj});
    S.hws.size({R, 2, 2, 100});
    S.nws.size({R, 2, 2, 100});

    QQ = Quotas();
    QQ.Q10.size({T, 2, AK15_17.count()});
    QQ.Q11.size({T, k18});
    QQ.QK.size({T, k18, m85});
    QQ.Q1.size({T, cj});
    QQ.Q2.size({T, cj});
    for (Quota* q : {&QQ.Q12, &QQ.Q13, &QQ.Q17, &QQ.Q18, &QQ.Q20, &QQ.Q21, &QQ.Q35, &QQ.QM2, &QQ.QM3, &QQ.QM4, &QQ.QM5,
                     &QQ.Q8, &QQ.Q50})
        q->size({T});
    for (Quota* q : {&QQ.Q14, &QQ.Q15, &QQ.Q16, &QQ.Q3w, &QQ.Q25}) q->size({T, c3});
    QQ.Q22m.size({T, c3, c3});
    for (Quota* q : {&QQ.Q19, &QQ.Q32, &QQ.QN2, &QQ.QN3, &QQ.QN4, &QQ.QV2, &QQ.QV3, &QQ.QV4, &QQ.Q6}) q->size({T, 2, c3});
    QQ.Q26.size({T, 2, c3, 2, c3});
    for (Quota* q : {&QQ.Q4, &QQ.Q5, &QQ.Q34}) q->size({T, 2, 2});
    typeSeen.assign(static_cast<size_t>(T), false);
    regionSeen.assign(static_cast<size_t>(R), false);
}

namespace {

const FixedLayout& L = stockLayout();

// the integer of a field: leading blanks, an optional '-', digits up to the first other
// character; no digits or an overflow give 0
int intField(std::string_view record, const char* name)
{
    std::string_view t = fieldText(record, L.field(name));
    size_t i = 0;
    while (i < t.size() && t[i] == ' ') ++i;
    bool negative = i < t.size() && t[i] == '-';
    if (negative) ++i;
    long long value = 0;
    size_t first = i;
    for (; i < t.size() && t[i] >= '0' && t[i] <= '9'; ++i) {
        value = value * 10 + (t[i] - '0');
        if (value > 2147483647LL) return 0;
    }
    if (i == first) return 0;
    return static_cast<int>(negative ? -value : value);
}

std::string textField(std::string_view record, const char* name)
{
    std::string text(fieldText(record, L.field(name)));
    text.resize(static_cast<size_t>(L.field(name).width), ' ');
    return text;
}

struct Person {
    std::string line;
    int number = 0;          // record number in the file
    int region = -1;
    int sex = 0, age = 0, p03 = 0, p05 = 0, w01 = 0, kerns = 0, hhnr = 0, hzuoNumber = 0, hpaar = 0, helt = 0,
        hvor = 0, hnach = 0, a03 = 0, a06 = 0, a07 = 0;
    std::string hzuo;
    bool a06Blank = false;
    int pdo = 0, pdom = 0, hdo = 0;
};

struct Household {
    int hk = 0, hp = 0, hn = 0, hv = 0, hpwa = -1, hpma = -1, he1a = -1, he3a = -1;
};

struct Reading {
    size_t length = 0;
    int records = 0, ignored = 0, filtered = 0, withoutCore = 0;
    FILE* micro[3] = {nullptr, nullptr, nullptr};   // bits 1, 2, 4
    std::vector<Person> household;
};

int stockCounts[4] = {0, 0, 0, 0};   // records, ignored, filtered, without core

std::string ident(const Person& p) { return format("Satz %d (%.30s)", p.number, p.line.c_str()); }

Person readPerson(const std::string& line, int number)
{
    Person p;
    p.line = line;
    p.number = number;
    p.sex = intField(line, "P02");
    p.age = intField(line, "A01");
    p.p03 = intField(line, "P03");
    p.p05 = intField(line, "P05");
    p.w01 = intField(line, "W01");
    p.kerns = intField(line, "KERNS");
    p.hhnr = intField(line, "HHNR");
    p.hzuo = textField(line, "HZUO");
    p.hzuoNumber = intField(line, "HZUO");
    p.hpaar = intField(line, "HPAAR");
    p.helt = intField(line, "HELT");
    p.hvor = intField(line, "HVOR");
    p.hnach = intField(line, "HNACH");
    p.a03 = intField(line, "A03");
    p.a06 = intField(line, "A06");
    p.a06Blank = fieldBlank(line, L.field("A06"));
    p.a07 = intField(line, "A07");
    long long key = r02map::key(hh.r02map, fieldText(line, L.field("R02")), textField(line, "R02U2")[0]);
    p.region = key < 0 ? -1 : g2t.region(key);
    if (p.region < 0)
        hhprot::warning("%s: keine Abbildung von R02=%d, R02U2=%d (Schl&uuml;ssel=%d) auf ein Gebiet m&ouml;glich",
                        ident(p).c_str(), intField(line, "R02"), intField(line, "R02U2"), static_cast<int>(key));
    return p;
}

// a number right aligned with zeros in width columns, -1 as blanks
std::string complementNumber(int value, int width)
{
    if (value == -1) return std::string(static_cast<size_t>(width), ' ');
    return format("%0*d", width, value);
}

std::string complement(const Person& p, const Household& h, bool single)
{
    return complementNumber(single ? 1 : 0, 1) + complementNumber(p.pdom, 2) + complementNumber(h.hk, 2) +
           complementNumber(h.hp, 2) + complementNumber(h.hn, 2) + complementNumber(h.hv, 2) +
           complementNumber(h.hpwa, 3) + complementNumber(h.hpma, 3) + complementNumber(h.he1a, 3) +
           complementNumber(h.he3a, 3);
}

void writeMicro(Reading& rd, Person& p, const Household& h, bool single)
{
    if (!rd.micro[0] && !rd.micro[1] && !rd.micro[2]) return;
    std::string line = p.line;
    const FixedField& fp = L.field("PDO");
    const FixedField& fh = L.field("HDO");
    line[static_cast<size_t>(fp.column - 1)] = static_cast<char>('0' + (p.pdo % 10));
    line[static_cast<size_t>(fh.column - 1)] = static_cast<char>('0' + (p.hdo % 10));
    std::string comp = complement(p, h, single);
    if (rd.micro[0]) fprintf(rd.micro[0], "%s\n", line.c_str());
    if (rd.micro[1]) fprintf(rd.micro[1], "%.23s%s*\n", line.c_str(), comp.c_str());
    if (rd.micro[2]) fprintf(rd.micro[2], "%s%s%c\n", line.substr(0, line.size() - 1).c_str(), comp.c_str(), line.back());
}

bool couple(const Person& p) { return p.hpaar == 1 || p.hpaar == 2; }
bool parentMark(const Person& p) { return p.helt == 1 || (p.hvor == 1 && p.hzuoNumber != 4); }

void count(Sum& a, std::initializer_list<int> idx) { ++a.v[a.flat(idx)]; }

template <class... I>
void add(Sum& a, I... i)
{
    count(a, {static_cast<int>(i)...});
}

// the third pass: one person into the sum arrays of its type
void countPerson(const Person& p, const Household& h, bool first)
{
    int t = g2t.pairs[static_cast<size_t>(p.region)].second - 1;
    if (t < 0 || t >= static_cast<int>(typeSeen.size())) {
        hhprot::warning("%s: keine Abbildung von R02=%d auf einen Typ m&ouml;glich", ident(p).c_str(),
                        intField(p.line, "R02"));
        return;
    }
    if (p.sex < 1 || p.sex > 2) {
        hhprot::warning("%s = %d ausserhalb [%d..%d]", "P02", p.sex, 1, 2);
        return;
    }
    typeSeen[static_cast<size_t>(t)] = true;
    int g = p.sex - 1, A = p.age, r = p.region;
    bool female = g == 1, male = g == 0;
    int a, c3 = -1, cj = -1, s = -1, cm3 = -1, cw3 = -1;
    AKL3.find(A, c3);
    AKJ.find(A, cj);
    bool hasSize = AK1_5.find(p.a06, s);
    bool hasMan = AKL3.find(h.hpma, cm3), hasWoman = AKL3.find(h.hpwa, cw3);
    bool inL3 = c3 >= 0;

    if (AK15_17.find(A, a)) add(S.SP, t, g, a);
    if (p.pdo == 1) {
        if (AK0_17.find(A, a)) add(S.SPK, t, g, a);
        if (p.a07 > 7) add(S.SPKV, r);
        if (hasSize) add(S.SPKH2, t, s);
    }
    if (p.pdom == 11 && AK0_17.find(A, a)) {
        int m;
        if (p.hzuo == "1 " && AK15_44.find(h.he1a, m)) add(S.SPKZi_Ew, t, a);
        if (p.hzuo == "3C" && AK15_44.find(h.he3a, m)) add(S.SPKZi_Ew, t, a);
        if (AK15_99.find(h.he1a, m)) add(S.SPKZi_Ewj, t, a, m);
        if (AK15_99.find(h.he3a, m)) add(S.SPKZi_Ewj, t, a, m);
    }
    if (p.pdom == 21 && female && inL3) add(S.SPEZw, t, c3);
    if (p.pdo == 2 && p.hpaar == 3) {
        add(S.SPEA, t);
        if (p.a03 == 1) add(S.SPEAB, t);
    }
    if (p.pdom == 21 && p.hpaar == 3 && female && inL3) add(S.SPEAZw, t, c3);
    if (p.pdom == 21 && male && couple(p) && hasMan && hasWoman) add(S.SPEPZm, t, cm3, cw3);
    if (p.a03 == 1 && p.hdo == 2) add(S.SH2, t);
    if (p.a03 == 1 && AK1_8.find(p.a07, a)) add(S.SH2i, r, a);
    if (p.pdo == 2 && inL3 && hasSize) add(S.SPEH2, t, g, c3, s);
    if (inL3 && (p.pdom == 22 || (male && p.pdom == 21 && p.hpaar == 3))) add(S.SPES, t, g, c3);
    if ((p.pdom == 21 || p.pdom == 22) && female && inL3) add(S.SGw, t, c3);
    if (p.pdo == 3) {
        if (female && p.p03 != 8) {
            add(S.SPPwg, t);
            if (inL3) add(S.SPPw, t, c3);
        }
        if (inL3 && hasSize) add(S.SPPH3, t, g, c3, s);
        if (male && hasMan && hasWoman) add(S.SPPm, t, cm3, cw3);
        if (p.hdo == 2 && female && inL3) add(S.SPP2w, t, c3);
        if (p.hdo == 2 && inL3 && hasSize) add(S.SPP2H2, t, g, c3, s);
        if (p.p03 == 8 && inL3) {
            int other;
            if (AKL3.find(female ? h.hpwa : h.hpma, other)) add(S.SPPgg, t, g, c3, g, other);
        }
    }
    if (inL3 && p.pdo >= 1 && p.pdo <= 3) add(S.SPA, t, g, c3);
    auto line = [&](Sum& gsum, Sum& all, Sum* byHdo[3], Sum* bySize[3]) {
        if (cj >= 0) add(gsum, t, g, cj);
        if (!inL3) return;
        add(all, t, g, c3);
        if (p.hdo >= 2 && p.hdo <= 4) {
            add(*byHdo[p.hdo - 2], t, g, c3);
            if (hasSize) add(*bySize[p.hdo - 2], t, g, c3, s);
        }
    };
    if (p.pdo == 4) {
        Sum* byHdo[3] = {&S.SPN2, &S.SPN3, &S.SPN4};
        Sum* bySize[3] = {&S.SPN2H2, &S.SPN3H3, &S.SPN4H4};
        line(S.SPNg, S.SPN, byHdo, bySize);
    }
    if (p.pdo == 5) {
        Sum* byHdo[3] = {&S.SPV2, &S.SPV3, &S.SPV4};
        Sum* bySize[3] = {&S.SPV2H2, &S.SPV3H3, &S.SPV4H4};
        line(S.SPVg, S.SPV, byHdo, bySize);
        if (p.hdo == 4) add(S.SPV4S, t);
    }
    if (p.hdo == 4 && p.a03 == 1) add(S.SH4, t);
    if (p.a06 == 1 && inL3) add(S.SP1, t, g, c3);
    if ((p.pdo == 6 || p.pdo == 7) && inL3) add(S.SPOB, t, g, c3);
    if (p.pdo == 7) {
        add(S.SPM, t);
        Sum* byHdo[4] = {&S.SPM2, &S.SPM3, &S.SPM4, &S.SPM5};
        Sum* bySize[4] = {&S.SPM2H2, &S.SPM3H3, &S.SPM4H4, &S.SPM5H5};
        if (p.hdo >= 2 && p.hdo <= 5) {
            add(*byHdo[p.hdo - 2], t);
            if (hasSize) add(*bySize[p.hdo - 2], t, s);
        }
    }
    if (p.hdo == 5 && p.a03 == 1) add(S.SH5, t);
    if (p.a06 >= 5) {
        add(S.SP50, t);
        if (first) add(S.SH50, t);
    }
}

void processHousehold(Reading& rd)
{
    std::vector<Person>& hhs = rd.household;
    if (hhs.empty()) return;
    Household h;
    int n = static_cast<int>(hhs.size()), sizeWarnings = 0;
    // first pass: the relation of each person
    for (int i = 0; i < n; ++i) {
        Person& p = hhs[static_cast<size_t>(i)];
        if (!p.a06Blank && p.a06 != n && sizeWarnings++ < 10)
            hhprot::warning("%s (A06=%d) != ((HHNR=%d) Anzahl Personen = %d)", ident(p).c_str(), p.a06, p.hhnr, n);
        if (p.age < 18 && p.p03 == 1 && p.kerns != 2 && p.hnach != 2 && p.hnach != 6) {
            p.pdo = 1;
            p.pdom = p.kerns == 5 ? 11 : 12;
        }
        if (p.a07 > 0 && parentMark(p)) {
            p.pdo = 2;
        } else if (couple(p)) {
            for (int k = 0; k < n; ++k) {
                const Person& o = hhs[static_cast<size_t>(k)];
                if (k != i && couple(o) && o.a07 > 0 && parentMark(o)) {
                    p.pdo = 2;
                    break;
                }
            }
        }
        if (couple(p) && p.pdo != 2) p.pdo = 3, p.pdom = 30;
        bool early = p.pdo >= 1 && p.pdo <= 3;
        if ((p.hnach == 1 || p.hnach == 3 || p.hnach == 4 || p.hnach == 5) && !early) p.pdo = 4, p.pdom = 40;
        if ((p.helt == 1 || p.hvor == 1) && !(p.pdo >= 1 && p.pdo <= 4)) p.pdo = 5, p.pdom = 50;
        if (p.a06 == 1) p.pdo = 6, p.pdom = 60;
        if (p.pdo < 1 || p.pdo > 6) p.pdo = 7, p.pdom = 70;
        if (p.pdo == 1) ++h.hk;
        if (couple(p)) ++h.hp;
        if (p.pdo == 4) ++h.hn;
        if (p.pdo == 5) ++h.hv;
        if (couple(p)) (p.sex == 2 ? h.hpwa : h.hpma) = p.age;
        if (p.helt == 1 && p.sex == 2) {
            if (p.hzuo == "1 ") h.he1a = p.age;
            if (p.hzuo == "3C") h.he3a = p.age;
        }
    }
    // second pass: parents of a core family, the household type
    for (int i = 0; i < n; ++i) {
        Person& p = hhs[static_cast<size_t>(i)];
        if (p.pdo == 2 && p.helt == 1) {
            p.pdom = 21;
        } else if (couple(p)) {
            for (int k = 0; k < n; ++k) {
                const Person& o = hhs[static_cast<size_t>(k)];
                if (k != i && couple(o) && o.pdo == 2 && o.helt == 1) p.pdom = 21;
            }
        }
        if (p.pdo == 2 && p.pdom != 21) p.pdom = 22;
        if (p.pdo == 0 || p.pdom == 0) hhprot::warning("%s: PDO=%d oder PDOM=%d nicht definiert", ident(p).c_str(), p.pdo, p.pdom);
        if (couple(p)) (p.sex == 2 ? h.hpwa : h.hpma) = p.age;
        if (p.a06 == 1) p.hdo = 1;
        else if (h.hk >= 1) p.hdo = 2;
        else if (h.hp == 2) p.hdo = 3;
        else if (h.hp == 0 && h.hn > 0 && h.hv > 0) p.hdo = 4;
        else if (h.hp == 0 && h.hv == 0) p.hdo = 5;
        else
            hhprot::warning("%s: HDO=%d undefiniert (A6=%d, HK=%d, HP=%d, HN=%d, HV=%d)", ident(p).c_str(), p.hdo, p.a06,
                            h.hk, h.hp, h.hn, h.hv);
    }
    for (Person& p : hhs) writeMicro(rd, p, h, n == 1);
    for (int i = 0; i < n; ++i) countPerson(hhs[static_cast<size_t>(i)], h, i == 0);
    hhs.clear();
}

void processAddress(Reading& rd, std::vector<Person>& group)
{
    std::stable_sort(group.begin(), group.end(), [](const Person& a, const Person& b) { return a.hhnr < b.hhnr; });
    Household none;
    for (Person& p : group) {
        if (p.region < 0) continue;
        int w04 = intField(p.line, "W04");
        if (w04 == 9) {
            ++rd.ignored;
            writeMicro(rd, p, none, false);
            continue;
        }
        if (hh.filterW04 && w04 != 1) {
            ++rd.filtered;
            writeMicro(rd, p, none, false);
            continue;
        }
        regionSeen[static_cast<size_t>(p.region)] = true;
        int age = std::min(std::max(p.age, 0), 99), b = p.p05 > 0 ? 1 : 0;
        if (p.sex >= 1 && p.sex <= 2) {
            if (p.w01 == 1) ++S.hws(p.region, b, p.sex - 1, age);
            if (p.w01 == 2) ++S.nws(p.region, b, p.sex - 1, age);
        }
        if (textField(p.line, "KERNS") == "0") {
            ++rd.withoutCore;
            writeMicro(rd, p, none, false);
            continue;
        }
        if (!rd.household.empty() && rd.household.front().hhnr != p.hhnr) processHousehold(rd);
        rd.household.push_back(std::move(p));
    }
    processHousehold(rd);
    group.clear();
}

void readStock()
{
    Reading rd;
    std::string path = hh.directory + "dstbest.txt";
    FILE* in = fopen(path.c_str(), "rb");
    if (!in) {
        std::string target;
        if (os::readLink(path + ".lnk", target) == 0 && !target.empty()) {
            fprintf(hhprot::page(), "%s &rArr; %s<br>\n", (path + ".lnk").c_str(), target.c_str());
            in = fopen(target.c_str(), "rb");
            path = target;
        }
        if (!in) throw std::runtime_error("open " + hh.directory + "dstbest.txt " + os::errorText(errno));
    }
    const char* micro[3] = {"dstbestu.txt", "dstbesta.txt", "dstbestc.txt"};
    for (int k = 0; k < 3; ++k) {
        if (hh.microOutput & (1 << k)) rd.micro[k] = openOutput("Quoten/", micro[k]);
        else std::remove((hh.directory + "Quoten/" + micro[k]).c_str());
    }
    FILE* page = hhprot::page();
    size_t need = static_cast<size_t>(L.field("DS350").column + L.field("DS350").width - 1);
    char buffer[2050];
    std::string last;
    std::vector<Person> group;
    std::string groupKey;
    while (fgets(buffer, sizeof buffer, in)) {
        std::string line(buffer);
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
        ++rd.records;
        if (rd.records == 1) {
            rd.length = line.size();
            fprintf(page, "Eingabedatei mit Satzlänge %zu", rd.length);
            if (rd.length < need) {
                fprintf(page, " wird mit Leerstellen auf Satzlänge %zu erweitert", need);
                rd.length = need;
            }
            fputs("<br>\n", page);
        }
        if (line.size() < rd.length) line.resize(rd.length, ' ');
        if (rd.records == 1) {
            if (fieldBlank(line, L.field("KERNS"))) hhprot::warning("KERNS=' ' Haushaltegenerierung noch nicht durchgeführt");
            stockYear = fieldYear(line, L.field("Z02"));
            if (stockYear < 0) stockYear = intField(line, "Z02");
            fprintf(page, "Z02: %d (%s)<br>\n", stockYear, DD::lookup("hh_Z02").c_str());
            quotaFile = openOutput("Quoten/", "q.csv");
            fprintf(quotaFile, "R02map\n%s\nG2T\n", hh.r02map.c_str());
            for (const auto& [key, type] : g2t.pairs) fprintf(quotaFile, "%d;;;%d\n", static_cast<int>(key), type);
            fprintf(quotaFile, "Z02\n%d\nJung\n%d\nAlt\n%d\n", stockYear, hh.young, hh.old);
        }
        if (!last.empty() && line.compare(0, 17, last, 0, 17) < 0) {
            hhprot::warning("Abbruch bei Satz %d:%s: Eingabedatei nicht sortiert", rd.records, line.substr(0, 30).c_str());
            break;
        }
        last = line;
        std::string key = line.substr(0, 19);
        if (!group.empty() && key != groupKey) processAddress(rd, group);
        groupKey = key;
        group.push_back(readPerson(line, rd.records));
    }
    if (ferror(in)) hhprot::warning("error reading dstbest %s", os::errorText(errno).c_str());
    processAddress(rd, group);
    fclose(in);
    for (FILE*& f : rd.micro) {
        closeOutput(f);
        f = nullptr;
    }
    stockCounts[0] = rd.records, stockCounts[1] = rd.ignored, stockCounts[2] = rd.filtered, stockCounts[3] = rd.withoutCore;
}

void stockSummary()
{
    FILE* page = hhprot::page();
    hhprot::heading(2, "B1.6");
    const char* base[3] = {"dstbestu", "dstbesta", "dstbestc"};
    for (int k = 0; k < 3; ++k)
        if (hh.microOutput & (1 << k))
            fprintf(page, "%s <a href=\"../Quoten/%s.txt\" target=_blank>%s</a><br>\n", "dstbest", base[k], base[k]);
    const int* c = stockCounts;
    fprintf(page, DD::lookup("hh_summary").c_str(), c[0], c[1], c[2], c[3], c[0] - c[2] - c[1] - c[3]);
    fputs("<br>\n", page);
}

double sumOf(const Sum& a, int t)
{
    size_t block = a.v.size() / static_cast<size_t>(a.dims[0]);
    double s = 0;
    for (size_t k = 0; k < block; ++k) s += a.v[static_cast<size_t>(t) * block + k];
    return s;
}

void derivedSums()
{
    int T = static_cast<int>(typeSeen.size());
    S.SPEPZw.size(S.SPEZw.dims);
    S.SPP3H3.size(S.SPPH3.dims);
    for (int t = 0; t < T; ++t) {
        if (!typeSeen[static_cast<size_t>(t)]) continue;
        for (int a = 0; a < AK0_17.count(); ++a)
            for (int m = 0; m < AK15_99.count(); ++m) {
                int c;
                if (AKJ.find(AK15_99.lower(m), c)) S.SPKZ_Ew(t, c) += S.SPKZi_Ewj(t, a, m);
            }
        for (int c = 0; c < AKL3.count(); ++c) S.SPEPZw(t, c) = S.SPEZw(t, c) - S.SPEAZw(t, c);
        S.SFK(t) = static_cast<uint32_t>(sumOf(S.SPEZw, t) + sumOf(S.SPES, t));
    }
    for (int r = 0; r < g2t.regions(); ++r) {
        int t = g2t.pairs[static_cast<size_t>(r)].second - 1;
        if (t < 0 || t >= T) continue;
        for (int k = 0; k < AK1_8.count(); ++k) S.SH2is(t, k) += S.SH2i(r, k);
    }
    for (size_t k = 0; k < S.SPP3H3.v.size(); ++k) S.SPP3H3.v[k] = S.SPPH3.v[k] - S.SPP2H2.v[k];
}

double d(uint32_t v) { return static_cast<double>(v); }

void computeQuotas()
{
    int T = static_cast<int>(typeSeen.size()), c3 = AKL3.count();
    auto seen = [&](int t) { return typeSeen[static_cast<size_t>(t)]; };
    FILE* page = hhprot::page();

    hhprot::heading(3, "1)");
    for (int t = 0; t < T; ++t)
        if (seen(t))
            for (int g = 0; g < 2; ++g)
                for (int a = 0; a < AK15_17.count(); ++a)
                    QQ.Q10(t, g, a) = safeDivision(d(S.SPK(t, g, a + 15)), d(S.SP(t, g, a)), -1, "Q10[t][g][a]=SPK[t][g][a]/SP[t][g][a]");
    safeDivisionSummary("Q10");
    for (int t = 0; t < T; ++t)
        if (seen(t))
            for (int a = 0; a < AK0_17.count(); ++a)
                QQ.Q11(t, a) = safeDivision(d(S.SPKZi_Ew(t, a)), d(S.SPK(t, 0, a)) + d(S.SPK(t, 1, a)), -1,
                                            "Q11[t][a]=SPKZi_Ew[t][a]/(SPK[t][1][a]+SPK[t][2][a])");
    safeDivisionSummary("Q11");
    for (int t = 0; t < T; ++t)
        if (seen(t))
            for (int a = 0; a < AK0_17.count(); ++a)
                for (int m = 0; m < AK15_99.count(); ++m)
                    QQ.QK(t, a, m) = safeDivision(d(S.SPKZi_Ewj(t, a, m)), d(S.SPKZi_Ew(t, a)), -1.0 / 85,
                                                  "QK[t][a][m]=SPKZi_Ewj[t][a][m]/SPKZi_Ew[t][a]");
    safeDivisionSummary("QK");
    // each report of replaced values covers its quotas over all types
    hhprot::heading(3, "2)");
    auto overTypes = [&](const char* label, const std::function<void(int)>& quotas) {
        for (int t = 0; t < T; ++t)
            if (seen(t)) quotas(t);
        safeDivisionSummary(label);
    };
    overTypes("Q1", [&](int t) {
        double spezw = sumOf(S.SPEZw, t);
        QQ.Q1(t, 0) = safeDivision(d(S.SPKZ_Ew(t, 0)), d(S.SPEZw(t, 0)), -1, "Q1[t][1]=SPKZ_Ew[t][1]/SPEZw[t][1]");
        QQ.Q1(t, 1) = safeDivision(d(S.SPKZ_Ew(t, 1)), spezw - d(S.SPEZw(t, 0)), -1,
                                   "Q1[t][2]=SPKZ_Ew[t][2]/(SPEZw[t].sum()-SPEZw[t][1])");
    });
    overTypes("Q2", [&](int t) {
        double spezw = sumOf(S.SPEZw, t), speazw = sumOf(S.SPEAZw, t);
        QQ.Q2(t, 0) = safeDivision(d(S.SPEAZw(t, 0)), d(S.SPEZw(t, 0)), -1, "Q2[t][1]=SPEAZw[t][1]/SPEZw[t][1]");
        QQ.Q2(t, 1) = safeDivision(speazw - d(S.SPEAZw(t, 0)), spezw - d(S.SPEZw(t, 0)), -1,
                                   "Q2[t][2]=(SPEAZw[t].sum()-SPEAZw[t][1])/(SPEZw[t].sum()-SPEZw[t][1])");
    });
    overTypes("Q12", [&](int t) {
        QQ.Q12(t) = safeDivision(d(S.SPEAZw(t, 1)), sumOf(S.SPEAZw, t) - d(S.SPEAZw(t, 0)), -1,
                                 "Q12[t]=SPEAZw[t][2]/(SPEAZw[t].sum()-SPEAZw[t][1])");
    });
    overTypes("Q13", [&](int t) {
        QQ.Q13(t) = safeDivision(d(S.SPEPZw(t, 1)), sumOf(S.SPEPZw, t) - d(S.SPEPZw(t, 0)), -1,
                                 "Q13[t]=SPEPZw[t][2]/(SPEPZw[t].sum()-SPEPZw[t][1])");
    });
    overTypes("Q14 bis Q21", [&](int t) {
        double spezw = sumOf(S.SPEZw, t), speazw = sumOf(S.SPEAZw, t);
        Quota* q[3] = {&QQ.Q14, &QQ.Q15, &QQ.Q16};
        for (int k = 0; k < 3; ++k)
            for (int i = 0; i < c3; ++i)
                (*q[k])(t, i) = safeDivision(d(S.SPEPZm(t, i, k)), d(S.SPEPZw(t, k)), -1, "Q14..Q16[t][i]=SPEPZm[t][i][k]/SPEPZw[t][k]");
        QQ.Q17(t) = safeDivision(spezw, d(S.SFK(t)), -1, "Q17[t]=SPEZw[t].sum()/SFK[t]");
        QQ.Q18(t) = safeDivision(d(S.SFK(t)), d(S.SH2(t)), -1, "Q18[t]=SFK[t]/SH2[t]");
        double spes = sumOf(S.SPES, t);
        for (int g = 0; g < 2; ++g)
            for (int a = 0; a < c3; ++a)
                QQ.Q19(t, g, a) = safeDivision(d(S.SPES(t, g, a)), spes, -1, "Q19[t][g][a]=SPES[t][g][a]/SPES[t].sum()");
        QQ.Q20(t) = safeDivision(speazw, d(S.SPEA(t)), -1, "Q20[t]=SPEAZw[t].sum()/SPEA[t]");
        QQ.Q21(t) = safeDivision(d(S.SPEAB(t)), d(S.SPEA(t)), -1, "Q21[t]=SPEAB[t]/SPEA[t]");
    });
    hhprot::heading(2, "B1.2");
    // the partners' quotas and their shares by class (Q26) in one report
    overTypes("Q3w, Q22m, Q25", [&](int t) {
        for (int a = 0; a < c3; ++a) {
            QQ.Q3w(t, a) = safeDivision(d(S.SPPw(t, a)), d(S.SGw(t, a)), -1, "Q3w[t][a]=SPPw[t][a]/SGw[t][a]");
            for (int i = 0; i < c3; ++i)
                QQ.Q22m(t, a, i) = safeDivision(d(S.SPPm(t, i, a)), d(S.SPPw(t, a)), -1.0 / 3, "Q22m[t][w][m]=SPPm[t][m][w]/SPPw[t][w]");
            QQ.Q25(t, a) = safeDivision(d(S.SPP2w(t, a)), d(S.SPPw(t, a)), -1, "Q25[t][a]=SPP2w[t][a]/SPPw[t][a]");
        }
        for (int g1 = 0; g1 < 2; ++g1)
            for (int a1 = 0; a1 < c3; ++a1) {
                double den = 0;
                if (g1 == 1) den = d(S.SPPw(t, a1));
                else
                    for (int w = 0; w < c3; ++w) den += d(S.SPPm(t, a1, w));
                for (int g2 = 0; g2 < 2; ++g2)
                    for (int a2 = 0; a2 < c3; ++a2)
                        QQ.Q26(t, g1, a1, g2, a2) = safeDivision(d(S.SPPgg(t, g1, a1, g2, a2)), den, 0,
                                                                 "Q26[t][g][a1][g][a2]=SPPgg[t][g][a1][g][a2]/SPP[t][g][a1]");
            }
    });
    hhprot::heading(2, "B1.3");
    hhprot::heading(3, "2a)");
    for (int t = 0; t < T; ++t) {
        if (!seen(t)) continue;
        for (int g = 0; g < 2; ++g) {
            QQ.Q4(t, g, 0) = safeDivision(d(S.SPN(t, g, 0)), d(S.SPA(t, g, 0)), -1, "Q4[...][1]=SPN[..][1]/SPA[..][1]");
            QQ.Q4(t, g, 1) = safeDivision(d(S.SPN(t, g, 1)) + d(S.SPN(t, g, 2)), d(S.SPA(t, g, 1)) + d(S.SPA(t, g, 2)), -1,
                                          "Q4[...][2]=(SPN[..][1]+SPN[..][2])/(SPA[..][2]+SPA[..][3])");
            for (int a = 0; a < c3; ++a) {
                QQ.Q32(t, g, a) = safeDivision(d(S.SPN(t, g, a)), d(S.SPNg(t, g, 1)), -1.0 / 3, "Q32[t][g][a]=SPN[t][g][a]/SPNg[t][g][2]");
                QQ.QN2(t, g, a) = safeDivision(d(S.SPN2(t, g, a)), d(S.SPN(t, g, a)), -1.0 / 3, "QN2[t][g][a]=SPN2[t][g][a]/SPN[t][g][a]");
                QQ.QN3(t, g, a) = safeDivision(d(S.SPN3(t, g, a)), d(S.SPN(t, g, a)), -1.0 / 3, "QN3[t][g][a]=SPN3[t][g][a]/SPN[t][g][a]");
                QQ.QN4(t, g, a) = safeDivision(d(S.SPN4(t, g, a)), d(S.SPN(t, g, a)), -1.0 / 3, "QN4[t][g][a]=SPN4[t][g][a]/SPN[t][g][a]");
            }
        }
    }
    safeDivisionSummary("Q4 bis QN4");
    fprintf(page, "Unterste Altersklasse von Q32 wird nicht weiter benutzt:<br>\n");
    hhprot::heading(3, "3a)");
    for (int t = 0; t < T; ++t) {
        if (!seen(t)) continue;
        for (int g = 0; g < 2; ++g) {
            QQ.Q5(t, g, 0) = safeDivision(d(S.SPV(t, g, 0)) + d(S.SPV(t, g, 1)), d(S.SPA(t, g, 0)) + d(S.SPA(t, g, 1)), -1,
                                          "Q5[...][1]=(SPV[..][1]+SPV[..][2]/(SPA[..][1]+SPA[..][2])");
            QQ.Q5(t, g, 1) = safeDivision(d(S.SPV(t, g, 2)), d(S.SPA(t, g, 2)), -1, "Q5[...][2]=SPV[..][3]/SPA[..][3]");
            for (int k = 0; k < 2; ++k)
                QQ.Q34(t, g, k) = safeDivision(d(S.SPV(t, g, k)), d(S.SPV(t, g, 0)) + d(S.SPV(t, g, 1)), -0.5,
                                               "Q34[t][g][k]=SPV[t][g][k]/(SPV[t][g][1]+SPV[t][g][2])");
            for (int a = 0; a < c3; ++a) {
                QQ.QV2(t, g, a) = safeDivision(d(S.SPV2(t, g, a)), d(S.SPV(t, g, a)), -1.0 / 3, "QV2[t][g][a]=SPV2[t][g][a]/SPV[t][g][a]");
                QQ.QV3(t, g, a) = safeDivision(d(S.SPV3(t, g, a)), d(S.SPV(t, g, a)), -1.0 / 3, "QV3[t][g][a]=SPV3[t][g][a]/SPV[t][g][a]");
                QQ.QV4(t, g, a) = safeDivision(d(S.SPV4(t, g, a)), d(S.SPV(t, g, a)), -1.0 / 3, "QV4[t][g][a]=SPV4[t][g][a]/SPV[t][g][a]");
            }
        }
        QQ.Q35(t) = safeDivision(d(S.SH4(t)), d(S.SPV4S(t)), 1, "Q35[t]=SH4[t]/SPV4S[t]");
    }
    safeDivisionSummary("Q5 bis Q35");
    hhprot::heading(2, "B1.4");
    for (int t = 0; t < T; ++t) {
        if (!seen(t)) continue;
        for (int g = 0; g < 2; ++g)
            for (int a = 0; a < c3; ++a)
                QQ.Q6(t, g, a) = safeDivision(d(S.SP1(t, g, a)), d(S.SPOB(t, g, a)), -1.0 / 3, "Q6[t][g][a]=SP1[t][g][a]/SPOB[t][g][a]");
        QQ.QM2(t) = safeDivision(d(S.SPM2(t)), d(S.SPM(t)), 1, "QM2[t]=SPM2[t]/SPM[t]");
        QQ.QM3(t) = safeDivision(d(S.SPM3(t)), d(S.SPM(t)), 1, "QM3[t]=SPM3[t]/SPM[t]");
        QQ.QM4(t) = safeDivision(d(S.SPM4(t)), d(S.SPM(t)), 1, "QM4[t]=SPM4[t]/SPM[t]");
        QQ.QM5(t) = safeDivision(d(S.SPM5(t)), d(S.SPM(t)), 1, "QM5[t]=SPM5[t]/SPM[t]");
        QQ.Q8(t) = safeDivision(d(S.SH5(t)), d(S.SPM5(t)), 1, "Q8[t]=SH5[t]/SPM5[t]");
        QQ.Q50(t) = safeDivision(d(S.SP50(t)), d(S.SH50(t)), 1, "Q50[t]=SP50[t]/SH50[t]");
    }
    safeDivisionSummary("Q6 bis Q50");
}

void writeSums()
{
    Axis t = typeAxis(), r = regionAxis(), g = sexAxis(), l3 = classAxis(AKL3), j = classAxis(AKJ), s = classAxis(AK1_5);
    Axis k18 = classAxis(AK0_17), m = classAxis(AK15_99);
    hhprot::heading(2, "B1.1");
    writeArray("SP", S.SP, {t, g, classAxis(AK15_17)});
    writeArray("SPK", S.SPK, {t, g, k18});
    writeArray("SPKH2", S.SPKH2, {t, s});
    writeArray("SPKZi_Ew", S.SPKZi_Ew, {t, k18});
    writeArray("SPKZi_Ewj", S.SPKZi_Ewj, {t, k18, m}, 2);
    writeArray("SPKZ_Ew", S.SPKZ_Ew, {t, j});
    writeArray("SPEZw", S.SPEZw, {t, l3});
    writeArray("SPEAZw", S.SPEAZw, {t, l3});
    writeArray("SPEPZw", S.SPEPZw, {t, l3});
    writeArray("SPEPZm", S.SPEPZm, {t, l3, l3});
    writeArray("SPEA", S.SPEA, {t});
    writeArray("SPEAB", S.SPEAB, {t});
    writeArray("SH2", S.SH2, {t});
    writeArray("SH2is", S.SH2is, {t, classAxis(AK1_8)});
    writeArray("SPEH2", S.SPEH2, {t, g, l3, s});
    writeArray("SPES", S.SPES, {t, g, l3});
    writeArray("SFK", S.SFK, {t});
    writeArray("SGw", S.SGw, {t, l3});
    writeArray("SPPwg", S.SPPwg, {t});
    writeArray("SPPw", S.SPPw, {t, l3});
    writeArray("SPPm", S.SPPm, {t, l3, l3});
    writeArray("SPP2w", S.SPP2w, {t, l3});
    writeArray("SPPH3", S.SPPH3, {t, g, l3, s});
    writeArray("SPP2H2", S.SPP2H2, {t, g, l3, s});
    writeArray("SPP3H3", S.SPP3H3, {t, g, l3, s});
    writeArray("SPPgg", S.SPPgg, {t, g, l3, g, l3});
    writeArray("SPA", S.SPA, {t, g, l3});
    writeArray("SPNg", S.SPNg, {t, g, j});
    writeArray("SPN", S.SPN, {t, g, l3});
    writeArray("SPN2", S.SPN2, {t, g, l3});
    writeArray("SPN3", S.SPN3, {t, g, l3});
    writeArray("SPN4", S.SPN4, {t, g, l3});
    writeArray("SPVg", S.SPVg, {t, g, j});
    writeArray("SPV", S.SPV, {t, g, l3});
    writeArray("SPV2", S.SPV2, {t, g, l3});
    writeArray("SPV3", S.SPV3, {t, g, l3});
    writeArray("SPV4", S.SPV4, {t, g, l3});
    writeArray("SH4", S.SH4, {t});
    writeArray("SPV4S", S.SPV4S, {t});
    writeArray("SP1", S.SP1, {t, g, l3});
    writeArray("SPOB", S.SPOB, {t, g, l3});
    writeArray("SPM", S.SPM, {t});
    writeArray("SPM2", S.SPM2, {t});
    writeArray("SPM3", S.SPM3, {t});
    writeArray("SPM4", S.SPM4, {t});
    writeArray("SPM5", S.SPM5, {t});
    writeArray("SH5", S.SH5, {t});
    writeArray("SP50", S.SP50, {t});
    writeArray("SH50", S.SH50, {t});
    (void)r;
}

} // namespace

// the quota arrays in the order of the sections of q.csv
void forEachQuota(const std::function<void(const char*, Quota*, Sum*, std::vector<Axis>)>& f)
{
    Axis t = typeAxis(), r = regionAxis(), g = sexAxis(), l3 = classAxis(AKL3), j = classAxis(AKJ), n = countAxis();
    f("SPKV", nullptr, &S.SPKV, {r});
    f("SH2i", nullptr, &S.SH2i, {r, classAxis(AK1_8)});
    f("Q10", &QQ.Q10, nullptr, {t, g, classAxis(AK15_17)});
    f("Q11", &QQ.Q11, nullptr, {t, classAxis(AK0_17)});
    f("QK", &QQ.QK, nullptr, {t, classAxis(AK0_17), classAxis(AK15_99)});
    f("Q1", &QQ.Q1, nullptr, {t, j});
    f("Q2", &QQ.Q2, nullptr, {t, j});
    f("Q12", &QQ.Q12, nullptr, {t});
    f("Q13", &QQ.Q13, nullptr, {t});
    f("Q14", &QQ.Q14, nullptr, {t, l3});
    f("Q15", &QQ.Q15, nullptr, {t, l3});
    f("Q16", &QQ.Q16, nullptr, {t, l3});
    f("Q17", &QQ.Q17, nullptr, {t});
    f("Q18", &QQ.Q18, nullptr, {t});
    f("Q19", &QQ.Q19, nullptr, {t, g, l3});
    f("Q20", &QQ.Q20, nullptr, {t});
    f("Q21", &QQ.Q21, nullptr, {t});
    f("Q3w", &QQ.Q3w, nullptr, {t, l3});
    f("Q22m", &QQ.Q22m, nullptr, {t, l3, l3});
    f("Q25", &QQ.Q25, nullptr, {t, l3});
    f("Q26", &QQ.Q26, nullptr, {t, g, l3, g, l3});
    f("Q4", &QQ.Q4, nullptr, {t, g, n});
    f("Q32", &QQ.Q32, nullptr, {t, g, l3});
    f("QN2", &QQ.QN2, nullptr, {t, g, l3});
    f("QN3", &QQ.QN3, nullptr, {t, g, l3});
    f("QN4", &QQ.QN4, nullptr, {t, g, l3});
    f("Q5", &QQ.Q5, nullptr, {t, g, n});
    f("Q34", &QQ.Q34, nullptr, {t, g, n});
    f("QV2", &QQ.QV2, nullptr, {t, g, l3});
    f("QV3", &QQ.QV3, nullptr, {t, g, l3});
    f("QV4", &QQ.QV4, nullptr, {t, g, l3});
    f("Q35", &QQ.Q35, nullptr, {t});
    f("Q6", &QQ.Q6, nullptr, {t, g, l3});
    f("QM2", &QQ.QM2, nullptr, {t});
    f("QM3", &QQ.QM3, nullptr, {t});
    f("QM4", &QQ.QM4, nullptr, {t});
    f("QM5", &QQ.QM5, nullptr, {t});
    f("Q8", &QQ.Q8, nullptr, {t});
    f("Q50", &QQ.Q50, nullptr, {t});
}

namespace {

void writeBaseTables()
{
    // hdo.csv: per type the 59 rows of persons by household size 2, 3, 4, 5+
    FILE* f = openOutput("Quoten/", "hdo.csv");
    const char* columns[] = {"Typ", "HDO-Nummer", "Personen2", "Personen3", "Personen4", "Personen5+", nullptr};
    csvWriteHead(f, "hdo", columns, nullptr);
    int T = static_cast<int>(typeSeen.size());
    for (int t = 0; t < T; ++t) {
        if (!typeSeen[static_cast<size_t>(t)]) continue;
        int row = 0;
        auto sizes = [&](int hdo, auto get) {
            fprintf(f, "%d;%d;", t + 1, hdo);
            for (int s = 1; s < 5; ++s) fprintf(f, "%d%s", static_cast<int>(get(s)), s < 4 ? ";" : "\n");
            ++row;
        };
        auto bySex = [&](int hdo, Sum& a) {
            for (int g = 1; g >= 0; --g)
                for (int c = 0; c < AKL3.count(); ++c) sizes(hdo, [&](int s) { return a(t, g, c, s); });
        };
        sizes(2, [&](int s) { return S.SPKH2(t, s); });
        for (Sum* a : {&S.SPEH2, &S.SPP2H2, &S.SPN2H2, &S.SPV2H2}) bySex(2, *a);
        sizes(2, [&](int s) { return S.SPM2H2(t, s); });
        for (Sum* a : {&S.SPP3H3, &S.SPN3H3, &S.SPV3H3}) bySex(3, *a);
        sizes(3, [&](int s) { return S.SPM3H3(t, s); });
        for (Sum* a : {&S.SPN4H4, &S.SPV4H4}) bySex(4, *a);
        sizes(4, [&](int s) { return S.SPM4H4(t, s); });
        sizes(5, [&](int s) { return S.SPM5H5(t, s); });
    }
    closeOutput(f);

    // hnws.csv
    f = openOutput("Quoten/", "hnws.csv");
    const char* hcols[] = {"Gebietskennzeichen", "Bevölkerungsgruppe", "Geschlechtsgruppe", "Altersgruppe",
                           "Hauptwohnsitzler (h)", "Nebenwohnsitzler (n)", nullptr};
    csvWriteHead(f, "hnws", hcols, "Ausgangsdaten für Faktor Wohnberechtigte Bevölkerung (h+n/h)");
    long main = 0, secondary = 0;
    for (int r = 0; r < g2t.regions(); ++r) {
        if (!regionSeen[static_cast<size_t>(r)]) continue;
        for (int b = 0; b < 2; ++b)
            for (int g = 0; g < 2; ++g)
                for (int a = 0; a < 100; ++a) {
                    fprintf(f, "%d;%d;%d;%02d;%d;%d\n", static_cast<int>(g2t.pairs[static_cast<size_t>(r)].first), b + 1,
                            g + 1, a, static_cast<int>(S.hws(r, b, g, a)), static_cast<int>(S.nws(r, b, g, a)));
                    main += S.hws(r, b, g, a);
                    secondary += S.nws(r, b, g, a);
                }
    }
    closeOutput(f);
    fprintf(hhprot::page(), "%s <a href=\"hnws.csv\">hnws.csv</a> &Sigma; Hauptwohnsitzler %d, &Sigma; Nebenwohnsitzler %d<br>\n",
            DD::lookup("hh_read").c_str(), static_cast<int>(main), static_cast<int>(secondary));

    // zqa.csv: the quotas the forecast takes as assumptions
    f = openOutput("Quoten/", "zqa.csv");
    const char* zcols[] = {"Z02", "ZQnr", "Typ", "Geschlechtsgruppe", "Altersgruppe", "Wert", nullptr};
    csvWriteHead(f, "zqa", zcols, "Vorlage für Datei zqYYYY.csv für Prognose");
    Quota* women[3] = {&QQ.Q1, &QQ.Q2, &QQ.Q3w};
    for (int q = 0; q < 3; ++q)
        for (int t = 0; t < T; ++t)
            if (typeSeen[static_cast<size_t>(t)])
                for (int c = 0; c < women[q]->dims[1]; ++c)
                    fprintf(f, "%d;%d;%zu;%d;%zu;%g\n", stockYear, q + 1, static_cast<size_t>(t + 1), 2, static_cast<size_t>(c),
                            (*women[q])(t, c));
    Quota* both[3] = {&QQ.Q4, &QQ.Q5, &QQ.Q6};
    for (int q = 0; q < 3; ++q)
        for (int t = 0; t < T; ++t)
            if (typeSeen[static_cast<size_t>(t)])
                for (int g = 0; g < 2; ++g)
                    for (int c = 0; c < both[q]->dims[2]; ++c)
                        fprintf(f, "%d;%d;%zu;%zu;%zu;%g\n", stockYear, q + 4, static_cast<size_t>(t + 1),
                                static_cast<size_t>(g + 1), static_cast<size_t>(c), (*both[q])(t, g, c));
    closeOutput(f);
    fprintf(hhprot::page(), "%s <a href=\"../Quoten/zqa.csv\" target=\"_blank\">ZQA</a>.<br>\n", DD::lookup("hh_read").c_str());
}

} // namespace

void quotaPhase()
{
    safeDivisionMode(false);
    hhprot::heading(1, "B1");
    readStock();
    derivedSums();
    writeSums();
    computeQuotas();
    hhprot::heading(2, "B1.5");
    forEachQuota([](const char* name, Quota* q, Sum* s, std::vector<Axis> axes) {
        if (q) writeArray(name, *q, axes);
        else writeArray(name, *s, axes);
    });
    FILE* q = quotaFile;
    quotaFile = nullptr;
    closeOutput(q);
    writeBaseTables();
    stockSummary();
}

namespace {

// q.csv line by line, with the line number
struct QuotaReader {
    FILE* f = nullptr;
    int line = 0;
    std::string pending;
    bool hasPending = false;
    bool next(std::string& text)
    {
        if (hasPending) {
            hasPending = false;
            text = pending;
            return true;
        }
        char buffer[4096];
        if (!fgets(buffer, sizeof buffer, f)) return false;
        ++line;
        text = buffer;
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
        return true;
    }
    void unread(const std::string& text)
    {
        pending = text;
        hasPending = true;
    }
    std::string expect(const char* name)
    {
        std::string text;
        if (!next(text)) text.clear();
        if (text != name)
            throw std::runtime_error(format("Datei Q.csv, Zeile %d, erwartet %s, tatsächlich %s", line, name, text.c_str()));
        next(text);
        return text;
    }
};

bool startsWithLetter(const std::string& text)
{
    return !text.empty() && ((text[0] >= 'A' && text[0] <= 'Z') || (text[0] >= 'a' && text[0] <= 'z'));
}

FILE* openQuotaFile()
{
    std::string path = hh.directory + "Quoten/q.csv";
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) throw std::runtime_error("open " + path + " " + os::errorText(errno));
    return f;
}

// the cells of a line split at ";"
std::vector<std::string> cellsOf(const std::string& text)
{
    std::vector<std::string> cells;
    size_t start = 0;
    for (;;) {
        size_t end = text.find(';', start);
        cells.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return cells;
}

// one section into values (of the array's size); false lines are reported
void readSection(QuotaReader& in, const char* name, int rank, bool integer, const std::vector<Axis>& axes,
                 const std::vector<int>& dims, std::vector<double>& values)
{
    std::string text;
    if (!in.next(text) || text != name)
        throw std::runtime_error(format("Datei Q.csv, Zeile %d, erwartet %s, tatsächlich %s", in.line, name, text.c_str()));
    size_t total = 1;
    for (int x : dims) total *= static_cast<size_t>(x);
    values.assign(total, 0.0);
    const char* reader = integer ? (rank == 1 ? "readI0" : "readI1") : rank == 1 ? "readQ0" : rank == 2 ? "readQ1" : rank == 3 ? "readQ2" : "readQ5";
    size_t cellsWanted = rank == 5 ? 6 : 4;
    while (in.next(text)) {
        if (startsWithLetter(text)) {
            in.unread(text);
            break;
        }
        std::vector<std::string> cells = cellsOf(text);
        bool ok = cells.size() == cellsWanted;
        for (int k = rank; ok && k < static_cast<int>(cellsWanted) - 1; ++k) ok = cells[static_cast<size_t>(k)].empty();
        if (!ok) {
            size_t p = text.find_first_not_of("-0123456789.e+ ");
            char c0 = p < text.size() ? text[p] : ' ', c1 = p + 1 < text.size() ? text[p + 1] : ' ',
                 c2 = p + 2 < text.size() ? text[p + 2] : ' ';
            throw std::runtime_error(format("Error %d=%s(%s):(%d:%s),c=(%c%c%c)", static_cast<int>(cells.size()), reader, name,
                                            in.line, text.c_str(), c0, c1, c2));
        }
        size_t k = 0;
        bool inRange = true;
        for (int j = 0; j < rank; ++j) {
            int number = std::atoi(cells[static_cast<size_t>(j)].c_str()), i;
            if (!axisIndex(axes[static_cast<size_t>(j)], number, i) || i < 0 || i >= dims[static_cast<size_t>(j)]) {
                hhprot::warning("q.csv Abschnitt %s, Index %d passt nicht zu Maximalindex %zu aus Referenzdatei", name, number,
                                static_cast<size_t>(dims[static_cast<size_t>(j)]));
                inRange = false;
                break;
            }
            k = k * static_cast<size_t>(dims[static_cast<size_t>(j)]) + static_cast<size_t>(i);
        }
        if (inRange) values[k] = std::atof(cells.back().c_str());
    }
}

} // namespace

void readQuotaHead()
{
    QuotaReader in;
    in.f = openQuotaFile();
    try {
        hh.r02map = in.expect("R02map");
        std::string text;
        in.next(text);
        if (text != "G2T")
            throw std::runtime_error(format("Datei Q.csv, Zeile %d, erwartet %s, tatsächlich %s", in.line, "G2T", text.c_str()));
        g2t = G2T();
        while (in.next(text) && !startsWithLetter(text)) {
            std::vector<std::string> cells = cellsOf(text);
            int type = std::atoi(cells.back().c_str());
            g2t.pairs.push_back({std::atoll(cells[0].c_str()), type});
            g2t.maxType = std::max(g2t.maxType, type);
        }
        in.unread(text);
        stockYear = std::atoi(in.expect("Z02").c_str());
        hh.young = std::atoi(in.expect("Jung").c_str());
        hh.old = std::atoi(in.expect("Alt").c_str());
    } catch (...) {
        fclose(in.f);
        throw;
    }
    fclose(in.f);
    AKL3.setBound(1, hh.young);
    AKL3.setBound(2, hh.old);
    AKJ.setBound(1, hh.young);
    AKA.setBound(1, hh.old);
    FILE* page = hhprot::page();
    fprintf(page, "Abbildung R02/R02U2: %s<br>\n", hh.r02map.c_str());
    fprintf(page, "<table>\n<tr><td>%s</td><td>%d</td></tr>\n<tr><td>%s</td><td>%d</td></tr>\n<tr><td>%s</td><td>%d</td></tr>\n</table>\n",
            DD::lookup("hh_Z02").c_str(), stockYear, DD::lookup("hh_uag").c_str(), hh.young, DD::lookup("hh_oag").c_str(), hh.old);
}

void readQuotaFile(bool check)
{
    QuotaReader in;
    in.f = openQuotaFile();
    std::string text;
    try {
        in.expect("R02map");
        in.next(text);
        int r = 0;
        while (in.next(text) && !startsWithLetter(text)) {
            std::vector<std::string> cells = cellsOf(text);
            int key = std::atoi(cells[0].c_str()), type = std::atoi(cells.back().c_str());
            if (check && (r >= g2t.regions() || g2t.pairs[static_cast<size_t>(r)].first != key ||
                          g2t.pairs[static_cast<size_t>(r)].second != type)) {
                int k0 = r < g2t.regions() ? static_cast<int>(g2t.pairs[static_cast<size_t>(r)].first) : 0;
                int t0 = r < g2t.regions() ? g2t.pairs[static_cast<size_t>(r)].second : 0;
                hhprot::warning("%s[%d]: %d;%d != %d;%d", "G2T", r, key, type, k0, t0);
            }
            ++r;
        }
        in.unread(text);
        in.expect("Z02");
        in.expect("Jung");
        in.expect("Alt");
        forEachQuota([&](const char* name, Quota* q, Sum* s, std::vector<Axis> axes) {
            const std::vector<int>& dims = q ? q->dims : s->dims;
            std::vector<double> values;
            readSection(in, name, static_cast<int>(dims.size()), s != nullptr, axes, dims, values);
            for (size_t k = 0; k < values.size(); ++k) {
                if (s) {
                    int now = static_cast<int>(s->v[k]), read = static_cast<int>(values[k]);
                    if (!check) s->v[k] = static_cast<uint32_t>(read);
                    else if (now != read) hhprot::warning("%s[%d]: %d-%d=%d", name, static_cast<int>(k), read, now, read - now);
                } else {
                    double now = q->v[k], read = values[k];
                    if (!check) q->v[k] = read;
                    else if (std::fabs(now - read) > 1e-12 * std::max(std::fabs(now), 1.0))
                        hhprot::warning("%s[%d]: %f-%f=%f", name, static_cast<int>(k), read, now, read - now);
                }
            }
        });
    } catch (...) {
        fclose(in.f);
        throw;
    }
    if (fclose(in.f) != 0) hhprot::warning("Close von q.csv fehlgeschlagen");
}
