// The forecast phase of the household tool: the population forecast gem.csv, year by year,
// is split in a chain of equations into children, parents, partners, descendants,
// ascendants, persons alone and other persons, by sex, age class and household type (HDO),
// and into numbers of households per type.
#pragma once
#include <map>
#include <string>
#include <vector>

#include "household/quota_building.h"

// the results of one region in one year (g 0 male, 1 female; j a class of AKL3)
struct RegionYear {
    double B1[2][100] = {}, B1sum = 0;
    double ZPK[2][18] = {}, ZPKZ_Ew[18] = {}, ZPKZ_Ewg[2] = {};
    double ZPEZw[2] = {}, ZPEAZw[2] = {}, ZPEPZw[2] = {}, ZPEA = 0, ZHEA = 0;
    double ZPEAZwf[3] = {}, ZPEPZwf[3] = {}, ZPEPZm[3] = {}, ZPEZ = 0, ZFK = 0, ZH2 = 0, ZPESs = 0;
    double ZH2is = 0, ZH2ib[7] = {}, ZH2z = 0, ZH2n = 0, ZH2in[7] = {};
    double ZPES[2][3] = {}, ZPE[2][3] = {}, B1agg[2][3] = {}, B2[2][3] = {};
    double ZPP1a[2][3] = {}, ZPP1b[2][3] = {}, ZPP2[2][3] = {}, ZPP3[2][3] = {}, B3[2][3] = {};
    double ZPNg[2][2] = {}, ZPN[2][3] = {}, ZPN2[2][3] = {}, ZPN3[2][3] = {}, ZPN4[2][3] = {};
    double ZPVg[2][2] = {}, ZPV[2][3] = {}, ZPV2[2][3] = {}, ZPV3[2][3] = {}, ZPV4[2][3] = {}, ZH4 = 0, B4[2][3] = {};
    double ZP1[2][3] = {}, ZPM[4][2][3] = {}, ZH5 = 0;
    double households[6] = {};   // by HDO 1..5
};

// the assumptions of a year: ZQ1..ZQ6 over type, sex and the classes of AKJ, AKJ, AKL3, AKJ, AKA, AKL3
struct Assumptions {
    Grid<double> zq[6];
};

// Reads a year table (gem, hdsga, hdsgr: region x NBG x 2 x 100; zq: the six assumption
// arrays) from <directory><name>.csv; 1 when the file is missing. Bad rows throw.
int readYearTable(const std::string& name, const std::string& directory, std::map<int, std::vector<double>>* population,
                  std::map<int, Assumptions>* assumptions);

// the numbers of children per household moved towards a target of children
// (households with 1..n children in h); returns true when the shift stalled, with the rest
bool proportionalShift(double target, double* h, int n, double& rest);
// moves households class by class towards the target; the rest that could not be moved
double stepwiseShift(double target, double implied, double* h);

// the forecast phase over gem.csv of the input directory
void forecastPhase();
