// Internal migration numbers (RK::ASM with the final RK::ABG) and the check of the summed rates
// of each origin.
#include "kernel/monte_carlo.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/year_step.h"

// the rates stay rates in this build
void RK::ASM(MonteCarlo&, Orvane&, YearStep&) {}

// no rate is checked in this build
void checkSummeRaten(Orvane&, YearStep&) {}
