// New building (RK::EBB, module D): first occupation of new dwellings per TYNEE and its split
// into occupiers from the study area and from abroad.
#include "kernel/montecarlo.h"
#include "kernel/orvane.h"
#include "kernel/rk.h"
#include "kernel/rkstages.h"

// the arrays of new building stay as made in this build
void RK::EBB(MonteCarlo&, Orvane&, YearStep&) {}
