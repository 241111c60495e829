#include "household/household_frame.h"

#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "household/household_classes.h"
#include "household/household_forecast_step.h"
#include "household/household_outputs.h"
#include "household/household_protocol.h"
#include "household/household_settings.h"
#include "household/quota_building.h"
#include "platform/dictionary.h"
#include "platform/exit_status.h"
#include "platform/operating_system.h"
#include "platform/settings.h"


namespace {
std::string text(int value) { return std::to_string(value); }

void settingRow(const char* key, const std::string& value)
{
    fprintf(hhprot::page(), "<tr><td>%s</td><td>%s</td></tr>\n", DD::lookup(key).c_str(), value.c_str());
}

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
} // namespace

void householdPreparation()
{
    AKL3.setBound(1, hh.young);
    AKL3.setBound(2, hh.old);
    AKJ.setBound(1, hh.young);
    AKA.setBound(1, hh.old);

    std::string protocolDir = hh.directory + (hh.forecast ? "Prognose" : "Quoten") + "/";
    if (!hhprot::open(protocolDir))
        throw std::runtime_error("open " + protocolDir + "index.html " + os::errorText(errno));
    DD::load(hh.language, {});
    hhprot::log("Start hhprog %s\n", protocolDir.c_str());
    hhprot::heading(1, "");
    std::string style = si::appDir + "style.css";
    if (os::isFile(style)) os::copyFile(style, protocolDir + "p/style.css", false);

    FILE* page = hhprot::page();
    if (const char* server = os::getenv("SERVER_SOFTWARE")) fprintf(page, "<p>%s<br>\n", server);
    fprintf(page, "<code>%s %s</code><br>\n", lastComponent(si::programPath).c_str(), ("VELDOR " + si::release).c_str());
    fputs("<table>\n", page);
    settingRow("hh_prot", text(hh.protocolVolume));
    settingRow("csvSpaltennamen", text(si::spaltenname));
    settingRow("csvKommentar", text(si::kommentar));
    if (hh.computeQuotas) {
        settingRow("hh_quoten", text(hh.computeQuotas));
        settingRow("hh_filterW04", text(hh.filterW04));
        settingRow("hh_szr02", hh.r02map);
        settingRow("hh_amm", text(hh.microOutput));
        settingRow("hh_uag", text(hh.young));
        settingRow("hh_oag", text(hh.old));
        settingRow("reffile", "reftyp.csv");
        settingRow("hh_typcolno", text(hh.typeColumn));
    }
    if (hh.forecast) {
        settingRow("forecast", text(hh.forecast));
        settingRow("zrplot", text(hh.timeSeriesPlot));
        settingRow("dsg", text(hh.specialGroups));
        settingRow("NBG", text(hh.populationGroups));
        settingRow("lfwbb", text(hh.residenceFactor));
    }
    fputs("</table>\n", page);

    if (!hh.computeQuotas) {
        // the map and the types stand in the quota file of an earlier quota run
        readQuotaHead();
        fprintf(page, "%d %s, %d %s<br>\n", g2t.regions(), DD::lookup("hh_regions").c_str(), g2t.maxType,
                DD::lookup("hh_types").c_str());
        allocateHouseholdArrays();
        return;
    }
    if (!r02map::valid(hh.r02map))
        throw std::runtime_error(hh.r02map + ": ungueltige Abbildung in kleinräumige Gliederung\n");
    g2t.build(hh.r02map, true, hh.directory + "reftyp.csv", hh.typeColumn);
    if (g2t.error) {
        char message[1024];
        snprintf(message, sizeof message, "%s%s.csv:%d (Abb '%s') %s\n", hh.directory.c_str(), "reftyp", g2t.line,
                 hh.r02map.c_str(), G2T::errorText(g2t.error));
        throw std::runtime_error(message);
    }
    fprintf(page, "%s<br>\n", DD::lookup(hh.r02map.empty() ? "hh_R02noreffile" : "hh_R02reffile").c_str());
    if (g2t.maxType < 1) hhprot::warning("In Referenzdatei muss mindestens 1 Typ definiert sein");
    std::vector<bool> present(static_cast<size_t>(std::max(g2t.maxType, 0)) + 1, false);
    for (const auto& [key, type] : g2t.pairs)
        if (type >= 1) present[static_cast<size_t>(type)] = true;
    for (int type = 1; type <= g2t.maxType; ++type)
        if (!present[static_cast<size_t>(type)]) hhprot::warning("L&uuml;cke bei Typen in Referenzdatei: Typ %d fehlt", type);
    fprintf(page, "%d %s, %d %s<br>\n", g2t.regions(), DD::lookup("hh_regions").c_str(), g2t.maxType,
            DD::lookup("hh_types").c_str());
    allocateHouseholdArrays();
}

void hhprog(int count, char** vector)
{
    exitStatus = 0;
    auto start = std::chrono::steady_clock::now();
    hhprot::reset();
    try {
        readHhSettings(count, vector);
        hhprot::setVolume(hh.protocolVolume);
        householdPreparation();
        if (hh.computeQuotas) {
            auto phase = std::chrono::steady_clock::now();
            quotaPhase();
            hhprot::log("Quotenberechnung %.3fs\n", secondsSince(phase));
        }
        if (hh.forecast) {
            auto phase = std::chrono::steady_clock::now();
            forecastPhase();
            hhprot::log("Haushaltsprognose %.3fs\n", secondsSince(phase));
        }
        hhprot::close(secondsSince(start));
        if (!hhprot::pagesWritten()) exitStatus = 1;
    } catch (const std::exception& e) {
        closeResultFiles();
        hhprot::failure("Fehlerabbruch", e.what());
        hhprot::end();
        exitStatus = 1;
    } catch (...) {
        closeResultFiles();
        hhprot::failure("Ausnahme", "unbekannte Ausnahme");
        hhprot::end();
        exitStatus = 1;
    }
}
