// The run object: construction from the settings, modules, regions and the arrays' lifetime.
#include "kernel/run_object.h"

#include <cctype>
#include <cstring>
#include <unordered_map>

#include "platform/variant_settings.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "kernel/stages.h"
#include "tables/constants_table.h"

Orvane* Orvane::current = nullptr;

Orvane::Orvane() {
    current = this;
    setReadingRun(this);
    loadSettings();
    laRegionKey = [this](size_t gz, long long& key) {
        if (gz >= regions.size() && (keyScale == 1 || gz >= indexKeys.size())) return false;
        key = keyScale == 1 ? regions[gz].key : indexKeys[gz];
        return true;
    };
}

int Orvane::forecastYear() const { return JAHR; }

Orvane::~Orvane() {
    if (current == this) {
        current = nullptr;
        laRegionKey = nullptr;
        setReadingRun(nullptr);
    }
}

namespace {
double konstNumber(const char* key, double def) { return konst::has(key) ? konst::number(key) : def; }
}  // namespace

void Orvane::loadSettings() {
    NAG = ini::NAG;
    NGG = ini::NGG;
    NBG = ini::NBG;
    NTYA = ini::NTYA;
    NRA = ini::NRA;
    G = ini::G;
    GP = ini::GP;
    GRND = ini::GRND;
    GNGZ = ini::GNGZ;
    GNTYG = ini::GNTYG;
    GNTYS = ini::GNTYS;
    GNTYB = ini::GNTYB;
    GNTYZZA = ini::GNTYZZA;
    GNTYQWA = ini::GNTYQWA;
    GNTYNEE = ini::GNTYNEE;
    GNTYREA = ini::GNTYREA;
    GNTYWBG = ini::GNTYWBG;
    GNRA = ini::GNRA;
    GPAR = ini::GPAR;
    GPARmin = konstNumber("GPARmin", GPARmin);
    GPARdef = konstNumber("GPARdef", GPARdef);
    GPARmax = konstNumber("GPARmax", GPARmax);
    NITER = ini::NITER;
    EPS = ini::EPS;
    SCE = ini::SCE;
    SUMTOL = ini::SUMTOL;
    NITERdef = static_cast<int>(konstNumber("NITERdef", NITERdef));
    EPSdef = konstNumber("EPSdef", EPSdef);
    SCEdef = konstNumber("SCEdef", SCEdef);
    SUMTOLdef = konstNumber("SUMTOLdef", SUMTOLdef);
    STARTJAHR = ini::STARTJAHR;
    ENDJAHR = ini::ENDJAHR;
}

// the variants live in the settings, so that the run object and the expression language
// always see the same row of modules
int Orvane::module(char letter) const {
    return ini::module(static_cast<char>(std::toupper(static_cast<unsigned char>(letter))));
}

void Orvane::setModule(char letter, int variant) {
    ini::setModule(static_cast<char>(std::toupper(static_cast<unsigned char>(letter))), variant);
}

int moduleOf(char letter) { return ini::module(letter); }

#define C (*Orvane::current)

void Orvane::checkModules() const {
    static const char* const source = "source\\c\\rkini";
    if (_(T_0)) {
        MODULE_CHECK_UNDER(_(T_0),
                           _(A_0) && _(B_0) && _(C_0) && _(D_0) && _(E_0) && _(I_0) && _(K_0) && _(M_0) &&
                               _(N_0) && _(P_0) && _(V_0) && C.NTYA == 1,
                           source);
    } else {
        MODULE_CHECK_UNDER(_(I_0) && _(P_0), _(D_0) && _(E_0), source);
        MODULE_CHECK(!(_(N_0) && _(M_0) && _(A_1)), source);
        MODULE_CHECK(!(_(N_0) && _(M_0) && _(B_1)), source);
    }
}

#undef C

