// Balance of the internal migration of the types against their limits (RK::ABG).
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/year_step.h"

// the stayers and flows stay as they are in this build
void RK::ABG(Orvane&, YearStep&) {}
