// The driver of one forecast: system report, inputs, the year loop, end statistics.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

#include "platform/dictionary.h"
#include "platform/variant_settings.h"
#include "platform/operating_system.h"
#include "platform/protocol.h"
#include "platform/safe_output.h"
#include "platform/settings.h"
#include "kernel/differential_equations.h"
#include "kernel/file_table.h"
#include "kernel/year_step.h"
#include "platform/progress_line.h"
#include "kernel/monte_carlo.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/run_values.h"
#include "tables/expression.h"
#include "tables/functions.h"

int JAHR = 0;

namespace {

uint32_t clockMs()
{
    using namespace std::chrono;
    return uint32_t(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

void systemReport()
{
    if (const char* server = os::getenv("SERVER_SOFTWARE")) Prot::writeln(1, "Server Software: %s", server);
    if (Prot::level(3)) {
        os::SystemInfo sys = os::systemInfo();
        os::MemoryInfo mem = os::memoryInfo();
        Prot::write(3, "<pre>\n");
        Prot::write(3, "%s Architecture, %d core(s)\n", sys.x64 ? "x64" : "x86", sys.cores);
        Prot::write(3, "%13lu %s\n", mem.load, "percent of memory in use");
        Prot::write(3, "%13llu %s\n", mem.totalPhys / 1024, "total KB of physical memory");
        Prot::write(3, "%13llu %s\n", mem.availPhys / 1024, "free KB physical memory bytes");
        Prot::write(3, "%13llu %s\n", mem.totalPage / 1024, "total KB of paging file");
        Prot::write(3, "%13llu %s\n", mem.availPage / 1024, "free KB of paging file");
        Prot::write(3, "%13llu %s\n", mem.totalVirtual / 1024, "total KB of virtual memory");
        Prot::write(3, "%13llu %s\n", mem.availVirtual / 1024, "free KB of virtual memory");
        Prot::write(3, "</pre>\n");
    }
    Prot::writeln(0, "%s", os::dateTime().c_str());
    Prot::writeln(0, "@rk0pro_forecast; %s", (si::Directory + si::Version).c_str());
}

void dictionaryTest()
{
    char buffer[256];
    DD::expKey(buffer, sizeof buffer, "(@zz1;)");
    std::string umlaut = DD::lookup("umlaut");
    Prot::raw("<pre>%s = DD::expKey((@zz1;))\n", buffer);
    Prot::raw("%s = utf2ascii(%s)</pre>\n", utf2ascii(umlaut).c_str(), umlaut.c_str());
}

} // namespace

int periodLabel(int year)
{
    if (MONATE == 12 || MONATE <= 0) return year;
    int p = 12 / MONATE;
    int s = ini::STARTJAHR;
    if (year == s - 1) return year * 100 + p;
    return ((year - s) / p + s) * 100 + ((year - s) % p) + 1;
}

namespace {

bool stateVariable(const char* name, double& value)
{
    return Orvane::current && Orvane::current->variable(name, value);
}

// what the expressions of the tables may ask of the forecast: its regions and population
ForecastLink forecastLinkOf(Orvane* c)
{
    ForecastLink link;
    link.regionCount = [c] { return c->NGZ; };
    link.regionTotal = [c](int position) { return c->BG40.exists() ? c->BG40.regionSum(size_t(position)) : 0.0; };
    link.regionPosition = [c](long long key) {
        if (c->keyScale < 2) return c->findgem(key);
        auto it = std::lower_bound(c->indexKeys.begin(), c->indexKeys.end(), key);
        return it != c->indexKeys.end() && *it == key ? int(it - c->indexKeys.begin()) : -1;
    };
    link.sumTol = [c] { return c->SUMTOL; };
    link.keyScaleChanged = [c](long long scale) { c->keyScale = scale; };
    return link;
}

} // namespace

namespace {

// the year in work, 0 outside the loop of years
int g_runningYear = 0;

std::string joined(const std::vector<std::string>& names)
{
    std::string s;
    for (const std::string& n : names) s += (s.empty() ? "" : ", ") + n;
    return s;
}

// A run that fails in a year leaves no table of that year, and says which years are whole.
void failedYear(bool toProtocol)
{
    if (g_runningYear == 0) return;
    int year = g_runningYear;
    g_runningYear = 0;
    std::vector<std::string> removed = removeYearOutputs(year);
    safeOutput::dropAppends();
    for (const std::string& name : cutBackYear()) removed.push_back(name);
    std::string text = year > ini::STARTJAHR
                           ? DD::expKey("@yearsComplete;") + " " + std::to_string(periodLabel(ini::STARTJAHR)) + ".." +
                                 std::to_string(periodLabel(year - 1))
                           : DD::expKey("@noYearComplete;");
    if (!removed.empty()) text += "; " + DD::expKey("@failedYearRemoved;") + " " + joined(removed);
    if (toProtocol)
        Prot::writeln(0, "%s", text.c_str());
    else
        Prot::console(SEV_NONE, true, "%s", text.c_str());
}

} // namespace

int RK::PRO(Orvane* orvane)
{
    std::vector<uint32_t> timers{clockMs()};
    int result = 0;
    setSystemVariableResolver(stateVariable);
    ForecastLink link = forecastLinkOf(orvane);
    setForecastLink(&link);
    Prot::inputSection(DD::lookup("inp_before"));
    try {
        systemReport();
        RK::report();
        if (opt::get("$DDTEST", 0) != 0) dictionaryTest();
        // $SEED: the run's own stream of random numbers, from the input tables on
        const double seedOption = opt::get("$SEED", 0);
        const uint64_t ownSeed = seedOption >= 1 ? static_cast<uint64_t>(seedOption) : 0;
        if (ownSeed) runGenerator().seed(ownSeed);
        RK::input();
        if (opt::get("$ODE", 0) == 0 && orvane) RK::checkCombinations(*orvane);
        std::vector<std::string> old = removeEarlierOutputs();
        for (const std::string& name : removeLongTables()) old.push_back(name);
        if (!old.empty()) Prot::writeln(1, "@earlierResultsRemoved; %s", joined(old).c_str());
        if (opt::get("$ODE", 0) != 0) {
            differentialEquations(orvane);
            cleanUpPrognose(orvane);
        } else {
            // the switch and the limit are those before the first year has read its options
            std::mt19937_64 ownStream = runGenerator();
            auto mc = std::make_unique<MonteCarlo>(MONTE_CARLO, RANDOMLIMIT);
            if (ownSeed) {
                // the stream goes on where the input tables left it; a run of its own seed
                // draws up to the limit its options give, not the one before the first year
                mc->seed = ownSeed;
                mc->limit = static_cast<int>(opt::get("$RANDOMLIMIT", 100));
                runGenerator() = ownStream;
                Prot::writeln(1, "@monte_carlo_seed; %llu", (unsigned long long)ownSeed);
            }
            if (mc->mode) {
                Prot::writeln(1, "@monte_carlo; %d", mc->mode);
                Prot::writeln(1, "@monte_carlo_seed; %llu", (unsigned long long)mc->seed);
                Prot::writeln(1, "%s", DD::lookup(ZOMBIE ? "zombie1" : "zombie0").c_str());
                Prot::writeln(1, "Schwelle %d - Ratenformel", mc->limit);
                MBF = opt::get("$MBF", 1);
                Prot::writeln(1, "@MBF; %g", MBF);
            } else {
                Prot::writeln(1, "@deterministic;");
            }
            Trace::start("ORVANE");
            Trace::enter("RKPRO");
            Prot::setFlush(opt::get("$FLUSH", 0) != 0);
            if (ini::ENDJAHR < ini::STARTJAHR) {
                // the years may be defaults filled in; the note is text, its "%" no conversion
                std::string text = DD::expKey("@emptyForecast;");
                for (char ch : ini::defaultsFilledNote({"STARTJAHR", "ENDJAHR"})) text += ch == '%' ? "%%" : std::string(1, ch);
                Prot::message(SEV_HINT, text.c_str(), ini::STARTJAHR, ini::ENDJAHR);
            }
            // a fatal output error ends the process at once: the year in work is then undone too
            safeOutput::setAbortHook([] { failedYear(false); });
            progress::start(ini::ENDJAHR - ini::STARTJAHR + 1, DD::expKey("@progressYear;"));
            for (JAHR = ini::STARTJAHR; JAHR <= ini::ENDJAHR; ++JAHR) {
                g_runningYear = JAHR;
                progress::step(JAHR - ini::STARTJAHR + 1, periodLabel(JAHR));
                markYearStart();
                Trace::enterYear(JAHR);
                int label = periodLabel(JAHR);
                std::string toc = std::to_string(JAHR);
                Prot::heading(2, toc.c_str(), "@run; @rk0pro_forecast; %d", label);
                Prot::inputSection(std::to_string(label));
                RK::INI(orvane);
                RK::PAG(*mc, orvane);
                RK::releaseYear();
                Trace::leave();
            }
            g_runningYear = 0;
            progress::finish();
            safeOutput::setAbortHook(nullptr);
            cleanUpPrognose(orvane);
            Trace::leave();
        }
    } catch (const std::exception& e) {
        Prot::setThrow(false);
        if (*e.what()) Prot::message(SEV_ERROR, "@exit;: %s", e.what());
        Trace::clear();
        result = 1;
    } catch (...) {
        Prot::setThrow(false);
        Prot::message(SEV_ERROR, "@exit;");
        result = 1;
    }
    progress::finish();
    safeOutput::setAbortHook(nullptr);
    failedYear(true);
    setForecastLink(nullptr);
    setSystemVariableResolver(nullptr);
    if (ini::RUNFORECAST == 1) {
        timers.push_back(clockMs());
        Prot::heading(2, "@end;", "@end; @rk0pro_forecast;");
        LEAKS = opt::get("$LEAKS", 0);
        double parallelMs = os::loopTime();
        if (parallelMs > 0) {
            // a developer's aid: the double goes out as it stands
            long long bits;
            std::memcpy(&bits, &parallelMs, sizeof bits);
            Prot::writeln(1, "Laufzeit in parallel loops %d ms", int(bits));
        }
        char seconds[64];
        snprintf(seconds, sizeof seconds, "%.3f", (timers.back() - timers.front()) / 1000.0);
        Prot::writeln(0, "@rk0pro_end;", Prot::count(SEV_HINT), Prot::count(SEV_WARNING), Prot::count(SEV_ERROR),
                      seconds, "");
        writeResultsOverview(*orvane, result == 0);
        Prot::close();
    }
    return result;
}
