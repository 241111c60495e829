// Internal migration of the region level: the moves of each type apportioned to its regions by
// their base population and free housing capacity, the flows between the regions of one type,
// and their fitting to the limits of the regions.
#include "kernel/monte_carlo.h"
#include "kernel/run_object.h"
#include "kernel/year_step.h"

// the region tables of internal migration stay 0 in this build
void internalMigration(MonteCarlo&, Orvane&, YearStep&) {}
