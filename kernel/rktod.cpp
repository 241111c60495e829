// Deaths: the deaths of the year by the death rates of the death types into DG4S, with the
// death targets of module S.
#include "kernel/montecarlo.h"
#include "kernel/orvane.h"
#include "kernel/rkstages.h"

// DG4S stays 0 in this build
void deaths(MonteCarlo&, Orvane&, YearStep&) {}
