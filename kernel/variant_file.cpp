#include "kernel/variant_file.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <set>
#include <strings.h>

#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "tables/constants_table.h"
#include "tables/table_text.h"
#include "kernel/variant_key_check.h"



namespace {

struct NoCase {
    bool operator()(const std::string& a, const std::string& b) const { return strcasecmp(a.c_str(), b.c_str()) < 0; }
};
using Section = std::map<std::string, std::string, NoCase>;
using Model = std::map<std::string, Section, NoCase>;

const char* const g_protected[] = {"CALLBACK0", "CALLBACK1", "CALLBACK2", "NOTIZ", "PYRAMID", "SZENARIEN"};

bool isProtected(const std::string& section)
{
    for (const char* p : g_protected)
        if (strcasecmp(p, section.c_str()) == 0) return true;
    return false;
}

std::string trim(const std::string& s)
{
    size_t a = s.find_first_not_of(" \t\r\n");
    if (a == std::string::npos) return "";
    size_t b = s.find_last_not_of(" \t\r\n");
    return s.substr(a, b - a + 1);
}

// The state of one maintenance run: the keys of the file not yet dealt with, and the result.
class Maintenance {
public:
    Maintenance() : file(si::variantPath()), name(si::Directory + si::Version) {}

    int run();

private:
    std::string file;   // <Directory><Version>.ini
    std::string name;   // <Directory><Version>
    Model model;
    // the keys the program asked for, by section: the ones a misspelt key is compared with
    std::map<std::string, std::vector<std::string>, NoCase> asked;
    bool haveModel = false;
    int result = 0;
    // the first change of the repair, for the message when the file cannot be written
    std::string changed[3];
    bool anyChange = false;

    void note(const std::string& section, const std::string& key, const std::string& value);
    // writes the repaired file once, whatever the number of keys changed
    void commit();
    void buildModel();
    void removeObsolete();
    // takes the key out of the model; false when it was not there
    bool take(const char* section, const char* key, std::string& value);
    void write(const char* section, const char* key, const std::string& value);

