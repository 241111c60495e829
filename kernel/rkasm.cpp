// Internal migration numbers (RK::ASM with the final RK::ABG) and the check of the summed rates
// of each origin.
#include "kernel/montecarlo.h"
#include "kernel/orvane.h"
#include "kernel/rk.h"
#include "kernel/rkstages.h"

// the rates stay rates in this build
void RK::ASM(MonteCarlo&, Orvane&, YearStep&) {}

// no rate is checked in this build
void checkSummeRaten(Orvane&, YearStep&) {}
