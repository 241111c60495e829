// The run report: the settings a forecast was made with, as tables at the head of the protocol.
#include <string>

#include "platform/dictionary.h"
#include "platform/variant_settings.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "tables/gnuplot_bridge.h"

// the short code of the active modules, such as "D2E1"
std::string moduleCode;

namespace {

std::string exp(const char* text) { return DD::expKey(text); }

// the key cell shows the key without "@" and ";"
void keyCell(bool withKey, const char* key)
{
    if (!withKey) return;
    std::string k = key;
    k = k.size() >= 2 ? k.substr(1, k.size() - 2) : k;
    Prot::raw("<th class=l>%s</th>", k.c_str());
}

void intRow(bool withKey, const char* key, int value)
{
    if (!Prot::level(1)) return;
    Prot::raw("<tr>");
    keyCell(withKey, key);
    Prot::raw("<th class=l>%s</th><td>%d</td></tr>\n", exp(key).c_str(), value);
}

void floatRow(bool withKey, const char* key, double value)
{
    if (!Prot::level(1)) return;
    Prot::raw("<tr>");
    keyCell(withKey, key);
    Prot::raw("<th class=l>%s</th><td>%g</td></tr>\n", exp(key).c_str(), value);
}

void textRow(const char* key, const std::string& value)
{
    if (Prot::level(1)) Prot::raw("<tr><th class=l>%s</th><td>%s</td></tr>\n", exp(key).c_str(), value.c_str());
}

void sectionRow(const std::string& name)
{
    if (Prot::level(1)) Prot::raw("<tr><th class=l colspan=%d>[%s]</th></tr>\n", 2, exp(name.c_str()).c_str());
}

// the keys 000, 001, ... of a section until one is missing
void sectionDump(const char* section, bool isText)
{
    if (!Prot::level(1)) return;
    bool settings = std::string(section) == "TRACECMD";
    bool first = true;
    bool pre = false;
    for (int i = 0;; ++i) {
        char key[16];
        snprintf(key, sizeof key, "%03d", i);
        const char* missing = "\x01";
        std::string v = settings ? si::getString(section, key, missing)
                                 : si::varString(section, key, missing, si::Directory, si::Version);
        if (v == missing) break;
        v = v.substr(0, 512);
        if (isText) {
            if (first) {
                Prot::raw("<tr><td colspan=\"2\">");
                pre = v.empty() || v[0] != '<';
                if (pre) Prot::raw("<pre>");
            }
            Prot::raw("%s\n", v.c_str());
        } else {
            if (first) Prot::raw("<tr><th class=l colspan=%d>[%s]</th></tr>\n", 2, section);
            Prot::raw("<tr><th class=l>%s</th><td>%s</td></tr>\n", key, htmlText(v).c_str());
        }
        first = false;
    }
    if (isText && !first) {
        if (pre) Prot::raw("</pre>");
        Prot::raw("</td></tr>\n");
    }
}

} // namespace

