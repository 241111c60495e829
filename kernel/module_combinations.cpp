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
    MODULE_CHECK_UNDER(C_() != 6 && !_(B_0) && inrange(2, N_(), 4), (K_() > K_1) && _(A_0) && _(C_0), irw);
    MODULE_CHECK_UNDER(C_() != 6 && !_(C_0), N_() < N_2, irw);
    if (_(A_1) && _(B_0) && !_(M_2)) {
        MODULE_CHECK_UNDER(_(A_1) && _(B_0) && !_(M_2), _(C_0), irw);
        MODULE_CHECK_UNDER(_(N_1), _(M_0), irw);
        MODULE_CHECK_UNDER(_(M_1), _(N_0), irw);
    }
    MODULE_CHECK_UNDER((_(A_1) && _(B_0) && _(M_2)) || (_(A_0) && _(B_0) && _(C_0) && _(M_2)), _(C_0), irw);
    // in-migration by cohort compares the targets of in-migration, balance and out-migration
    // cell by cell: the tables they will be read into must have one shape
    if (_(B_1) && _(M_2) && !_(N_0) && !_(C_0) && !_(C_6)) {
        struct Targets {
            LA3 DR2ZA, BR21WS;
        } C;
        C.DR2ZA.make("C.DR2ZA", {size_t(c.NKTYA()), size_t(c.NKBG()), size_t(c.NKGG())}, 0.0);
        C.BR21WS.make("C.BR21WS", {size_t(c.NNTYA()), size_t(c.NNBG()), size_t(c.NNGG())}, 0.0);
        LA3 DR2W("DR2W", {size_t(c.NCTYA()), size_t(c.NCBG()), size_t(c.NCGG())}, 0.0);
        VCHECK(C.DR2ZA.size() == C.BR21WS.size() && C.BR21WS.size() == DR2W.size() &&
                   C.DR2ZA[0].size() == C.BR21WS[0].size() && C.BR21WS[0].size() == DR2W[0].size() &&
                   C.DR2ZA[0][0].size() == C.BR21WS[0][0].size() && C.BR21WS[0][0].size() == DR2W[0][0].size(),
               irw);
    }
    // internal migration balance
    MODULE_CHECK_UNDER(!_(I_0) && !_(P_0), inrange(P_1, P_(), P_2), "source\\c\\rkabg");
}
