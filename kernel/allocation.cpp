// Allocation: the in-migration of each external area goes to the in-migration types by quotas,
// which are repaired where they do not sum to 1.
#include <string>

#include "platform/dictionary.h"
#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/settings.h"
#include "kernel/file_table.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/kernel_helpers.h"

namespace {
size_t Z(int i) { return static_cast<size_t>(i); }
} // namespace

void RK::ALL(Orvane& c)
{
    Trace::enter("RKALL");
    struct Leave {
        ~Leave() { Trace::leave(); }
    } leave;
    Orvane& C = c;
    const size_t nta = Z(C.NTYA), nzza = Z(C.NTYZZA), nbg = Z(C.NBG), ngg = Z(C.NGG), nag = Z(C.NAG);

    // 1. in-migration by target type over all areas, for the protocol
    LA4 DR3ZN_("DR3ZN_", {nzza, nbg, ngg, nag}, 0.0);

    // 2. the quotas: with the data under K 5, else from their table; one type needs none
    if (!_(K_5)) {
        C.QR4ZA.make("C.QR4ZA", {nta, nzza, nbg, ngg, nag}, nzza == 1 ? 1.0 : 0.0);
        if (nzza > 1) readTable(fileTable[FT_ZUDQ], C.QR4ZA, "C.NTYA\0NTYZZA\0NBG\0NGG\0NAG\0");
    }

    // 3. the same quotas in another order of indices, as a check of the reading
    if (Prot::level(3) && opt::get("$checkZUAQ", 0) != 0) {
        LA5 QR4ZA_("QR4ZA_", {nzza, nta, nbg, ngg, nag}, 0.0);
        for (size_t ta = 0; ta < nta; ++ta)
            for (size_t y = 0; y < nzza; ++y) QR4ZA_[y][ta] = C.QR4ZA[ta][y];
        laPrint(3, QR4ZA_, "C.NTYZZA\0NTYA\0NBG\0NGG\0NAG\0",
                "Test, ob sich mit anderer Anordnung der Indizes dieselben Quoten ergeben");
    }

    // 4. every cell of quotas sums to 1 over the target types
    const int level = Prot::protocolLevel();
    const long limit = level >= 4 ? -1 : 3L * level;
    long changed = 0;
    for (size_t ta = 0; ta < nta; ++ta)
        for (size_t b = 0; b < nbg; ++b)
            for (size_t g = 0; g < ngg; ++g)
                for (size_t a = 0; a < nag; ++a) {
                    double s = 0;
                    for (size_t y = 0; y < nzza; ++y) s += C.QR4ZA[ta][y][b][g][a];
                    if (Compare(s, 1, C.SUMTOL) == 0) continue;
                    if (limit < 0 || changed < limit)
                        Prot::writeln(1, "@rk3prf_fmt790;", int(ta) + 1, int(b) + 1, int(g) + 1, int(a), s, C.SUMTOL);
                    else if (changed == limit)
                        Prot::writeln(1, "...");
                    ++changed;
                    for (size_t y = 0; y < nzza; ++y) {
                        double& q = C.QR4ZA[ta][y][b][g][a];
                        q = s < C.SUMTOL ? 1.0 / static_cast<double>(nzza) : q / s;
                    }
                }

    // 5.
    if (changed) {
        Prot::writeln(2, "%ld Anpassungen Allokationsquoten", changed);
        laPrint(1, C.QR4ZA, "C.NTYA\0NTYZZA\0NBG\0NGG\0NAG\0", "Angepasste @QR4ZA;", LA_RATE);
    }

    // 6. the in-migration of each area to the target types
    if (K_() < 6) {
        if (!C.DR4ZA.exists()) C.DR4ZA.make("C.DR4ZA", {nta, nzza, nbg, ngg, nag}, 0.0);
        os::parallelFor(0, C.NTYZZA, [&](int yi) {
            const size_t y = Z(yi);
            for (size_t ta = 0; ta < nta; ++ta)
                for (size_t b = 0; b < nbg; ++b)
                    for (size_t g = 0; g < ngg; ++g)
                        for (size_t a = 0; a < nag; ++a) {
                            double q = nzza > 1 ? C.QR4ZA[ta][y][b][g][a] : 1.0;
                            double v = q * C.DR3ZAQ[ta][b][g][a];
                            C.DR4ZA[ta][y][b][g][a] = v;
                            DR3ZN_[y][b][g][a] += v;
                        }
        });
        laPrint(3, DR3ZN_, "C.NTYZZA\0NBG\0NGG\0NAG\0");
    }
}
