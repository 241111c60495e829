// New building (RK::EBB, module D): first occupation of new dwellings per TYNEE and its split
// into occupiers from the study area and from abroad.
#include "kernel/monte_carlo.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/year_step.h"

// the arrays of new building stay as made in this build
void RK::EBB(MonteCarlo&, Orvane&, YearStep&) {}
