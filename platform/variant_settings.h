// The settings of a variant as the variant file gives them: years, output switches, formats,
// dimensions and the module letters. The variant file's maintenance fills them; everyone reads them.
#pragma once
#include <string>
#include <vector>

namespace ini {

// [DEFAULTS]
extern int RUNFORECAST, STARTJAHR, ENDJAHR, GAM, ABEW, ABEWGEM, AusgabeNull, STRunden;
extern int NITER;
extern double EPS, SCE, SUMTOL;
extern int AUSGABE_PROTOKOLL, AUSGABE_BINNEN_MATRIX, AUSGABE_AUSSEN_MATRIX;
extern int DIFF_G, DIFF_BG, DIFF_GG, DIFF_AG, PYRAMIDE, PLOT_DATEN, DELAY;
// [LA]
extern int AUSGABE_EINZELWERTE, MATRIX_AUSGABEFORMAT;
extern std::string FMT_ANZAHL, FMT_RATE;
// [ZR]
extern int RUNZR;
extern std::string ZRGEM, GKZ, BG, GG, AG;
// [METHODE]
extern std::string RELEASE;
extern int G, NAG, NGG, NBG, NTYA, GRND, GNGZ;
extern int GNTYG, GNTYS, GNTYB, GNTYZZA, GNTYQWA, GNTYNEE, GNTYREA, GNTYWBG, GNRA;
extern int NRA, NGZ;
// the two further group counts, kept equal to NBG
extern int NBGv, NBGn;
extern double GP, GPAR;

// module letters in reading order and their keys and highest variants
struct Module { char letter; const char* key; int highest; };
extern const Module modules[17];
// the variant of a module letter (0 when not active or unknown)
int module(char letter);
void setModule(char letter, int variant);

// The keys the variant file lacked in this run and the defaults filled in for them, so that an
// error that follows from one names the missing key.
// A module letter filled in is named only where its key is asked for.
void noteDefaultFilled(const std::string& key, const std::string& value, const std::string& file,
                       bool module = false);
void clearDefaultsFilled();
// "" when none was filled in, else "; STARTJAHR=2026 filled in as a default, the key was
// missing in <file>" for each but the module letters (in the language of the run)
std::string defaultsFilledNote();
// the same for the keys named only, several of one file in one clause ("; STARTJAHR=2026,
// ENDJAHR=2026 filled in as defaults, the keys were missing in <file>"); "" when none was filled in
std::string defaultsFilledNote(const std::vector<std::string>& keys);

} // namespace ini
