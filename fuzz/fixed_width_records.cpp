// Fuzz target: the readers of the fixed-width statistics records: the fields of every layout
// and the counting of a stock file and of a movement file.
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/fuzz_support.h"
#include "statistics/fixed_width_fields.h"
#include "statistics/statistics_preparation.h"

namespace {

Dstmak& tool()
{
    static Dstmak* t = [] {
        // without a sub-command the tool object is made without a run
        Dstmak* d = new Dstmak(0, nullptr);
        std::string work = fuzzing::scratch() + "dst/";
        std::filesystem::create_directories(work);
        snprintf(d->directory, sizeof d->directory, "%s", work.c_str());
        static DstProtocol page;
        page.open(work);
        d->protocol = &page;
        return d;
    }();
    return *t;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view record(reinterpret_cast<const char*>(data), size);
    for (const FixedLayout* layout : {&stockLayout(), &movementLayout(), &complementLayout()})
        for (const FixedField& f : layout->fields()) {
            long long v;
            fieldNumber(record, f, v);
            fieldBlank(record, f);
            fieldYear(record, f);
            fieldText(record, f);
        }
    Dstmak& t = tool();
    static size_t calls = 0;
    if (++calls % 2048 == 0) {
        // the tool's protocol and its trees start afresh now and then
        t.prot().close();
        t.prot().open(t.directory);
        t.bestand.clear();
        t.dsg.clear();
        for (CountTree* tree : {&t.geburt, &t.baby, &t.sterb, &t.bgw, &t.binnenwegzug, &t.aussenwegzug,
                                &t.aussenzuzug, &t.neubaubezug})
            tree->clear();
    }
    bool stock = size && (data[0] & 1);
    std::string name = stock ? "dstbest2020.txt" : "dstbew2020.txt";
    fuzzing::writeFile(t.path(name), data, size);
    if (stock)
        t.stockFile(name);
    else
        t.movementFile(name);
    return 0;
}