bool Orvane::variable(const std::string& name, double& value) const {
    std::string n = name.size() > 1 && name[0] == '$' ? name.substr(1) : name;
    if (n.size() == 1 && std::strchr(moduleLetters, n[0])) {
        value = module(n[0]);
        return true;
    }
    using Getter = std::function<double(const Orvane&)>;
    static const std::unordered_map<std::string, Getter, Fnv1aHash> table = {
        {"NGZ", [](const Orvane& o) { return o.NGZ; }},
        {"NGZt", [](const Orvane& o) { return o.NGZt; }},
        {"NRA", [](const Orvane& o) { return o.NRA; }},
        {"NAG", [](const Orvane& o) { return o.NAG; }},
        {"NGG", [](const Orvane& o) { return o.NGG; }},
        {"NBG", [](const Orvane& o) { return o.NBG; }},
        {"NTYG", [](const Orvane& o) { return o.NTYG; }},
        {"NTYS", [](const Orvane& o) { return o.NTYS; }},
        {"NTYB", [](const Orvane& o) { return o.NTYB; }},
        {"NTYZZA", [](const Orvane& o) { return o.NTYZZA; }},
        {"NTYQWA", [](const Orvane& o) { return o.NTYQWA; }},
        {"NTYNEE", [](const Orvane& o) { return o.NTYNEE; }},
        {"NTYREA", [](const Orvane& o) { return o.NTYREA; }},
        {"NTYWBG", [](const Orvane& o) { return o.NTYWBG; }},
        {"NTYA", [](const Orvane& o) { return o.NTYA; }},
        {"G", [](const Orvane& o) { return o.G; }},
        {"GRND", [](const Orvane& o) { return o.GRND; }},
        {"GNGZ", [](const Orvane& o) { return o.GNGZ; }},
        {"GNTYG", [](const Orvane& o) { return o.GNTYG; }},
        {"GNTYS", [](const Orvane& o) { return o.GNTYS; }},
        {"GNTYB", [](const Orvane& o) { return o.GNTYB; }},
        {"GNTYZZA", [](const Orvane& o) { return o.GNTYZZA; }},
        {"GNTYQWA", [](const Orvane& o) { return o.GNTYQWA; }},
        {"GNTYNEE", [](const Orvane& o) { return o.GNTYNEE; }},
        {"GNTYREA", [](const Orvane& o) { return o.GNTYREA; }},
        {"GNTYWBG", [](const Orvane& o) { return o.GNTYWBG; }},
        {"GNRA", [](const Orvane& o) { return o.GNRA; }},
        {"GPAR", [](const Orvane& o) { return o.GPAR; }},
        {"STARTJAHR", [](const Orvane& o) { return o.STARTJAHR; }},
        {"ENDJAHR", [](const Orvane& o) { return o.ENDJAHR; }},
        {"JAHR", [](const Orvane&) { return JAHR; }},
        {"NMAG", [](const Orvane& o) { return o.NMAG(); }},
        {"NMBG", [](const Orvane& o) { return o.NMBG(); }},
        {"NMGG", [](const Orvane& o) { return o.NMGG(); }},
        {"NKBG", [](const Orvane& o) { return o.NKBG(); }},
        {"NKGG", [](const Orvane& o) { return o.NKGG(); }},
        {"NKTYA", [](const Orvane& o) { return o.NKTYA(); }},
        {"NCBG", [](const Orvane& o) { return o.NCBG(); }},
        {"NCGG", [](const Orvane& o) { return o.NCGG(); }},
        {"NCTYA", [](const Orvane& o) { return o.NCTYA(); }},
        {"NNBG", [](const Orvane& o) { return o.NNBG(); }},
        {"NNGG", [](const Orvane& o) { return o.NNGG(); }},
        {"NNTYA", [](const Orvane& o) { return o.NNTYA(); }},
    };
    auto it = table.find(n);
    if (it == table.end()) return false;
    value = it->second(*this);
    return true;
}

const RegionRow& Orvane::region(int gz) const {
    if (keyScale == 1) return regions.at(static_cast<size_t>(gz));
    int64_t key = indexKeys.at(static_cast<size_t>(gz));
    int64_t coarse = key / keyScale;
    auto it = keyIndex.find(coarse);
    if (it == keyIndex.end()) {
        // a region of the index list without a record ends the run
        Prot::message(SEV_ERROR, "Gebietskennzeichen %lld nicht als %lld in REFTYP", static_cast<long long>(key),
                      static_cast<long long>(coarse));
        static const RegionRow none;
        return none;
    }
    return regions[static_cast<size_t>(it->second)];
}

int Orvane::findgem(int64_t key) const {
    auto it = keyIndex.find(key);
    return it == keyIndex.end() ? -1 : it->second;
}

void Orvane::indexRegions() {
    keyIndex.clear();
    maxKey = 0;
    for (size_t i = 0; i < regions.size(); ++i) {
        keyIndex[regions[i].key] = static_cast<int>(i);
        if (regions[i].key > maxKey) maxKey = regions[i].key;
    }
}

void Orvane::makeGem(GemTable& t, const std::string& name, double fill) {
    t.make(name, static_cast<size_t>(NGZ), static_cast<size_t>(NBG), static_cast<size_t>(NGG),
           static_cast<size_t>(NAG), sparseGem, fill);
}

void Orvane::makeGemForOverwrite(GemTable& t, const std::string& name) {
    t.makeForOverwrite(name, static_cast<size_t>(NGZ), static_cast<size_t>(NBG), static_cast<size_t>(NGG),
                       static_cast<size_t>(NAG), sparseGem);
}

void Orvane::releaseYear() {
    BG40DSG.release();
    BG40B.release();
    for (LA4* a : {&BR30, &BR30B, &DR3S, &DR3WA, &DR3ZAQ, &DR3IN, &DR3IBN, &DR3OBN, &DR3IAN, &DR3OR, &DR3OBR,
                   &DR3IBR, &DR3OAR})
        a->release();
    // the limits BR21E, BG21E stay for the report at the end of the run
    BR0A.release();
    for (LA1* a : {&BR0N, &MR0Z}) a->release();
    for (LA3* a : {&BR21, &DR2WBGv, &DR2WBGn}) a->release();
    for (LA5* a : {&DR4WA, &DR4ZA, &DR3ZAN, &DR3ZAR}) a->release();
}

void Orvane::releaseAll() {
    releaseYear();
    for (LA2* a : {&BR21E, &BG21E}) a->release();
    BGEM.release();
    BG40.release();
    for (LA4* a : {&BR3R, &PR3S, &QR3ZA, &PR4WBGzs}) a->release();
    for (LA5* a : {&DR4FB, &PR4WA, &QR4ZA}) a->release();
    for (LA3* a : {&DR2ZA, &BR21WS}) a->release();
    DR4FBs.clear();
}
