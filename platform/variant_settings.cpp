#include "platform/variant_settings.h"

#include <algorithm>
#include <vector>

#include "platform/dictionary.h"

namespace ini {

int RUNFORECAST = 1, STARTJAHR = 0, ENDJAHR = 0, GAM = 1, ABEW = 1, ABEWGEM = 1, AusgabeNull = 0, STRunden = 0;
int NITER = 0;
double EPS = 0, SCE = 0, SUMTOL = 0;
int AUSGABE_PROTOKOLL = 1, AUSGABE_BINNEN_MATRIX = 0, AUSGABE_AUSSEN_MATRIX = 0;
int DIFF_G = 0, DIFF_BG = 0, DIFF_GG = 0, DIFF_AG = 0, PYRAMIDE = 0, PLOT_DATEN = 0, DELAY = 1000;
int AUSGABE_EINZELWERTE = 1, MATRIX_AUSGABEFORMAT = 0;
std::string FMT_ANZAHL, FMT_RATE;
int RUNZR = 0;
std::string ZRGEM = "zr_gem", GKZ = "$i", BG = "$i", GG = "$i", AG = "$i";
std::string RELEASE;
int G = 0, NAG = 100, NGG = 2, NBG = 2, NTYA = 1, GRND = 0, GNGZ = 1;
int GNTYG = 1, GNTYS = 1, GNTYB = 1, GNTYZZA = 1, GNTYQWA = 1, GNTYNEE = 1, GNTYREA = 1, GNTYWBG = 1, GNRA = 1;
int NRA = 1, NGZ = 1;
int NBGv = 2, NBGn = 2;
double GP = 0, GPAR = 0;

const Module modules[17] = {
    {'A', "ANPASSUNG_WEGZUG", 1},  {'B', "ANPASSUNG_ZUZUG", 1},
    {'C', "ZIELWERT_WEGZUG", 6},   {'D', "NEUBAU", 3},
    {'E', "RUECKBAU", 4},          {'G', "GEBURTENECKWERT", 2},
    {'I', "BINNENWANDERUNG", 1},   {'K', "AUSSENWANDERUNGSDATEN", 6},
    {'M', "ZIELWERT_BESTAND", 2},  {'N', "ZIELWERT_AUSSENWANDERUNGSSALDO", 4},
    {'P', "ZIELWERTE", 2},         {'R', "ANSTALTSBEVOELKERUNG", 2},
    {'S', "STERBEECKWERT", 2},     {'T', "BEVOELKERUNGSBEWEGUNGEN", 1},
    {'V', "ATTRAKTIVITAET", 1},    {'W', "BEVGRPWECHSEL", 1},
    {'Y', "BGWQG", 1},
};

namespace {
int g_modules[26] = {};
}

int module(char letter) { return letter >= 'A' && letter <= 'Z' ? g_modules[letter - 'A'] : 0; }
void setModule(char letter, int variant)
{
    if (letter >= 'A' && letter <= 'Z') g_modules[letter - 'A'] = variant;
}

namespace {
struct Filled {
    std::string key, value, file;
    bool module;
};
std::vector<Filled> g_filled;
} // namespace

void noteDefaultFilled(const std::string& key, const std::string& value, const std::string& file, bool module)
{
    g_filled.push_back({key, value, file, module});
}

void clearDefaultsFilled() { g_filled.clear(); }

namespace {
std::string filledNote(const Filled& f)
{
    return "; " + f.key + "=" + f.value + " " + DD::lookup("defaultFilled") + " " + f.file;
}
} // namespace

std::string defaultsFilledNote()
{
    std::string note;
    for (const Filled& f : g_filled)
        if (!f.module) note += filledNote(f);
    return note;
}

std::string defaultsFilledNote(const std::vector<std::string>& keys)
{
    // several keys of one file in one clause: "; A=1, B=2 filled in as defaults, the keys ..."
    std::vector<const Filled*> named;
    for (const Filled& f : g_filled)
        if (std::find(keys.begin(), keys.end(), f.key) != keys.end()) named.push_back(&f);
    std::string note;
    for (size_t i = 0; i < named.size();) {
        size_t j = i + 1;
        while (j < named.size() && named[j]->file == named[i]->file) ++j;
        if (j == i + 1) {
            note += filledNote(*named[i]);
        } else {
            note += "; ";
            for (size_t k = i; k < j; ++k) note += (k > i ? ", " : "") + named[k]->key + "=" + named[k]->value;
            note += " " + DD::lookup("defaultsFilled") + " " + named[i]->file;
        }
        i = j;
    }
    return note;
}

} // namespace ini
