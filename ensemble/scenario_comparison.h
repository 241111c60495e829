// Scenarios side by side: further variants of the same directory, named in section SZENARIEN
// of the variant file (1=hoch, 2=niedrig, ...), run after the variant's own forecast, each as
// a separate process exactly as if run alone; then scenarios.csv and prot/scenarios.html in the
// variant's result directory compare their population per area and year with the first.
#pragma once
#include <string>
#include <vector>

struct ScenarioRequest {
    std::string directory;
    std::vector<std::string> variants;     // the variant run first, then its scenarios
    int jobs = 0;                          // scenarios at once; 0: the cores
    std::string language = "de";
    std::vector<std::string> optionTexts;  // the -o texts, for every scenario alike
};

// the scenarios named in section SZENARIEN of <directory><version>.ini, in the order of their keys
std::vector<std::string> scenariosOf(const std::string& directory, const std::string& version);

// population per area and year of a variant's results: the study area (from gem<year>.csv or
// gem.csv) and the aggregates (agg.csv); false with the reason when none can be read
struct AreaYear {
    std::string area;   // "all" or "agg<n>"
    int year = 0;
    bool operator<(const AreaYear& o) const
    {
        if (area != o.area) return area == "all" || (o.area != "all" && area < o.area);
        return year < o.year;
    }
};

// runs the scenarios and writes the comparison; 0, or 1 when a scenario failed (named on
// standard error; the others are compared)
int runScenarios(const ScenarioRequest& request);
