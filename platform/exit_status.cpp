#include "platform/exit_status.h"

#include <cstdio>

int exitStatus = 0;

void notBuilt(const char* tool)
{
    fprintf(stderr, "%s: this tool is not part of this build yet\n", tool);
    exitStatus = 1;
}
