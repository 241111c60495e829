#include "statistics/time_series.h"

#include "platform/protocol.h"
#include "platform/exit_status.h"

// The aggregation itself comes with the statistics tools; until then a run that asks for
// it is told so on the console, and the forecast's result is untouched.
int zrgem(const std::string& name, const std::vector<std::string>&, const std::string& directory,
          const std::string& version, int, int, int, int, const std::string&)
{
    Prot::console(SEV_WARNING, false, "zrgem %s%s/%s: time series aggregation not available in this build",
                  directory.c_str(), version.c_str(), name.c_str());
    return 1;
}

int zrgemTool(int, char**)
{
    notBuilt("zrgem");
    return 1;
}
