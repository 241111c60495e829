// The settings of the household tool: hhprog.ini with its defaults written back, and the
// command line options over them.
#pragma once
#include <string>

struct HhSettings {
    std::string directory;          // input directory, a prefix of every path
    std::string language = "de";
    std::string r02map;             // map of small-area codes to region keys, at most 128 bytes
    int computeQuotas = 1;
    int typeColumn = 12;
    int forecast = 1;
    int filterW04 = 0;
    int microOutput = 0;
    int protocolVolume = 1;
    int timeSeriesPlot = 1;
    int young = 35;
    int old = 65;
    int specialGroups = 0;
    int populationGroups = 2;
    int residenceFactor = 0;
};

// the one instance of the run
extern HhSettings hh;

// where hhprog.ini stands: the directory of [HHPROG] Directory of the settings file
std::string hhIniPath();
// Reads hhprog.ini, writing every missing key with its default, then the options. A wrong
// or unimplemented option shows the usage and ends the process.
void readHhSettings(int count, char** vector);
