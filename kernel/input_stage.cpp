// The input stage: all tables of a variant are declared here, the state is shown to the
// expressions of their cells, and the reference table of regions fixes the dimensions before
// the first year.
#include "platform/protocol.h"
#include "platform/settings.h"
#include "kernel/file_table.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/run_values.h"

int MONATE = 12;

void RK::input()
{
    Trace::enter("RKINP");
    struct Leave {
        ~Leave() { Trace::leave(); }
    } leave;
    // the table of files, with $GEMALL and $MONATE
    fillFileTable();
    publishStateVariables();
    if (!Orvane::current) return;
    Orvane& c = *Orvane::current;
    // the list form of the flows is chosen once for the run
    c.sparseStrm = opt::getIntTrace("$SPARSESTRM", 0) != 0;
    // The regions and their types give every dimension that the rate tables are made with, and
    // the differential equation method, which has no year initialisation, needs them as well.
    RK::REF();
}
