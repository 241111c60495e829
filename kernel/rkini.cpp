// Year initialisation and the release of a year's arrays.
#include "frame/mkvers.h"
#include "frame/prot.h"
#include "kernel/orvane.h"
#include "kernel/rk.h"
#include "kernel/rkglobals.h"

int MONTE_CARLO = 0;
int RANDOMLIMIT = 0;
int ZOMBIE = 0;
double MBF = 1;
double LEAKS = 0;

// The population of a year is prepared here once the input tables exist; for now a
// year starts from nothing.
void RK::INI(Orvane* orvane)
{
    Trace::enter("RKINI");
    if (JAHR == ini::STARTJAHR) RK::reportDimensions(*orvane);
    Trace::leave();
}

void RK::releaseYear()
{
    if (Orvane::current) Orvane::current->releaseYear();
}
