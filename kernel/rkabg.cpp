// Balance of the internal migration of the types against their limits (RK::ABG).
#include "kernel/orvane.h"
#include "kernel/rk.h"
#include "kernel/rkstages.h"

// the stayers and flows stay as they are in this build
void RK::ABG(Orvane&, YearStep&) {}