    int readInt(const char* section, const char* key, int def);
    double readFloat(const char* section, const char* key, double def);
    std::string readString(const char* section, const char* key, const std::string& def);
    int readModule(const char* key, char letter, int def, int highest);
    void range(double value, double lo, double hi, const char* key);
    // a slip the user should see: a warning in the protocol, and on the console beside it
    void slip(const std::string& text);
    void notWhole(const char* section, const char* key, const std::string& text, const std::string& taken);
    // the known key of the section that a key left over is close to, or ""
    std::string misspelt(const std::string& section, const std::string& key);
    // the repair is given up: a key stands for a known one, misspelt
    bool untouched = false;
};

void Maintenance::note(const std::string& section, const std::string& key, const std::string& value)
{
    if (anyChange) return;
    anyChange = true;
    changed[0] = section;
    changed[1] = key;
    changed[2] = value;
}

void Maintenance::commit()
{
    if (si::profileCommit(file)) return;
    // the file stays as it was; the values in memory are used all the same
    Prot::message(SEV_WARNING, "update %s [%s] %s=%s: %s", file.c_str(), changed[0].c_str(), changed[1].c_str(),
                  changed[2].c_str(), std::strerror(errno));
}

void Maintenance::buildModel()
{
    haveModel = true;
    std::ifstream in(file, std::ios::binary);
    std::string line, section;
    bool first = true;
    std::vector<std::string> order;
    std::set<std::pair<std::string, std::string>> doubled;
    std::vector<std::pair<std::string, std::string>> doubledOrder;
    while (std::getline(in, line)) {
        if (first && line.compare(0, 3, "\xEF\xBB\xBF") == 0) line.erase(0, 3);
        first = false;
        std::string t = trim(line);
        if (t.empty() || t[0] == ';') continue;
        if (t[0] == '[') {
            size_t close = t.find(']');
            section = t.substr(1, close == std::string::npos ? std::string::npos : close - 1);
            if (!model.count(section)) order.push_back(section);
            model[section];
            continue;
        }
        size_t eq = t.find('=');
        if (eq == std::string::npos) continue;
        std::string key = trim(t.substr(0, eq)), value = trim(t.substr(eq + 1));
        Section& s = model[section];
        auto it = s.find(key);
        if (it != s.end()) {
            Prot::message(SEV_HINT, "delete %s double entry [%s]%s=%s %s=%s", file.c_str(), section.c_str(),
                          it->first.c_str(), it->second.c_str(), key.c_str(), value.c_str());
            // the earlier line goes, the later one counts: the file is mended once per key below
            note(section, it->first, it->second);
            if (doubled.insert({section, it->first}).second) doubledOrder.emplace_back(section, it->first);
            it->second = value;
        } else {
            s[key] = value;
        }
    }
    // a key written many times keeps its last value, in one line
    for (const auto& [section, key] : doubledOrder) {
        const std::string& value = model[section][key];
        si::profileWrite(file, section.c_str(), key.c_str(), nullptr);
        if (!value.empty()) si::profileWrite(file, section.c_str(), key.c_str(), value.c_str());
    }
    for (const auto& sec : order) {
        if (!model[sec].empty() || isProtected(sec)) continue;
        Prot::message(SEV_HINT, "%s[%s] obsolete empty section removed", file.c_str(), sec.c_str());
        note(sec, "", "");
        si::profileWrite(file, sec.c_str(), nullptr, nullptr);
        model.erase(sec);
    }
}

bool Maintenance::take(const char* section, const char* key, std::string& value)
{
    asked[section].push_back(key);
    auto s = model.find(section);
    if (s == model.end()) return false;
    auto k = s->second.find(key);
    if (k == s->second.end()) return false;
    value = k->second;
    s->second.erase(k);
    return true;
}

void Maintenance::write(const char* section, const char* key, const std::string& value)
{
    note(section, key, value);
    if (!si::profileWrite(file, section, key, value.c_str()))
        Prot::message(SEV_WARNING, "update %s [%s] %s=%s: %s", file.c_str(), section, key, value.c_str(),
                      std::strerror(errno));
}

int Maintenance::readInt(const char* section, const char* key, int def)
{
    std::string v;
    if (!haveModel || take(section, key, v)) {
        if (!haveModel) v = si::varString(section, key, std::to_string(def).c_str(), si::Directory, si::Version).substr(0, 128);
        int value = std::atoi(v.c_str());
        if (!wholeInteger(v)) notWhole(section, key, v, std::to_string(value));
        return value;
    }
    write(section, key, std::to_string(def));
    ini::noteDefaultFilled(key, std::to_string(def), name + ".ini");
    Prot::message(SEV_WARNING, "%s=%d added missing in %s.ini\n", key, def, name.c_str());
    return def;
}

double Maintenance::readFloat(const char* section, const char* key, double def)
{
    char buffer[64];
    std::string v;
    if (!haveModel || take(section, key, v)) {
        snprintf(buffer, sizeof buffer, "%g", def);
        if (!haveModel) v = si::varString(section, key, buffer, si::Directory, si::Version);
        double value = si::parseNumber(v);
        snprintf(buffer, sizeof buffer, "%.15g", value);
        if (!wholeNumber(v)) notWhole(section, key, v, buffer);
        return value;
    }
    snprintf(buffer, sizeof buffer, "%.15g", def);
    write(section, key, buffer);
    ini::noteDefaultFilled(key, buffer, name + ".ini");
    Prot::message(SEV_WARNING, "%s=%.15g added missing in %s.ini\n", key, def, name.c_str());
    return def;
}

std::string Maintenance::readString(const char* section, const char* key, const std::string& def)
{
    if (!haveModel) return si::varString(section, key, def.c_str(), si::Directory, si::Version);
    std::string v;
    if (take(section, key, v)) return v.substr(0, 1024);
    write(section, key, def);
    ini::noteDefaultFilled(key, def, name + ".ini");
    Prot::message(SEV_WARNING, "%s=%s missing in %s.ini\n", key, def.c_str(), name.c_str());
    return def;
}

int Maintenance::readModule(const char* key, char letter, int def, int highest)
{
    int variant;
    if (haveModel) {
        std::string v;
        if (!take("METHODE", key, v)) {
            variant = def;
            Prot::message(SEV_HINT, "%s.ini [METHODE] %s=%c%d inserted", name.c_str(), key, letter, variant);
            write("METHODE", key, std::string(1, letter) + std::to_string(variant));
            ini::noteDefaultFilled(key, std::string(1, letter) + std::to_string(variant), name + ".ini", true);
        } else {
            variant = v.empty() ? 0 : std::atoi(v.c_str() + 1);
            if (!v.empty() && !wholeInteger(v.substr(1)))
                notWhole("METHODE", key, v, std::string(1, letter) + std::to_string(variant));
            if (v.empty() || v[0] != letter) {
                Prot::message(SEV_WARNING, "%s.ini [METHODE] %s=%s replaced by %s=%c%d", name.c_str(), key, v.c_str(),
                              key, letter, variant);
                write("METHODE", key, std::string(1, letter) + std::to_string(variant));
            }
        }
    } else {
        std::string v = si::varString("METHODE", key, (std::string(1, letter) + std::to_string(def)).c_str(),
                                      si::Directory, si::Version);
        variant = v.empty() ? 0 : std::atoi(v.c_str() + 1);
    }
    if (variant < 0 || variant > highest) {
        Prot::writeln(0, "@mkvers_invalidM;", variant, letter, key, 0, highest);
        result = 1;
    }
    return variant;
}

void Maintenance::range(double value, double lo, double hi, const char* key)
{
    if (value >= lo && value <= hi) return;
    Prot::writeln(0, "@mkvers_invalidFloat;", value, lo, hi, key);
    result = 1;
}

void Maintenance::slip(const std::string& text)
{
    Prot::message(SEV_WARNING, "%s", text.c_str());
    // without an open protocol the message went to the console already
    if (Prot::stream()) Prot::console(SEV_WARNING, false, "%s", text.c_str());
}

void Maintenance::notWhole(const char* section, const char* key, const std::string& text, const std::string& taken)
{
    slip(name + ".ini [" + section + "] " + key + "=" + text + " is not a whole number, read as " + taken);
}

std::string Maintenance::misspelt(const std::string& section, const std::string& key)
{
    auto known = asked.find(section);
    if (known == asked.end()) return "";
    return closestKey(key, known->second);
}

void Maintenance::removeObsolete()
{
    // a key one slip away from a known one stands for that key: removing it and filling in the
    // default would lose the user's value, so the file stays as it is and the run stops here
    for (auto& [section, keys] : model) {
        if (isProtected(section)) continue;
        for (auto& [key, value] : keys) {
            std::string meant = misspelt(section, key);
            if (meant.empty() || keyDistance(key, meant) != 1) continue;
            Prot::writeln(0, "%s.ini [%s] %s=%s: unknown key, did you mean %s? The file is left as it is and no "
                             "forecast runs: correct the key",
                          name.c_str(), section.c_str(), key.c_str(), value.c_str(), meant.c_str());
            result = 1;
            untouched = true;
        }
    }
    if (untouched) return;
    struct Kept {
        std::string section, key, value, note;
    };
    std::vector<Kept> kept;
    for (auto& [section, keys] : model) {
        if (isProtected(section)) continue;
        if (!keys.empty() && !asked.count(section)) {
            // a section the program does not read: perhaps one it reads, misspelt
            std::vector<std::string> sections;
            for (const auto& a : asked) sections.push_back(a.first);
            std::string meant = closestKey(section, sections);
            if (!meant.empty()) slip(name + ".ini [" + section + "]: unknown section, did you mean [" + meant + "]?");
        }
        bool first = true;
        for (auto& [key, value] : keys) {
            std::string meant = misspelt(section, key);
            std::string text;
            if (!meant.empty()) {
                text = "unknown key, did you mean " + meant + "?";
                slip(name + ".ini [" + section + "] " + key + "=" + value + ": " + text);
            }
            Prot::message(SEV_HINT, "%s[%s]%s=%s obsolete entry removed", file.c_str(), section.c_str(), key.c_str(),
                          value.c_str());
            note(section, key, "");
            si::profileWrite(file, section.c_str(), key.c_str(), nullptr);
            // the line stays in the file as a comment, under a note that says why
            if (!text.empty())
                text = key + ": " + text + " (removed by the repair, kept as a comment)";
            else if (first)
                text = "unknown keys, removed by the repair, kept as comments:";
            first = false;
            kept.push_back({section, key, value, text});
        }
    }
    // the comments are added after all removals: the library looks up each removed text in
    // the texts it added, which would make a long list slow
    for (const auto& k : kept)
        si::profileKeepAsComment(file, k.section.c_str(), k.key.c_str(), k.value.c_str(),
                                 k.note.empty() ? nullptr : k.note.c_str());
}

int Maintenance::run()
{
    using namespace ini;
    if (int err = konst::read()) {
        std::string path = si::appDir + "constant.csv";
        os::messageBox("Error", "read %s: %s", path.c_str(), std::strerror(err));
        std::exit(1);
    }
    if (!os::isFile(file)) return 1;
    // all changes of the repair are gathered and written in one go at the end
    struct Commit {
        Maintenance* m;
        ~Commit()
        {
            if (m && m->untouched)
                si::profileAbandon(m->file);
            else if (m)
                m->commit();
        }
    } commitAtEnd{nullptr};
    if (!os::isReadOnly(file)) {
        si::profileBatch(file);
        commitAtEnd.m = this;
        buildModel();
    }

    time_t now = time(nullptr);
    tm local;
    localtime_r(&now, &local);
    RUNFORECAST = readInt("DEFAULTS", "RUNFORECAST", 1);
    STARTJAHR = readInt("DEFAULTS", "STARTJAHR", local.tm_year + 1900);
    ENDJAHR = readInt("DEFAULTS", "ENDJAHR", STARTJAHR);
    GAM = readInt("DEFAULTS", "GAM", 1);
    ABEW = readInt("DEFAULTS", "ABEW", 1);
    ABEWGEM = readInt("DEFAULTS", "ABEWGEM", 1);
    AusgabeNull = readInt("DEFAULTS", "AusgabeNull", 0);
    STRunden = readInt("DEFAULTS", "STRunden", 0);
    AUSGABE_EINZELWERTE = readInt("LA", "AUSGABE_EINZELWERTE", 1);
    MATRIX_AUSGABEFORMAT = readInt("LA", "MATRIX_AUSGABEFORMAT", 0);
    FMT_ANZAHL = readString("LA", "FMT_ANZAHL", konst::text("FMT_ANZAHLdef"));
    FMT_RATE = readString("LA", "FMT_RATE", konst::text("FMT_RATEdef"));
    setLAFormats(FMT_ANZAHL, FMT_RATE);
    G = readInt("METHODE", "G", 0);
    NITER = readInt("DEFAULTS", "NITER", konst::integer("NITERdef"));
    EPS = readFloat("DEFAULTS", "EPS", konst::number("EPSdef"));
    SCE = readFloat("DEFAULTS", "SCE", konst::number("SCEdef"));
    SUMTOL = readFloat("DEFAULTS", "SUMTOL", konst::number("SUMTOLdef"));
    AUSGABE_PROTOKOLL = readInt("DEFAULTS", "AUSGABE_PROTOKOLL", 1);
    AUSGABE_BINNEN_MATRIX = readInt("DEFAULTS", "AUSGABE_BINNEN_MATRIX", 0);
    AUSGABE_AUSSEN_MATRIX = readInt("DEFAULTS", "AUSGABE_AUSSEN_MATRIX", 0);
    DIFF_G = readInt("DEFAULTS", "DIFF_G", 0);
    DIFF_BG = readInt("DEFAULTS", "DIFF_BG", 0);
    DIFF_GG = readInt("DEFAULTS", "DIFF_GG", 0);
    DIFF_AG = readInt("DEFAULTS", "DIFF_AG", 0);
    PYRAMIDE = readInt("DEFAULTS", "PYRAMIDE", 0);
    PLOT_DATEN = readInt("DEFAULTS", "PLOT_DATEN", 0);
    DELAY = readInt("DEFAULTS", "DELAY", 1000);
    RUNZR = readInt("ZR", "RUNZR", 0);
    ZRGEM = readString("ZR", "ZRGEM", "zr_gem");
    GKZ = readString("ZR", "GKZ", "$i");
    BG = readString("ZR", "BG", "$i");
    GG = readString("ZR", "GG", "$i");
    AG = readString("ZR", "AG", "$i");
    RELEASE = readString("METHODE", "RELEASE", "");

    if (si::release.compare(0, RELEASE.size(), RELEASE) != 0) {
        // a variant of another release: its method keys are not read
        Prot::writeln(0, "%s.ini @mkvers_wrongRelease;", name.c_str(), si::release.c_str(), RELEASE.c_str());
        return result;
    }
    NRA = 1;
    NGZ = 1;
    NAG = readInt("METHODE", "NAG", 100);
    range(NAG, 1, 1000, "NAG");
    NGG = readInt("METHODE", "NGG", 2);
    range(NGG, 1, 1000000, "NGG");
    NBG = readInt("METHODE", "NBG", 2);
    range(NBG, 1, 1000000, "NBG");
    NTYA = readInt("METHODE", "NTYA", 1);
    range(NTYA, 1, 1000000, "NTYA");
    GP = readFloat("METHODE", "GP", konst::number("GPdef"));
    range(GP, 0, 1, "GP");
    GRND = readInt("METHODE", "GRND", 0);
    range(GRND, 0, 2, "GRND");
    GNGZ = readInt("METHODE", "GNGZ", 1);
    range(GNGZ, 1, 1000000000, "GNGZ");
    struct { int* value; const char* key; } generic[] = {
        {&GNTYG, "GNTYG"},     {&GNTYS, "GNTYS"},     {&GNTYB, "GNTYB"},
        {&GNTYZZA, "GNTYZZA"}, {&GNTYQWA, "GNTYQWA"}, {&GNTYNEE, "GNTYNEE"},
        {&GNTYREA, "GNTYREA"}, {&GNTYWBG, "GNTYWBG"}, {&GNRA, "GNRA"},
    };
    for (auto& g : generic) {
        *g.value = readInt("METHODE", g.key, 1);
        range(*g.value, 1, GNGZ, g.key);
    }
    GPAR = readFloat("METHODE", "GPAR", konst::number("GPARdef"));
    range(GPAR, konst::number("GPARmin"), konst::number("GPARmax"), "GPAR");
    for (const auto& m : modules) setModule(m.letter, readModule(m.key, m.letter, 0, m.highest));
    NBGv = NBG;
    NBGn = NBG;
    if (haveModel) removeObsolete();
    return result;
}

} // namespace

int mkvers()
{
    ini::clearDefaultsFilled();
    Maintenance m;
    return m.run();
}
