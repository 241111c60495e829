// What every phase of the household tool shares: the fixed age class sets and the region
// keys with their types, which the main preparation builds.
#pragma once
#include "statistics/age_classes.h"
#include "statistics/region_map.h"

// the age class sets of the tool; AKL3, AKJ and AKA take the age limits Jung and Alt
extern LueckAltersklasse AK10, AKL3, AKJ, AKA;
extern DichtAltersklasse AK0_17, AK15_17, AK15_44, AK15_99, AK0_99, AK1_2, AK1_5, AK1_8, AK1_7;

// region keys and their types, built by the main preparation
extern G2T g2t;
