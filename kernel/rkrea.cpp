// Demolition (RK::REA, module E): last move-out of demolished dwellings per TYREA and its split
// into moves inside the study area and to abroad.
#include "kernel/montecarlo.h"
#include "kernel/orvane.h"
#include "kernel/rk.h"
#include "kernel/rkstages.h"

// the arrays of demolition stay as made in this build
void RK::REA(MonteCarlo&, Orvane&, YearStep&) {}
