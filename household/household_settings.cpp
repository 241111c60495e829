#include "household/household_settings.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "platform/operating_system.h"
#include "platform/option_scanner.h"
#include "platform/settings.h"

HhSettings hh;

namespace {
const char* const USAGE =
    "hhprog [Optionen]\n -C= Ausgabe Kommentarzeilen in Ausgabedatei\n -d= Eingabedateiverzeichnis\n -E= Endjahr Prognose\n"
    " -F= Anzahl signifikate Ziffern R02\n -G= reffile\n -l= Sprache, Voreinstellung d(eutsch)\n -N= Filter W04 0=nein 1=ja\n"
    " -M= Ausgabe Micromerkmale (0-7)\n -O= obere Altersgrenze (default 65)\n -P= Prognose 0=nein 1=ja\n"
    " -Q= Quotenberechnung 0=nein 1=ja\n -R= Zeitreihenplot (0-3)\n -S= Startjahr Prognose\n"
    " -T= Spalte für Typ in Typentabelle\n -U= untere Altersgrenze (default 35)\n -V= Protokollumfang (0-3)\n";

// the default goes in as text when the key is missing; the value is read back as an integer
// a key of hhprog.ini, written there with its default when it is missing; without the file
// (no directory) the default
int iniInt(const std::string& file, const char* key, int def)
{
    if (file.empty()) return def;
    std::string text = si::profileString(file, "HHPROG", key, "");
    if (text.empty()) {
        text = std::to_string(def);
        si::profileWrite(file, "HHPROG", key, text.c_str());
    }
    return std::atoi(text.c_str());
}

[[noreturn]] void usage()
{
    fprintf(stderr, "Falscher Aufruf: %s", USAGE);
    std::exit(1);
}
} // namespace

std::string hhIniPath() { return si::getString("HHPROG", "Directory", "") + "hhprog.ini"; }

void readHhSettings(int count, char** vector)
{
    hh = HhSettings();
    hh.directory = si::getString("HHPROG", "Directory", "");
    // hhprog.ini stands in the directory of the settings; without that directory the tool
    // writes nothing (the check after the options names what is missing)
    bool usable = !hh.directory.empty() && os::isDirectory(hh.directory);
    std::string ini = usable ? hhIniPath() : std::string();
    std::string map = usable ? si::profileString(ini, "HHPROG", "R02map", "\x01") : std::string();
    if (map == "\x01") {
        map.clear();
        si::profileWrite(ini, "HHPROG", "R02map", "");
    }
    hh.r02map = map.substr(0, 128);
    hh.computeQuotas = iniInt(ini, "BerechneQuoten", 1);
    hh.typeColumn = iniInt(ini, "QtypCol", 12);
    hh.forecast = iniInt(ini, "Prognose", 1);
    hh.filterW04 = iniInt(ini, "FilterW04", 0);
    hh.microOutput = iniInt(ini, "AusgabeMicroMerkmale", 0);
    hh.protocolVolume = iniInt(ini, "Protokollumfang", 1);
    hh.timeSeriesPlot = iniInt(ini, "Zeitreihenplot", 1);
    hh.young = iniInt(ini, "Jung", 35);
    hh.old = iniInt(ini, "Alt", 65);
    hh.specialGroups = iniInt(ini, "DSG", 0);
    hh.populationGroups = iniInt(ini, "NBG", 2);
    hh.residenceFactor = iniInt(ini, "LFWBB", 0);

    Getopt scan;
    int c;
    while ((c = scan(count, vector, "C:d:E:F:l:N:M:O:P:Q:r:R:S:T:U:w:Vp")) != -1) {
        const char* arg = scan.optarg;
        switch (c) {
        case 'd': hh.directory = arg; break;
        case 'F': hh.r02map = std::string(arg).substr(0, 128); break;
        case 'l': hh.language = arg; break;
        case 'M': hh.microOutput = std::atoi(arg); break;
        case 'N': hh.filterW04 = std::atoi(arg); break;
        case 'O': hh.old = std::atoi(arg); break;
        case 'P': hh.forecast = std::atoi(arg); break;
        case 'Q': hh.computeQuotas = std::atoi(arg); break;
        case 'R': hh.timeSeriesPlot = std::atoi(arg); break;
        case 'T': hh.typeColumn = std::atoi(arg); break;
        case 'U': hh.young = std::atoi(arg); break;
        // the letter takes no argument, yet reads the argument variable, which it finds empty
        case 'V': hh.protocolVolume = arg ? std::atoi(arg) : 0; break;
        case 'w':
            if (!os::setCurrentDirectory(arg)) fprintf(stderr, "HHPROG: %s: %s\n", arg, os::errorText(errno).c_str());
            break;
        // C, E, S, r and p stand in the option string but are not implemented
        default: usage();
        }
    }
    if (hh.directory.empty() || !os::isDirectory(hh.directory))
        throw std::runtime_error("kein Verzeichnis \"" + hh.directory + "\" (Directory in Abschnitt HHPROG von " +
                                 si::settingsPath() + " oder -d): nichts geschrieben");
}
