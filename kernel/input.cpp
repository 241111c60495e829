// The input stage: all tables of a variant are declared and read here.
#include "frame/prot.h"
#include "frame/siinit.h"
#include "kernel/rk.h"
#include "kernel/rkglobals.h"

int MONATE = 12;

void RK::input()
{
    Trace::enter("RKINP");
    MONATE = opt::getIntTrace("$MONATE", 12);
    Trace::leave();
}
