// Internal migration of the region level: the moves of each type apportioned to its regions by
// their base population and free housing capacity, the flows between the regions of one type,
// and their fitting to the limits of the regions.
#include "kernel/montecarlo.h"
#include "kernel/orvane.h"
#include "kernel/rkstages.h"

// the region tables of internal migration stay 0 in this build
void internalMigration(MonteCarlo&, Orvane&, YearStep&) {}