void RK::report()
{
    using namespace ini;
    bool on = Prot::level(1);
    // table 1: the installation
    if (on) {
        std::string path = Prot::level(3) ? " <code>" + si::settingsPath() + "</code>" : "";
        Prot::raw("<table>\n<caption>%s%s</caption>\n", DD::lookup("rk0pro_system").c_str(), path.c_str());
    }
    sectionRow("@rk1ver_defaults;");
    textRow("@directory;", si::Directory);
    textRow("@version;", si::Version);
    sectionRow("CSV");
    intRow(false, "@csvSpaltennamen;", si::spaltenname);
    intRow(false, "@csvKommentar;", si::kommentar);
    textRow("@GleitkommaFormat;", si::floatFormat);
    textRow("@decimalSeparator;", std::string(1, si::decimalPoint));
    textRow("@GanzzahlFormat;", si::intFormat);
    textRow("@Laendereinstellung;", si::localeName);
    textRow("@Spaltentrennzeichen;", std::string(1, si::separator));
    intRow(false, "@utf8BOM;", si::csvBom);
    intRow(false, "@ascii;", si::csvAscii);
    sectionRow("@rk1ver_gnuplot;");
    intRow(false, "@saveCmd;", plot::saveCmd);
    intRow(false, "@saveLog;", plot::saveLog);
    if (on) Prot::raw("<tr><th class=l>%s</th><td>%s</td></tr>\n", "background", plot::background.c_str());
    sectionRow("@rk1ver_trace;");
    intRow(false, "@logfile;", si::logfile);
    sectionDump("TRACECMD", false);
    if (on) Prot::raw("</table>");

    // table 2: the variant file
    if (on)
        Prot::raw("<table>\n<caption>%s <code>\"%s%s.ini\"</code></caption>\n", DD::lookup("rk1ver_params").c_str(),
                  si::Directory.c_str(), si::Version.c_str());
    sectionDump("NOTIZ", true);
    sectionDump("CALLBACK0", false);
    sectionDump("CALLBACK2", false);
    sectionRow("@rk1ver_defaults;");
    intRow(false, "@startYear;", STARTJAHR);
    intRow(false, "@endYear;", ENDJAHR);
    intRow(false, "@NITER;", NITER);
    intRow(false, "@generic;", G);
    intRow(false, "@Grnd;", GRND);
    intRow(false, "@gam;", GAM);
    intRow(false, "@abew;", ABEW);
    intRow(false, "@abewgem;", ABEWGEM);
    intRow(false, "@AUSGABE_PROTOKOLL;", AUSGABE_PROTOKOLL);
    intRow(false, "@AUSGABE_BINNEN_MATRIX;", AUSGABE_BINNEN_MATRIX);
    intRow(false, "@AUSGABE_AUSSEN_MATRIX;", AUSGABE_AUSSEN_MATRIX);
    intRow(false, "@DIFF_G;", DIFF_G);
    intRow(false, "@DIFF_BG;", DIFF_BG);
    intRow(false, "@DIFF_GG;", DIFF_GG);
    intRow(false, "@DIFF_AG;", DIFF_GG);   // the report has always shown DIFF_GG here
    intRow(false, "@plot_data; @plot_data?;", PLOT_DATEN);
    intRow(false, "@pyramidAnim;", PYRAMIDE);
    intRow(false, "@delay;", DELAY);
    floatRow(false, "@SUMTOL;", SUMTOL);
    sectionRow("@rk1ver_LA;");
    intRow(false, "@rk1ver_matElem;", AUSGABE_EINZELWERTE);
    intRow(false, "@matrixOutputFormat;", MATRIX_AUSGABEFORMAT);
    textRow("@FMT_ANZAHL;", FMT_ANZAHL);
    textRow("@FMT_RATE;", FMT_RATE);
    sectionRow("@rk1ver_file;");
    intRow(false, "@STRunden;", STRunden);
    intRow(false, "@AusgabeNull;", AusgabeNull);
    if (on) Prot::raw("</table>");

    // named options in force
    if (on && !opt::all().empty()) {
        Prot::raw("<table>\n<caption>option</caption>\n");
        for (const auto& [name, value] : opt::all()) Prot::raw("<tr><th class=l>%s</th><td>%g</td></tr>", name.c_str(), value);
        Prot::raw("</table>\n");
    }

    // the conventions of the mean of the year, off unless their option is set
    if (on) {
        const double births = opt::get("$MIDYEAR_BIRTHS", 0), exposure = opt::get("$MIDYEAR_EXPOSURE", 0);
        Prot::raw("<table>\n<caption>%s</caption>\n", DD::literal("Konventionen des Jahres"));
        Prot::raw("<tr><th class=l>$MIDYEAR_BIRTHS</th><td>%g</td><td>%s</td></tr>\n", births,
                  DD::literal(births != 0 ? "Geburten auf die mittlere Zahl der Frauen (Jahresanfang + Jahresende) / 2"
                                          : "Geburten auf die Frauen am Jahresanfang"));
        Prot::raw("<tr><th class=l>$MIDYEAR_EXPOSURE</th><td>%g</td><td>%s</td></tr>\n", exposure,
                  DD::literal(exposure != 0 ? "Fortziehende sterben ein halbes Jahr, Zuziehende zur halben Rate des "
                                              "nächsten Alters (Neugeborene 2/3)"
                                            : "alle Ströme auf derselben Bevölkerung"));
        Prot::raw("</table>\n");
    }

    // modules
    int bsl = int(opt::get("$BSL", 1));
    moduleCode.clear();
    if (on) Prot::raw("<table>\n<caption>%s</caption>\n", DD::lookup("rk1ver_PversPar").c_str());
    for (const auto& m : modules) {
        int v = module(m.letter);
        std::string letter(1, m.letter);
        std::string code = letter + std::to_string(v);
        if (on)
            Prot::raw("<tr><th class=l>%c%d</th><th class=l>%s</th><td>%s</td></tr>\n", m.letter, v,
                      DD::lookup(letter).c_str(), DD::lookup(code).c_str());
        if ((bsl == 1 && v != 0) || bsl == 2)
            if (moduleCode.size() + code.size() <= 80) moduleCode += code;
    }
    intRow(true, "@NBG;", NBG);
    intRow(true, "@NGG;", NGG);
    intRow(true, "@NAG;", NAG);
    if (module('T') == 1) intRow(true, "@NTYA;", NTYA);
    floatRow(true, "@GP;", GP);
    intRow(false, "@NITER;", NITER);
    floatRow(false, "@EPS;", EPS);
    floatRow(false, "@SCE;", SCE);
    if (on) Prot::raw("</table>");

    // the generic parameters
    if (Prot::level(2)) {
        Prot::raw("<table>\n<caption>%s</caption>\n", DD::lookup("genPar").c_str());
        struct { const char* key; const char* label; int value; } rows[] = {
            {"G", "@generic;", G},           {"GRND", "@Grnd;", GRND},         {"GNGZ", "@NGZ;", GNGZ},
            {"GNTYG", "@NTYG;", GNTYG},      {"GNTYS", "@NTYS;", GNTYS},       {"GNTYB", "@NTYB;", GNTYB},
            {"GNTYZZA", "@NTYZZA;", GNTYZZA}, {"GNTYQWA", "@NTYQWA;", GNTYQWA}, {"GNTYNEE", "@NTYNEE;", GNTYNEE},
            {"GNTYREA", "@NTYREA;", GNTYREA}, {"GNTYWBG", "@NTYWBG;", GNTYWBG}, {"GNRA", "@NRA;", GNRA},
        };
        for (const auto& r : rows)
            Prot::raw("<tr><th class=l>%s</th><th class=l>%s</th><td>%d</td></tr>\n", r.key, exp(r.label).c_str(), r.value);
        floatRow(true, "@Gpar;", GPAR);
        Prot::raw("</table>\n");
    }

    // the module code, and whether the variant's name carries it
    if (bsl != 0) {
        if (moduleCode.empty()) moduleCode = "T0";
        const std::string& v = si::Version;
        bool agrees = v.compare(0, moduleCode.size(), moduleCode) == 0 &&
                      (v.size() == moduleCode.size() || v[moduleCode.size()] == '_');
        Prot::console(SEV_NONE, false, "%s %s%s", DD::lookup("modules").c_str(), moduleCode.c_str(), agrees ? " v" : "");
    }
}

void RK::reportDimensions(const Orvane& c)
{
    if (!Prot::level(3)) return;
    Prot::raw("<table>\n<caption>%s</caption>\n", DD::lookup("rk1ver_JversPar").c_str());
    intRow(true, "@NGZ;", c.NGZ);
    intRow(true, "@NTYG;", c.NTYG);
    intRow(true, "@NTYS;", c.NTYS);
    intRow(true, "@NTYB;", c.NTYB);
    intRow(true, "@NTYZZA;", c.NTYZZA);
    intRow(true, "@NTYQWA;", c.NTYQWA);
    intRow(true, "@NTYNEE;", c.NTYNEE);
    intRow(true, "@NTYREA;", c.NTYREA);
    intRow(true, "@NTYWBG;", c.NTYWBG);
    intRow(true, "@NTYAGF;", c.NTYAGF);
    intRow(true, "@NTYHH;", c.NTYHH);
    intRow(true, "@NRA;", c.NRA);
    Prot::raw("</table>\n");
}
