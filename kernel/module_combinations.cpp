// The combinations of modules that the stages of a year assert, checked once before the first
// year, so that a variant they forbid stops before anything of an earlier run is removed. The
// stages keep their own checks; each condition here is written as its stage writes it, so the
// message shows the same text.
#include "platform/protocol.h"
#include "platform/variant_settings.h"
#include "kernel/kernel_helpers.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"

void RK::checkCombinations(const Orvane& c)
{
    c.checkModules();
    if (_(T_0)) return;
    // external migration
    const char* const irw = "source\\c\\rkirw";
    if (C_() != 6 && !_(B_0) && inrange(2, N_(), 4)) VCHECK((K_() > K_1) && _(A_0) && _(C_0), irw);
    if (C_() != 6 && !_(C_0)) VCHECK(N_() < N_2, irw);
    if (_(A_1) && _(B_0) && !_(M_2)) {
        VCHECK(_(C_0), irw);
        if (_(N_1)) VCHECK(_(M_0), irw);
        if (_(M_1)) VCHECK(_(N_0), irw);
    }
    if ((_(A_1) && _(B_0) && _(M_2)) || (_(A_0) && _(B_0) && _(C_0) && _(M_2))) VCHECK(_(C_0), irw);
    // internal migration balance
    if (!_(I_0) && !_(P_0)) VCHECK(inrange(P_1, P_(), P_2), "source\\c\\rkabg");
}
